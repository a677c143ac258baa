#include "QZ/data/random_centers.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/index_types.h"

namespace {

template <class idx_t>
std::vector<idx_t> centers(idx_t rows, idx_t columns, idx_t count, std::mt19937& rng) {
  const std::unique_ptr<idx_t[]> drawn(QZ::randomCenters<idx_t>(rows, columns, count, &rng));
  return std::vector<idx_t>(drawn.get(), drawn.get() + rows * columns);
}

template <class idx_t>
class RandomCenters : public testing::Test {};
TYPED_TEST_SUITE(RandomCenters, qz_test::IndexTypes);

TYPED_TEST(RandomCenters, EveryRunOfCountDrawsIsAPermutation) {
  std::mt19937 rng(2);
  auto drawn = centers<TypeParam>(6, 4, 8, rng);
  for (auto run = drawn.begin(); run != drawn.end(); run += 8) {
    std::sort(run, run + 8);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(run[i], i);
  }
}

TYPED_TEST(RandomCenters, TakesTheDrawnPlaceOutOfTheOrderedRest) {
  std::mt19937 rng(4), plain(4);
  const auto drawn = centers<TypeParam>(1, 3, 3, rng);
  std::vector<TypeParam> rest{0, 1, 2};
  std::vector<TypeParam> expected;
  for (TypeParam last : {2, 1}) {
    const auto place = std::uniform_int_distribution<TypeParam>(0, last)(plain);
    expected.push_back(rest[place]);
    rest.erase(rest.begin() + place);
  }
  expected.push_back(rest[0]);
  EXPECT_EQ(drawn, expected);
  EXPECT_EQ(rng, plain) << "the last one is not drawn";
}

TYPED_TEST(RandomCenters, ACountOfOneNeverDraws) {
  std::mt19937 rng(4);
  EXPECT_EQ(centers<TypeParam>(3, 2, 1, rng), std::vector<TypeParam>(6, 0));
  EXPECT_EQ(rng, std::mt19937(4));
}

TEST(RandomCenters, NothingToDrawFromIsAnError) {
  std::mt19937 rng(4);
  EXPECT_THROW(QZ::randomCenters<unsigned int>(1, 1, 0, &rng), std::logic_error);
  EXPECT_TRUE(centers<unsigned int>(0, 1, 0, rng).empty());
}

}  // namespace
