#include "QZ/comb/counting.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/index_types.h"

namespace {

using QZ::binom;
using QZ::stirling2;

template <class idx_t>
class Counting : public ::testing::Test {};
TYPED_TEST_SUITE(Counting, qz_test::IndexTypes);

TYPED_TEST(Counting, BinomialsFollowPascalsTriangle) {
  std::vector<std::vector<double>> triangle(31, std::vector<double>(32, 0));
  for (int n = 0; n <= 30; ++n) {
    triangle[n][0] = 1;
    for (int k = 1; k <= n; ++k) triangle[n][k] = triangle[n - 1][k - 1] + triangle[n - 1][k];
    for (int k = 0; k <= 31; ++k) {
      const auto result = binom<TypeParam, double>(static_cast<TypeParam>(n), k);
      EXPECT_EQ(result, triangle[n][k]) << n << " over " << k;
    }
  }
}

TYPED_TEST(Counting, BinomialsInFloatAreExactWhileSmall) {
  EXPECT_EQ((binom<TypeParam, float>(5, 2)), 10.0f);
  EXPECT_EQ((binom<TypeParam, float>(2, 5)), 0.0f);
  EXPECT_EQ((binom<TypeParam, float>(0, 0)), 1.0f);
  EXPECT_EQ((binom<TypeParam, float>(12, 6)), 924.0f);
}

TYPED_TEST(Counting, IntegerBinomialsAreExactAtTheEndsOnly) {
  EXPECT_EQ((binom<TypeParam, TypeParam>(5, 0)), 1);
  EXPECT_EQ((binom<TypeParam, TypeParam>(5, 5)), 1);
  EXPECT_EQ((binom<TypeParam, TypeParam>(5, 1)), 5);
  EXPECT_EQ((binom<TypeParam, TypeParam>(5, 4)), 5);
  EXPECT_EQ((binom<TypeParam, TypeParam>(2, 5)), 0);
  // log 4 - log 1 = 1.38 is cut to 1; adding log 5 - log 2 = 0.91 gives 1.91, cut to 1; exp(1)
  // = 2.7.
  EXPECT_EQ((binom<TypeParam, TypeParam>(5, 2)), 3);
}

TYPED_TEST(Counting, StirlingNumbersFollowTheirRecurrence) {
  std::vector<std::vector<double>> table(13, std::vector<double>(14, 0));
  table[0][0] = 1;
  for (int n = 1; n <= 12; ++n) {
    for (int k = 1; k <= n; ++k) table[n][k] = k * table[n - 1][k] + table[n - 1][k - 1];
    for (int k = 0; k <= n; ++k) {
      const auto blocks = static_cast<TypeParam>(k);
      EXPECT_EQ((stirling2<TypeParam, double>(n, blocks)), table[n][k]) << n << " into " << k;
    }
  }
}

TYPED_TEST(Counting, StirlingNumbersOfSmallSetsAreAsCountedByHand) {
  EXPECT_EQ((stirling2<TypeParam, double>(0, 0)), 1);
  EXPECT_EQ((stirling2<TypeParam, double>(5, 0)), 0);
  EXPECT_EQ((stirling2<TypeParam, double>(5, 2)), 15);
  EXPECT_EQ((stirling2<TypeParam, double>(5, 4)), 10);
  EXPECT_EQ((stirling2<TypeParam, double>(5, 3)), 25);
  EXPECT_EQ((stirling2<TypeParam, float>(5, 3)), 25);
  EXPECT_EQ((stirling2<TypeParam, double>(3, 5)), 0);
}

TEST(StirlingDeathTest, CancellationToANegativeSumEndsTheProcess) {
  // In float the alternating sum loses all its digits.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto cancelling = [] { return stirling2<unsigned int, float>(24, 22); };
  EXPECT_DEATH(cancelling(), "QZCOMB:[0-9]+:.*Assertion `sum>=0' failed");
}

TYPED_TEST(Counting, CombListsAllSubsetsInLexicographicOrder) {
  constexpr TypeParam n = 6;
  for (TypeParam p = 2; p <= n; ++p) {
    std::vector<TypeParam> expected(p);
    for (TypeParam i = 0; i < p; ++i) expected[i] = i + 1;
    const auto count = static_cast<TypeParam>(binom<TypeParam, double>(n, p));
    for (TypeParam L = 1; L <= count; ++L) {
      std::vector<TypeParam> c(p);
      QZ::comb<TypeParam>(n, p, L, c.data());
      EXPECT_EQ(c, expected) << "p " << int(p) << " L " << int(L);
      std::size_t i = p;
      while (i > 0 && expected[i - 1] == n - p + i) --i;
      if (i == 0) continue;
      ++expected[i - 1];
      for (; i < p; ++i) expected[i] = expected[i - 1] + 1;
    }
  }
}

TYPED_TEST(Counting, CombOfTwoOutOfFour) {
  TypeParam c[2];
  QZ::comb<TypeParam>(4, 2, 1, c);
  EXPECT_EQ(c[0], 1);
  EXPECT_EQ(c[1], 2);
  QZ::comb<TypeParam>(4, 2, 6, c);
  EXPECT_EQ(c[0], 3);
  EXPECT_EQ(c[1], 4);
}

TYPED_TEST(Counting, CombOfOneElementCountsFromTheWordInFront) {
  TypeParam c[2] = {0, 0};
  QZ::comb<TypeParam>(9, 1, 7, c + 1);
  EXPECT_EQ(c[1], 7);
}

TEST(Comb, RunningCountPassesTheRangeOfANarrowTypeUnharmed) {
  // The pairs that begin with 1 to 10 number 29 + 28 + ... + 20 = 245, those with 11 another 19.
  unsigned char c[2];
  QZ::comb<unsigned char>(30, 2, 250, c);
  EXPECT_EQ(c[0], 11);
  EXPECT_EQ(c[1], 11 + 5);
}

TEST(CombDeathTest, AsksForNoMoreSubsetsThanThereAre) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  unsigned int c[2];
  EXPECT_DEATH(QZ::comb<unsigned int>(4, 2, 7, c), "QZCOMB:[0-9]+:.*Assertion `R!=0' failed");
}

}  // namespace
