/// Discretization through the exported functions, against values worked out by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <limits>
#include <stdexcept>
#include <vector>

#include "vm_wrapper.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using Column = std::vector<double>;
using Categories = std::vector<unsigned short>;

/// A learned model that releases its arrays, and the categories that came with it.
class Learned {
 public:
  Learned(Column column, std::size_t bins) : categories(column.size(), 999) {
    model = discretize(categories.data(), column.data(), column.size(), bins);
    EXPECT_EQ(model.num_moments, model.num_intervals);
  }
  ~Learned() {
    delete[] model.intervals;
    delete[] model.moments;
  }
  Learned(const Learned&) = delete;
  Learned& operator=(const Learned&) = delete;

  double lower(std::size_t bin) const { return model.intervals[2 * bin]; }
  double upper(std::size_t bin) const { return model.intervals[2 * bin + 1]; }
  Column moments(std::size_t bin) const {
    return {model.moments + 5 * bin, model.moments + 5 * bin + 5};
  }
  Categories apply(Column column) const {
    Categories out(column.size(), 999);
    discretize_precomputed(out.data(), column.data(), column.size(), model);
    return out;
  }

  Categories categories;
  DiscretizationModel model{};
};

TEST(Discretize, StandardizesByMeanAndSampleDeviation) {
  // Mean 3; squares 4 + 1 + 0 + 1 + 4 over 4.
  const Learned learned({5, 1, 3, 2, 4}, 5);
  EXPECT_EQ(learned.model.mean, 3);
  EXPECT_DOUBLE_EQ(learned.model.stddev, std::sqrt(2.5));
  EXPECT_THAT(learned.categories, ElementsAre(4, 0, 2, 1, 3));
  EXPECT_DOUBLE_EQ(learned.lower(0), -2 / std::sqrt(2.5));
  EXPECT_DOUBLE_EQ(learned.upper(0), -1 / std::sqrt(2.5));
  EXPECT_DOUBLE_EQ(learned.lower(4), 2 / std::sqrt(2.5));
}

TEST(Discretize, GivesEqualValuesOnePointBin) {
  const Learned learned({7, 7, 7}, 4);
  ASSERT_EQ(learned.model.num_intervals, 1u);
  EXPECT_EQ(learned.lower(0), 0);
  EXPECT_EQ(learned.upper(0), 0);
  EXPECT_EQ(learned.model.stddev, 0);
  EXPECT_THAT(learned.categories, Each(0));
  EXPECT_EQ(learned.moments(0)[4], 3);
}

TEST(Discretize, GivesASingleValueAnIntervalAndNoPoint) {
  const Learned learned({1, 2}, 2);
  ASSERT_EQ(learned.model.num_intervals, 2u);
  EXPECT_TRUE(std::isnan(learned.moments(0)[1]));
  EXPECT_LT(learned.lower(0), learned.upper(0));
  // Values between two single ones belong to the lower one.
  EXPECT_THAT(learned.apply({0, 1, 1.5, 1.999, 2, 3}), ElementsAre(0, 0, 0, 0, 1, 1));
}

TEST(Discretize, EndsTheLastOfFewValuesALittleAboveIt) {
  const Learned learned({1, 2, 3}, 9);
  ASSERT_EQ(learned.model.num_intervals, 3u);
  EXPECT_EQ(learned.lower(2), 1);
  EXPECT_EQ(learned.upper(2), 1 + 2e-9);
  EXPECT_THAT(learned.categories, ElementsAre(0, 1, 2));
}

TEST(Discretize, MakesOneBinFromTheLeastToTheGreatestValue) {
  // Mean 0, squares 4 + 0 + 4 over 2: deviation 2.
  const Learned learned({-2, 0, 2}, 1);
  ASSERT_EQ(learned.model.num_intervals, 1u);
  EXPECT_EQ(learned.lower(0), -1);
  EXPECT_EQ(learned.upper(0), 1);
  EXPECT_THAT(learned.categories, Each(0));
}

TEST(Discretize, CutsManyValuesAtEqualFrequencies) {
  Column column;
  for (int i = 11; i >= 0; --i) column.push_back(i * i);
  const Learned learned(column, 3);
  EXPECT_THAT(learned.categories, ElementsAre(2, 2, 2, 2, 1, 1, 1, 1, 0, 0, 0, 0));
  for (std::size_t bin = 0; bin < 3; ++bin) EXPECT_EQ(learned.moments(bin)[4], 4) << bin;
}

