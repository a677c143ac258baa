#include "QZ/comb/subsets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

/// All k-subsets of {0, ..., n - 1}, ascending inside, in descending lexicographic order.
std::vector<std::vector<unsigned>> all_subsets(unsigned n, unsigned k) {
  std::vector<std::vector<unsigned>> subsets;
  for (unsigned mask = 0; mask < 1u << n; ++mask) {
    std::vector<unsigned> members;
    for (unsigned x = 0; x < n; ++x) {
      if (mask >> x & 1) members.push_back(x);
    }
    if (members.size() == k) subsets.push_back(members);
  }
  std::sort(subsets.rbegin(), subsets.rend());
  return subsets;
}

TEST(Subsets, AreNumberedInDescendingLexicographicOrder) {
  for (unsigned n = 0; n <= 9; ++n) {
    for (unsigned k = 1; k <= n; ++k) {
      const auto subsets = all_subsets(n, k);
      ASSERT_EQ(QZ::subset_count(n, k), subsets.size());
      for (unsigned long rank = 0; rank < subsets.size(); ++rank) {
        std::vector<unsigned> members(k);
        QZ::unrank(n, k, rank, members.data());
        EXPECT_EQ(members, subsets[rank]) << "n " << n << " rank " << rank;
        EXPECT_EQ(QZ::rank_subset(n, k, members.data()), rank);
      }
    }
  }
}

TEST(Subsets, OneByOneFallFromTheLastElement) {
  for (unsigned long rank = 0; rank < 4; ++rank) {
    unsigned char member;
    QZ::unrank(4, 1, rank, &member);
    EXPECT_EQ(member, 3 - rank);
  }
}

TEST(Subsets, PairsStepInTheOrderOfTheirNumbers) {
  for (unsigned long n : {2ul, 3ul, 7ul, 40ul}) {
    QZ::ElementPair pair = QZ::unrank_pair(n, 0);
    for (unsigned long rank = 0; rank < n * (n - 1) / 2; ++rank, pair = QZ::next_pair(n, pair)) {
      const QZ::ElementPair direct = QZ::unrank_pair(n, rank);
      EXPECT_EQ(pair.low, direct.low);
      EXPECT_EQ(pair.high, direct.high);
      EXPECT_EQ(QZ::rank_pair(n, pair.low, pair.high), rank);
      EXPECT_EQ(QZ::rank_pair(n, pair.high, pair.low), rank);
    }
  }
}

TEST(Subsets, HugePairNumbersAreExact) {
  // Above 2^53, where a floating square root alone would miss.
  const unsigned long n = 4'000'000'000ul;
  const unsigned long count = QZ::subset_count(n, 2);
  for (unsigned long rank : {count - 1, count - 2, count / 2, count / 3 + 1, (1ul << 61) + 1}) {
    const QZ::ElementPair pair = QZ::unrank_pair(n, rank);
    EXPECT_LT(pair.low, pair.high);
    EXPECT_LT(pair.high, n);
    EXPECT_EQ(QZ::rank_pair(n, pair.low, pair.high), rank);
  }
  for (unsigned long c : {94'906'267ul, 3'037'000'500ul}) {
    const unsigned long first = QZ::subset_count(c, 2);
    EXPECT_EQ(QZ::unrank_pair(n, first).low, n - 1 - c);
    EXPECT_EQ(QZ::unrank_pair(n, first - 1).low, n - c);
  }
}

TEST(Subsets, HugeNumbersOfLargerSubsetsAreExact) {
  const unsigned long n = 1000;
  const unsigned long count = QZ::subset_count(n, 6);
  ASSERT_EQ(count, 1368173298991500ul);
  for (unsigned long rank : {0ul, 1ul, count / 7, count / 2 + 1, count - 1}) {
    unsigned long members[6];
    QZ::unrank(n, 6, rank, members);
    EXPECT_TRUE(std::is_sorted(members, members + 6));
    EXPECT_EQ(QZ::rank_subset(n, 6, members), rank);
  }
}

TEST(Subsets, CountsSaturateAtTheWord) {
  EXPECT_EQ(QZ::subset_count(67, 33), 14226520737620288370ul);
  EXPECT_EQ(QZ::subset_count(68, 34), ~0ul);
  EXPECT_EQ(QZ::subset_count(3, 4), 0ul);
  EXPECT_EQ(QZ::subset_count(0, 0), 1ul);
}

}  // namespace
