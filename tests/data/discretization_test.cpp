#include "QZ/data/discretization.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <random>
#include <utility>

namespace {

using testing::Each;
using testing::ElementsAre;
using Column = std::vector<double>;
using Categories = std::vector<unsigned short>;

/// A model with arrays of its own, and the categories that came with it.
struct Learned {
  std::size_t bins = 0;
  Column intervals;
  Column moments;
  double mean = 0;
  double stddev = 0;
  Categories categories;
};

Learned learned(const Column& in, std::size_t bins) {
  Learned result;
  result.categories.assign(in.size(), 999);
  const DiscretizationModel model =
      QZ::discretize(result.categories.data(), in.data(), in.size(), bins);
  EXPECT_EQ(model.num_intervals, model.num_moments);
  result.bins = model.num_intervals;
  result.intervals.assign(model.intervals, model.intervals + 2 * model.num_intervals);
  result.moments.assign(model.moments, model.moments + 5 * model.num_moments);
  result.mean = model.mean;
  result.stddev = model.stddev;
  delete[] model.intervals;
  delete[] model.moments;
  return result;
}

/// Categories under a model whose bins are given on the scale of the values.
Categories applied(Column intervals, const Column& in) {
  const std::size_t bins = intervals.size() / 2;
  const DiscretizationModel model{bins, bins, intervals.data(), nullptr, 0, 1};
  Categories out(in.size());
  QZ::discretize_precomputed(out.data(), in.data(), in.size(), model);
  return out;
}

TEST(Discretization, EqualValuesMakeOnePointBin) {
  const Learned model = learned({7, 7, 7}, 4);
  EXPECT_EQ(model.bins, 1u);
  EXPECT_THAT(model.intervals, ElementsAre(0, 0));
  EXPECT_THAT(model.categories, Each(0));
  EXPECT_EQ(model.mean, 7);
  EXPECT_EQ(model.stddev, 0);
  EXPECT_EQ(model.moments[4], 3);
}

TEST(Discretization, FewDistinctValuesHaveABinEach) {
  const Learned model = learned({3, 1, 2, 1, 3}, 3);
  EXPECT_THAT(model.categories, ElementsAre(2, 0, 1, 0, 2));
  EXPECT_EQ(model.bins, 3u);
  // The ends of the bins with two equal values are points; that of one value is not.
  EXPECT_EQ(model.intervals[0], model.intervals[1]);
  EXPECT_LT(model.intervals[2], model.intervals[3]);
  EXPECT_EQ(model.intervals[4], model.intervals[5]);
}

TEST(Discretization, TheLastOfFewValuesEndsALittleAboveIt) {
  const Learned model = learned({1, 2}, 2);
  EXPECT_EQ(model.intervals[3], model.intervals[2] + 2e-9);
  EXPECT_TRUE(std::isnan(model.moments[1])) << "a single value has no variance";
  EXPECT_THAT(model.categories, ElementsAre(0, 1));
}

TEST(Discretization, OneBinTakesAllValues) {
  const Learned model = learned({4, 1, 3, 2}, 1);
  EXPECT_EQ(model.bins, 1u);
  EXPECT_THAT(model.categories, Each(0));
  EXPECT_LT(model.intervals[0], 0);
  EXPECT_GT(model.intervals[1], 0);
}

TEST(Discretization, ManyValuesAreCutAtEqualFrequencies) {
  Column in;
  for (int i = 0; i < 12; ++i) in.push_back(i * i);
  const Learned model = learned(in, 3);
  EXPECT_THAT(model.categories, ElementsAre(0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2, 2));
  EXPECT_THAT((std::vector<double>{model.moments[4], model.moments[9], model.moments[14]}),
              Each(4));
}

TEST(Discretization, ARunOfEqualValuesStaysInOneBin) {
  const Learned model = learned({1, 1, 1, 1, 1, 2, 3, 4}, 2);
  EXPECT_THAT(model.categories, ElementsAre(0, 0, 0, 0, 0, 1, 1, 1));
}

TEST(Discretization, ARunUpToTheEndOfTheColumnIsHarmless) {
  const Learned model = learned({1, 2, 5, 5, 5, 5, 5, 5}, 2);
  EXPECT_THAT(model.categories, ElementsAre(0, 0, 0, 0, 0, 0, 0, 0));
  // The second bin begins at place 4 and its run reaches the end: only one bin is left after
  // merging.
  const Learned three = learned({1, 5, 5, 5, 5, 5, 5, 9}, 3);
  EXPECT_EQ(three.categories.front(), 0);
  EXPECT_EQ(three.categories.back(), three.bins - 1);
}

TEST(Discretization, NoBinsAreAnErrorAndNoValuesAreNot) {
  EXPECT_THROW(learned({1, 2}, 0), std::logic_error);
  EXPECT_EQ(learned({}, 3).bins, 0u);
}

TEST(DiscretizePrecomputed, ValuesOutsideGoToTheOuterBins) {
  EXPECT_THAT(applied({0, 1, 1, 2}, {-5, 0, 0.5, 1, 1.5, 2, 9}), ElementsAre(0, 0, 0, 1, 1, 1, 1));
}

TEST(DiscretizePrecomputed, APointBinHoldsItsValueAlone) {
  EXPECT_THAT(applied({0, 1, 1, 1, 1, 2}, {0.5, 1, std::nextafter(1.0, 2.0)}),
              ElementsAre(0, 1, 2));
}

TEST(DiscretizePrecomputed, TheFirstBinThatFitsIsTaken) {
  EXPECT_THAT(applied({0, 3, 1, 2, 0, 5}, {1.5, 2.5, 4}), ElementsAre(0, 0, 2));
  EXPECT_THAT(applied({0, 1, 2, 3, 1, 2, 9, 9}, {1.5}), ElementsAre(2));
}

TEST(DiscretizePrecomputed, UsesTheScaleOfTheModel) {
  double intervals[] = {-1, 0, 0, 1};
  const double in[] = {8, 12};
  unsigned short out[2];
  QZ::discretize_precomputed(out, in, 2, {2, 2, intervals, nullptr, 10, 4});
  EXPECT_THAT(out, ElementsAre(0, 1));
  QZ::discretize_precomputed(out, in, 2, {2, 2, intervals, nullptr, 11, 0});
  EXPECT_THAT(out, ElementsAre(0, 1));
}

TEST(DiscretizePrecomputedDeathTest, AValueInAGapEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const char* claim = "QZDATA.*discretize_precomputed.*Assertion `found' failed";
  EXPECT_DEATH(applied({0, 0, 1, 2}, {0.5}), claim);
  EXPECT_DEATH(applied({0, 1}, {std::nan("")}), claim);
  EXPECT_DEATH(applied({}, {1}), claim);
}

/// The bin of a value by trying one after the other.
std::size_t plain_bin(const Column& intervals, double z) {
  const std::size_t bins = intervals.size() / 2;
  if (z < intervals[0]) return 0;
  if (z >= intervals.back()) return bins - 1;
  for (std::size_t i = 0; i < bins; ++i) {
    const double low = intervals[2 * i], high = intervals[2 * i + 1];
    if (low == high ? z == low : low <= z && z < high) return i;
  }
  return bins;
}

TEST(BinSearch, AgreesWithTryingEveryBin) {
  std::mt19937 rng(5);
  for (int trial = 0; trial < 2000; ++trial) {
    Column intervals(2 * (1 + rng() % 6));
    for (double& bound : intervals) bound = static_cast<double>(rng() % 8);
    if (trial % 2 == 0) std::sort(intervals.begin(), intervals.end());
    const DiscretizationModel model{intervals.size() / 2, 0, intervals.data(), nullptr, 0, 1};
    const QZ::BinSearch search(model);
    for (double z = -1; z < 9; z += 0.25) EXPECT_EQ(search(z), plain_bin(intervals, z));
  }
}

struct PlainModel {
  Column intervals;
  Column counts;
  Categories categories;
};

/// The steps one by one, with lists and searches from end to end.
PlainModel plain_discretize(const Column& in, std::size_t bins) {
  const QZ::Moments moments = QZ::estimateMoments(in.data(), in.size());
  const double sd = std::sqrt(moments.variance);
  const auto standardized = [&](double x) { return (x - moments.mean) / (sd == 0 ? 1 : sd); };
  Column a;
  for (const double x : in) a.push_back(standardized(x));
  std::sort(a.begin(), a.end());
  const std::size_t n = a.size();
  const std::size_t distinct =
      static_cast<std::size_t>(std::unique(a.begin(), a.end()) - a.begin());
  for (std::size_t i = 0; i < n; ++i) a[i] = standardized(in[i]);
  std::sort(a.begin(), a.end());

  std::list<std::pair<std::size_t, double>> nodes{{0, a[0]}};
  if (distinct <= bins) {
    for (std::size_t i = 1; i < n; ++i) {
      if (a[i] != a[i - 1]) nodes.emplace_back(i, a[i]);
    }
    nodes.emplace_back(n, a[n - 1] + 2e-9);
  } else {
    std::size_t start = 0;
    for (std::size_t b = bins; b != 1; --b) {
      std::size_t position = start + (n - start) / b;
      while (position < n && a[position] == a[start]) ++position;
      nodes.emplace_back(position, position == n ? a[n - 1] : a[position]);
      start = position;
    }
    nodes.emplace_back(n, a[n - 1]);
  }
  for (auto node = nodes.begin(); std::next(node) != nodes.end();) {
    const bool close = std::abs(node->second - std::next(node)->second) < 1e-9;
    node = close ? nodes.erase(node) : std::next(node);
  }
  PlainModel model;
  for (auto node = nodes.begin(); std::next(node) != nodes.end(); ++node) {
    const auto next = std::next(node);
    const QZ::Moments bin = QZ::estimateMoments(a.data() + node->first, next->first - node->first);
    model.intervals.push_back(node->second);
    model.intervals.push_back(bin.variance == 0 ? node->second : next->second);
    model.counts.push_back(static_cast<double>(bin.count));
  }
  for (const double x : in) {
    model.categories.push_back(
        static_cast<unsigned short>(plain_bin(model.intervals, standardized(x))));
  }
  return model;
}

TEST(Discretization, AgreesWithThePlainStepsOnManyColumns) {
  std::mt19937 rng(17);
  int compared = 0;
  for (int trial = 0; trial < 3000; ++trial) {
    omp_set_num_threads(1 + trial % 2);
    const std::size_t n = 2 + rng() % 60;
    const unsigned int levels = 1 + rng() % 40;
    const std::size_t bins = 1 + rng() % 12;
    Column in;
    for (std::size_t i = 0; i < n; ++i) {
      in.push_back(trial % 3 == 0 ? std::exp(rng() % 1000 * 0.01) : (rng() % levels) * 0.1);
    }
    const PlainModel plain = plain_discretize(in, bins);
    // A value in a gap would end the process.
    const std::size_t found = plain.intervals.size() / 2;
    if (std::count(plain.categories.begin(), plain.categories.end(), found) > 0) continue;
    ++compared;
    const Learned model = learned(in, bins);
    ASSERT_EQ(model.intervals, plain.intervals);
    ASSERT_EQ(model.categories, plain.categories);
    for (std::size_t i = 0; i < found; ++i) ASSERT_EQ(model.moments[5 * i + 4], plain.counts[i]);
  }
  omp_set_num_threads(2);
  EXPECT_GT(compared, 1000);
}

TEST(Discretization, WritesTheMomentsOfEachBinInOrder) {
  const Learned model = learned({1, 2, 3, 10, 20, 40}, 2);
  ASSERT_EQ(model.bins, 2u);
  Column slice;
  for (const double x : {10, 20, 40}) slice.push_back((x - model.mean) / model.stddev);
  const QZ::Moments bin = QZ::estimateMoments(slice.data(), 3);
  EXPECT_THAT(Column(model.moments.begin() + 5, model.moments.end()),
              ElementsAre(bin.mean, bin.variance, bin.skew, bin.kurtosis, 3));
}

}  // namespace
