#include "QZ/comb/permutations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <set>
#include <vector>

#include "support/index_types.h"

namespace {

using QZ::getPermutation;
using QZ::PermutationList;

template <class T>
std::vector<int> row_of(std::size_t n, std::size_t pid) {
  const T* row = getPermutation<T>(n, pid);
  return std::vector<int>(row, row + n);
}

/// The elements in order of their positions.
std::vector<int> sequence_of(const std::vector<int>& row) {
  std::vector<int> sequence(row.size());
  for (std::size_t e = 0; e < row.size(); ++e) sequence[row[e] - 1] = static_cast<int>(e) + 1;
  return sequence;
}

template <class T>
class Permutations : public ::testing::Test {};
TYPED_TEST_SUITE(Permutations, qz_test::IndexTypes);

TYPED_TEST(Permutations, OfThreeElementsComeByAdjacentSwaps) {
  const std::vector<std::vector<int>> sequences = {{1, 2, 3}, {1, 3, 2}, {3, 1, 2},
                                                   {3, 2, 1}, {2, 3, 1}, {2, 1, 3}};
  for (std::size_t pid = 0; pid < 6; ++pid) {
    EXPECT_EQ(sequence_of(row_of<TypeParam>(3, pid)), sequences[pid]) << pid;
  }
}

TYPED_TEST(Permutations, EachAppearsOnceAndDiffersFromTheLastByOneAdjacentSwap) {
  std::size_t factorial = 1;
  for (std::size_t n = 1; n <= 7; ++n) {
    factorial *= n;
    std::set<std::vector<int>> seen;
    std::vector<int> last;
    for (std::size_t pid = 0; pid < factorial; ++pid) {
      const std::vector<int> now = sequence_of(row_of<TypeParam>(n, pid));
      EXPECT_TRUE(seen.insert(now).second);
      EXPECT_TRUE(std::set<int>(now.begin(), now.end()).size() == n);
      if (pid > 0) {
        const auto differs = std::mismatch(now.begin(), now.end(), last.begin());
        std::iter_swap(differs.second, differs.second + 1);
        EXPECT_EQ(last, now);
      } else {
        EXPECT_TRUE(std::is_sorted(now.begin(), now.end()));
      }
      last = now;
    }
  }
}

TYPED_TEST(Permutations, OfOneElementIsTheRowOfOne) {
  EXPECT_EQ(row_of<TypeParam>(1, 0), std::vector<int>{1});
}

TYPED_TEST(Permutations, ConvertGivesTheSequenceOfElements) {
  const auto& list = PermutationList<4, TypeParam>::getInstance();
  ASSERT_EQ(list.size(), 24u);
  for (std::size_t pid = 0; pid < 24; ++pid) {
    std::vector<TypeParam> out(4);
    TypeParam* to = out.data();
    list.convert(to, getPermutation<TypeParam>(4, pid));
    EXPECT_EQ(std::vector<int>(out.begin(), out.end()), sequence_of(row_of<TypeParam>(4, pid)));
  }
}

TYPED_TEST(Permutations, OfNineElementsAreAllThere) {
  std::set<std::vector<int>> seen;
  for (std::size_t pid = 0; pid < 362880; ++pid) seen.insert(row_of<TypeParam>(9, pid));
  EXPECT_EQ(seen.size(), 362880u);
}

TEST(Permutations, AListIsMadeOnce) {
  EXPECT_EQ(getPermutation<unsigned int>(5, 0), getPermutation<unsigned int>(5, 0));
  EXPECT_EQ((&PermutationList<5, unsigned int>::getInstance()),
            (&PermutationList<5, unsigned int>::getInstance()));
  EXPECT_EQ(getPermutation<unsigned int>(5, 7), getPermutation<unsigned int>(5, 0) + 35);
}

TEST(Permutations, ManyThreadsMayComeFirst) {
  std::vector<const unsigned short*> found(64);
#pragma omp parallel for num_threads(2)
  for (int i = 0; i < 64; ++i) found[i] = getPermutation<unsigned short>(8, 3);
  EXPECT_EQ(std::set<const unsigned short*>(found.begin(), found.end()).size(), 1u);
}

TEST(Permutations, TheSizeOfTheLargestListIsKnownWithoutBuildingIt) {
  EXPECT_EQ((PermutationList<13, unsigned char>::count), 6227020800ul);
}

TEST(PermutationsDeath, StopOutsideTheirRange) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(getPermutation<unsigned int>(0, 0), "QZCOMB.*Assertion `false' failed");
  EXPECT_DEATH(getPermutation<unsigned int>(14, 0), "QZCOMB.*Assertion `false' failed");
}

}  // namespace
