#include "QZ/support/random.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace {

TEST(Random, BlocksHoldWhatSingleDrawsWouldGive) {
  std::mt19937 one(7);
  std::mt19937 many(7);
  for (const std::size_t n : {0, 1, 3, 311, 312, 313, 2000}) {
    std::vector<double> block(n);
    QZ::draw_canonicals(many, block.data(), n);
    for (const double u : block) EXPECT_EQ(u, QZ::draw_canonical(one));
    EXPECT_EQ(one, many);
  }
}

TEST(Random, ACanonicalDrawTakesTheLowWordFirst) {
  std::mt19937 rng(8);
  std::mt19937 words(8);
  for (int i = 0; i < 100; ++i) {
    const double a = static_cast<double>(words());
    const double b = static_cast<double>(words());
    EXPECT_EQ(QZ::draw_canonical(rng), (a + b * 4294967296.0) / 18446744073709551616.0);
  }
}

TEST(Random, UniformIntegersCoverBothEnds) {
  std::mt19937 rng(9);
  bool seen[4] = {};
  for (int i = 0; i < 200; ++i) {
    const auto x = QZ::draw_uniform<unsigned char>(rng, 2, 5);
    ASSERT_TRUE(x >= 2 && x <= 5);
    seen[x - 2] = true;
  }
  EXPECT_TRUE(seen[0] && seen[1] && seen[2] && seen[3]);
}

}  // namespace
