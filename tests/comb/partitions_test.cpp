#include "QZ/comb/partitions.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <map>
#include <set>
#include <vector>

#include "support/index_types.h"

namespace {

using QZ::getUnorderedkPartition;
using QZ::UnorderedkPartitionList;

template <class T>
std::vector<int> row_of(std::size_t n, std::size_t k, std::size_t pid) {
  const T* row = getUnorderedkPartition<T>(n, k, pid);
  return std::vector<int>(row, row + n);
}

/// The number of partitions by the two-term recurrence.
unsigned long partition_count(std::size_t n, std::size_t k) {
  if (n == k) return 1;
  if (k == 0 || k > n) return 0;
  return k * partition_count(n - 1, k) + partition_count(n - 1, k - 1);
}

/// The same partition with its blocks numbered in order of first appearance.
std::vector<int> with_plain_numbers(const std::vector<int>& row) {
  std::map<int, int> number;
  std::vector<int> plain;
  for (int block : row) {
    plain.push_back(number.try_emplace(block, static_cast<int>(number.size()) + 1).first->second);
  }
  return plain;
}

template <class T>
class Partitions : public ::testing::Test {};
TYPED_TEST_SUITE(Partitions, qz_test::IndexTypes);

TYPED_TEST(Partitions, EachAppearsOnceWithAllItsBlocksFilled) {
  for (std::size_t n = 1; n <= 8; ++n) {
    for (std::size_t k = 1; k <= n; ++k) {
      const std::size_t count = partition_count(n, k);
      std::set<std::vector<int>> seen;
      for (std::size_t pid = 0; pid < count; ++pid) {
        const std::vector<int> row = row_of<TypeParam>(n, k, pid);
        const std::set<int> blocks(row.begin(), row.end());
        ASSERT_EQ(blocks.size(), k);
        ASSERT_EQ(*blocks.begin(), 1);
        ASSERT_EQ(*blocks.rbegin(), static_cast<int>(k));
        EXPECT_TRUE(seen.insert(with_plain_numbers(row)).second) << n << " " << k << " " << pid;
      }
    }
  }
}

TYPED_TEST(Partitions, OfFiveElementsIntoThreeBlocksStartWithTheTailHoldingBlocksOpen) {
  ASSERT_EQ((UnorderedkPartitionList<5, 3, TypeParam>::getInstance().size()), 25u);
  EXPECT_EQ(row_of<TypeParam>(5, 3, 0), (std::vector<int>{1, 1, 1, 2, 3}));
  // Element 3 is the largest that can move; it goes up and frees element 4, which held block 2.
  EXPECT_EQ(row_of<TypeParam>(5, 3, 1), (std::vector<int>{1, 1, 2, 1, 3}));
  EXPECT_EQ(row_of<TypeParam>(5, 3, 2), (std::vector<int>{1, 1, 2, 3, 1}));
  EXPECT_EQ(row_of<TypeParam>(5, 3, 3), (std::vector<int>{1, 1, 2, 3, 3}));
  EXPECT_EQ(row_of<TypeParam>(5, 3, 4), (std::vector<int>{1, 1, 2, 3, 2}));
}

TYPED_TEST(Partitions, OfThreeElementsIntoTwoBlocks) {
  EXPECT_EQ(row_of<TypeParam>(3, 2, 0), (std::vector<int>{1, 1, 2}));
  // Element 2 joins element 3 in block 2, and frees it without sending it to block 1.
  EXPECT_EQ(row_of<TypeParam>(3, 2, 1), (std::vector<int>{1, 2, 2}));
  EXPECT_EQ(row_of<TypeParam>(3, 2, 2), (std::vector<int>{1, 2, 1}));
}

TYPED_TEST(Partitions, IntoOneBlockAreOneRow) {
  EXPECT_EQ((UnorderedkPartitionList<7, 1, TypeParam>::getInstance().size()), 1u);
  EXPECT_EQ(row_of<TypeParam>(7, 1, 0), std::vector<int>(7, 1));
}

TYPED_TEST(Partitions, IntoSingleElementsAreOneRow) {
  EXPECT_EQ((UnorderedkPartitionList<6, 6, TypeParam>::getInstance().size()), 1u);
  EXPECT_EQ(row_of<TypeParam>(6, 6, 0), (std::vector<int>{1, 2, 3, 4, 5, 6}));
}

TYPED_TEST(Partitions, ConvertCopiesTheRow) {
  const auto& list = UnorderedkPartitionList<4, 2, TypeParam>::getInstance();
  std::vector<TypeParam> out(4);
  TypeParam* to = out.data();
  list.convert(to, getUnorderedkPartition<TypeParam>(4, 2, 5));
  EXPECT_EQ(std::vector<int>(out.begin(), out.end()), row_of<TypeParam>(4, 2, 5));
}

TEST(Partitions, AllWidthsWalkInTheSameOrder) {
  for (std::size_t pid = 0; pid < partition_count(8, 4); ++pid) {
    EXPECT_EQ(row_of<unsigned char>(8, 4, pid), row_of<unsigned long>(8, 4, pid));
  }
}

/// A list that is not built, for any number of blocks.
class Unbuilt final : public QZ::PartitionWalk<15, unsigned short> {
 public:
  explicit Unbuilt(unsigned long k) : PartitionWalk(k) {}
};

TEST(Partitions, SizesAreExactUpToTheLargestLists) {
  for (unsigned long k = 1; k <= 15; ++k) EXPECT_EQ(Unbuilt(k).size(), partition_count(15, k));
}

TEST(Partitions, OfFifteenElementsAreWithinReach) {
  for (std::size_t k : {1ul, 2ul, 3ul, 13ul, 14ul, 15ul}) {
    const std::size_t last = partition_count(15, k) - 1;
    const std::vector<int> row = row_of<unsigned short>(15, k, last);
    EXPECT_EQ(std::set<int>(row.begin(), row.end()).size(), k);
  }
}

TEST(Partitions, ManyThreadsMayComeFirst) {
  std::set<const unsigned int*> found;
#pragma omp parallel for num_threads(2)
  for (int i = 0; i < 64; ++i) {
    const unsigned int* row = getUnorderedkPartition<unsigned int>(9, 4, 3);
#pragma omp critical
    found.insert(row);
  }
  EXPECT_EQ(found.size(), 1u);
}

TEST(PartitionsDeath, StopOutsideTheirRange) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const char* text = "QZCOMB.*Assertion `false' failed";
  EXPECT_DEATH(getUnorderedkPartition<unsigned int>(4, 5, 0), text);
  EXPECT_DEATH(getUnorderedkPartition<unsigned int>(4, 0, 0), text);
  EXPECT_DEATH(getUnorderedkPartition<unsigned int>(0, 0, 0), text);
  EXPECT_DEATH(getUnorderedkPartition<unsigned int>(16, 3, 0), text);
}

