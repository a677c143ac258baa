#include "QZ/data/number_sort.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <vector>

namespace {

TEST(NumberSort, SortsAsTheStandardLibraryDoes) {
  std::mt19937_64 rng(2);
  for (const std::size_t n : {0, 1, 2, 100, 8191, 8192, 30000}) {
    std::vector<double> values(n);
    for (double& x : values) {
      // Any bit pattern that is a number, and many repeated small ones.
      x = std::bit_cast<double>(rng());
      if (std::isnan(x) || rng() % 2 == 0) x = static_cast<double>(rng() % 100) - 50;
    }
    if (n > 10) values[3] = std::numeric_limits<double>::infinity();
    if (n > 10) values[5] = -std::numeric_limits<double>::infinity();
    std::vector<double> expected = values;
    std::sort(expected.begin(), expected.end());
    QZ::NumberSort::ascending(values.data(), n);
    EXPECT_EQ(values, expected) << n;
  }
}

}  // namespace