TEST(Discretize, KeepsARunOfEqualValuesInOneBin) {
  EXPECT_THAT(Learned({1, 1, 1, 1, 1, 2, 3, 4}, 2).categories, ElementsAre(0, 0, 0, 0, 0, 1, 1, 1));
}

TEST(Discretize, TakesTheLastValueWhereARunReachesTheEnd) {
  // Cuts at places 3 and 6; the second moves along the fives to the end, and the three nodes of
  // value 5 become one.
  const Learned learned({1, 2, 3, 5, 5, 5, 5, 5, 5}, 3);
  ASSERT_EQ(learned.model.num_intervals, 1u);
  EXPECT_EQ(learned.moments(0)[4], 9);
  EXPECT_EQ(learned.upper(0), (5 - learned.model.mean) / learned.model.stddev);
  EXPECT_THAT(learned.categories, Each(0));
}

TEST(Discretize, MergesCutsThatAreCloserThanABillionth) {
  // Deviation about 0.58: 1 and 1 + 1e-10 are distinct, but one bin; its place is the second's.
  const Learned learned({0, 0, 1, 1 + 1e-10}, 3);
  EXPECT_EQ(learned.model.num_intervals, 2u);
  EXPECT_EQ(learned.categories[2], 0);
  EXPECT_EQ(learned.categories[3], 1);
}

TEST(Discretize, NegatesTheSkewAndDividesItByAProductOfIntegers) {
  // One bin over -1, -1, 2: deviation sqrt(3), z turned is 1, 1, -2 by sqrt(3); the cubes sum to
  // -6 / 3^1.5 and their divisor is 2 * 1; the fourths sum to 18 / 9, over 3, minus 3.
  const Learned learned({-1, -1, 2}, 1);
  const Column moments = learned.moments(0);
  EXPECT_NEAR(moments[0], 0, 1e-15);
  EXPECT_NEAR(moments[1], 1, 1e-15);
  EXPECT_NEAR(moments[2], -3 / std::pow(3, 1.5), 1e-15);
  EXPECT_NEAR(moments[3], 18.0 / 27 - 3, 1e-15);
  EXPECT_EQ(moments[4], 3);
}

TEST(Discretize, IsTheSameWithOneThreadAndWithTwo) {
  Column column;
  for (int i = 0; i < 999; ++i) column.push_back(std::sin(i) * 100);
  omp_set_num_threads(1);
  const Learned one(column, 16);
  omp_set_num_threads(2);
  const Learned two(column, 16);
  EXPECT_EQ(one.categories, two.categories);
}

TEST(Discretize, NeedsABin) { EXPECT_THROW(Learned({1, 2}, 0), std::logic_error); }

TEST(Discretize, RefusesACountBeyondMemory) {
  double one = 1;
  unsigned short out = 0;
  EXPECT_THROW(discretize(&out, &one, std::numeric_limits<std::size_t>::max(), 2),
               std::bad_array_new_length);
}

TEST(DiscretizePrecomputed, RepeatsWhatWasLearned) {
  Column column;
  for (int i = 0; i < 500; ++i) column.push_back(std::cos(i * i) * i);
  const Learned learned(column, 12);
  EXPECT_EQ(learned.apply(column), learned.categories);
}

TEST(DiscretizePrecomputed, UsesTheScaleOfTheModelAndTheFirstBinThatFits) {
  double intervals[] = {-1, 0, 0, 0, 0, 1};
  const DiscretizationModel model{3, 3, intervals, nullptr, 10, 4};
  Column column = {-99, 6, 8, 10, 12, 14, 99};
  Categories out(column.size());
  discretize_precomputed(out.data(), column.data(), column.size(), model);
  EXPECT_THAT(out, ElementsAre(0, 0, 0, 1, 2, 2, 2));
}

TEST(DiscretizePrecomputedDeathTest, AValueInAGapEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // The zeroes make a point, and nothing is between it and 5.
  const Learned learned({0, 0, 5, 6}, 3);
  EXPECT_DEATH(learned.apply({2}), "QZDATA.*discretize_precomputed.*Assertion `found' failed");
}

}  // namespace