TEST(PartitionsDeath, OfMoreElementsThanTheTypeHasBitsStop) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(getUnorderedkPartition<unsigned char>(9, 2, 0),
               "QZCOMB.*Assertion `n<=sizeof\\(T\\)\\*8' failed");
}

/// Claims one object less than there are.
class ShortList final : public QZ::PartitionWalk<4, unsigned int> {
 public:
  ShortList() : PartitionWalk(2) {}
  unsigned long size() const override { return 6; }
};

TEST(PartitionsDeath, AWalkBeyondTheSizeStops) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(ShortList().construct(), "QZCOMB.*Assertion `pid<N' failed");
}

/// An element has left a block empty, and element 1 is the only one that could fill it.
class NothingActive final : public QZ::PartitionWalk<3, unsigned int> {
 public:
  NothingActive() : PartitionWalk(2) {}
  void break_down() {
    initPartition();
    old_block = 2;
    largest_active = 1;
    put_all_into_block_one();
    transferOther(3);
  }

 private:
  void put_all_into_block_one() {
    for (unsigned e = 0; e < 3; ++e) current[e] = 1;
    inverse[0] = 7;
    inverse[1] = 0;
  }
};

TEST(PartitionsDeath, TheLastActiveElementCannotBeGivenUp) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(NothingActive().break_down(), "QZCOMB.*Assertion `largest_active>0' failed");
}

}  // namespace
