#include "QZ/comb/sparse_uint.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <sstream>
#include <utility>
#include <vector>

#include "QZ/comb/subsets.h"

namespace {

using QZ::sparse_uint_t;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using wide_t = unsigned __int128;

sparse_uint_t with_bits(std::initializer_list<unsigned long> bits) {
  sparse_uint_t x;
  for (unsigned long bit : bits) x.p2x(bit);
  return x;
}

sparse_uint_t from_wide(wide_t v) {
  sparse_uint_t x;
  for (unsigned long bit = 0; bit < 128; ++bit) {
    if (v >> bit & 1) x.p2x(bit);
  }
  return x;
}

wide_t to_wide(const sparse_uint_t& x) {
  wide_t v = 0;
  for (unsigned long bit : x.positions()) v |= wide_t(1) << bit;
  return v;
}

std::string text(const sparse_uint_t& x) {
  std::ostringstream out;
  out << x;
  return out.str();
}

TEST(SparseUint, HoldsThePositionsOfTheOneBits) {
  EXPECT_THAT(sparse_uint_t().positions(), IsEmpty());
  EXPECT_THAT(sparse_uint_t(0).positions(), IsEmpty());
  EXPECT_THAT(sparse_uint_t(11).positions(), ElementsAre(0, 1, 3));
  EXPECT_EQ(sparse_uint_t(~0ul).positions().size(), 64u);
}

TEST(SparseUint, PowersOfTwoCarry) {
  sparse_uint_t x = with_bits({3, 4, 5});
  x.p2x(3);
  EXPECT_THAT(x.positions(), ElementsAre(6));
  sparse_uint_t y = with_bits({0});
  y.p2x(1);
  EXPECT_THAT(y.positions(), ElementsAre(0, 1));
  y.p2x(1);
  EXPECT_THAT(y.positions(), ElementsAre(0, 2));
}

TEST(SparseUint, SubtractionBorrowsARunOfOnes) {
  sparse_uint_t x = with_bits({10});
  x -= with_bits({3});
  EXPECT_THAT(x.positions(), ElementsAre(3, 4, 5, 6, 7, 8, 9));
}

TEST(SparseUint, SubtractionStopsAtZero) {
  sparse_uint_t x(1);
  x -= sparse_uint_t(2);
  EXPECT_THAT(x.positions(), IsEmpty());
  sparse_uint_t y(5);
  y -= y;
  EXPECT_THAT(y.positions(), IsEmpty());
}

TEST(SparseUint, AddsItself) {
  sparse_uint_t x(7);
  x += x;
  EXPECT_EQ(x.to_uint64(), 14u);
}

TEST(SparseUint, ProductsByZeroOneAndOfZeroAndOne) {
  sparse_uint_t x(5);
  x *= 3;
  EXPECT_THAT(x.positions(), ElementsAre(0, 1, 2, 3));
  x *= 1;
  EXPECT_EQ(x.to_uint64(), 15u);
  x *= 0;
  EXPECT_EQ(x.to_uint64(), 0u);
  x *= 12;
  EXPECT_EQ(x.to_uint64(), 0u);
  x = 1;
  x *= 12;
  EXPECT_EQ(x.to_uint64(), 12u);
}

TEST(SparseUint, ShiftLosesTheLowBits) {
  sparse_uint_t x = with_bits({0, 2, 5, 900});
  x >>= 0;
  EXPECT_THAT(x.positions(), ElementsAre(0, 2, 5, 900));
  x >>= 3;
  EXPECT_THAT(x.positions(), ElementsAre(2, 897));
  x >>= 1000;
  EXPECT_THAT(x.positions(), IsEmpty());
}

TEST(SparseUint, AgreesWithMachineArithmetic) {
  std::mt19937_64 rng(11);
  for (int round = 0; round < 2000; ++round) {
    const wide_t a = wide_t(rng() >> (rng() % 64)) << (rng() % 20);
    const wide_t b = wide_t(rng() >> (rng() % 64)) << (rng() % 20);
    const unsigned long factor = rng() >> (32 + rng() % 32);
    const unsigned long shift = rng() % 90;
    sparse_uint_t sum = from_wide(a), difference = from_wide(a), product = from_wide(a);
    sparse_uint_t shifted = from_wide(a);
    sum += from_wide(b);
    difference -= from_wide(b);
    product *= factor;
    shifted >>= shift;
    ASSERT_TRUE(to_wide(sum) == a + b);
    ASSERT_TRUE(to_wide(difference) == (a > b ? a - b : 0));
    ASSERT_TRUE(to_wide(product) == a * factor);
    ASSERT_TRUE(to_wide(shifted) == a >> shift);
    ASSERT_EQ(from_wide(a).compare(from_wide(b)), a < b ? -1 : a > b ? 1 : 0);
  }
}

TEST(SparseUint, ComparesByLengthThenFromTheTop) {
  EXPECT_EQ(sparse_uint_t(0).compare(sparse_uint_t(1)), -1);
  EXPECT_EQ(sparse_uint_t(0).compare(sparse_uint_t(0)), 0);
  EXPECT_EQ(sparse_uint_t(1).compare(sparse_uint_t(0)), 1);
  EXPECT_EQ(with_bits({900, 3}).compare(with_bits({900, 3})), 0);
  EXPECT_EQ(with_bits({900, 3}).compare(with_bits({900, 2, 1, 0})), 1);
  EXPECT_EQ(with_bits({900}).compare(with_bits({900, 0})), -1);
}

TEST(SparseUint, OverflowOfAWordIsZero) {
  EXPECT_EQ(with_bits({64}).to_uint64(), 0u);
  sparse_uint_t x = with_bits({64});
  x -= sparse_uint_t(1);
  EXPECT_EQ(x.to_uint64(), ~0ul);
}

TEST(SparseUint, OverflowOfADoubleIsZero) {
  EXPECT_EQ(with_bits({1022}).to_double(), std::ldexp(1.0, 1022));
  EXPECT_EQ(with_bits({1023}).to_double(), 0.0);
  EXPECT_EQ(sparse_uint_t(0).to_double(), 0.0);
  EXPECT_EQ(sparse_uint_t(123456).to_double(), 123456.0);
}

TEST(SparseUint, HugePowersOfTwoCostOneNode) {
  sparse_uint_t x(3);
  x.p2x(100000);
  EXPECT_THAT(x.positions(), ElementsAre(0, 1, 100000));
  EXPECT_EQ(text(x), "1" + std::string(24999, '0') + "3");
}

TEST(SparseUint, PrintsHexadecimal) {
  EXPECT_EQ(text(sparse_uint_t(0)), "0");
  EXPECT_EQ(text(sparse_uint_t(0xdeadbeef01)), "deadbeef01");
  EXPECT_EQ(text(sparse_uint_t(16)), "10");
  EXPECT_EQ(sparse_uint_t::nibToHex("0101"), 'a');
  EXPECT_EQ(sparse_uint_t::nibToHex("1111"), 'f');
}

TEST(SparseUint, CombinatorialNumbersDecodeToTheSubsetsOfThatNumber) {
  const sparse_uint_t mask;
  mask.from_combinatorial_index(0, 4, 2);
  EXPECT_THAT(mask.positions(), ElementsAre(2, 3));
  for (unsigned long n = 1; n <= 12; ++n) {
    for (unsigned long k = 0; k <= n; ++k) {
      for (unsigned long rank = 0; rank < QZ::subset_count(n, k); ++rank) {
        std::vector<unsigned long> members(k);
        QZ::unrank(n, k, rank, members.data());
        mask.from_combinatorial_index(rank, n, k);
        ASSERT_THAT(mask.positions(), ::testing::ElementsAreArray(members))
            << n << ' ' << k << ' ' << rank;
      }
    }
  }
}

TEST(SparseUint, CopiesAreDeepAndMovesTakeTheSet) {
  sparse_uint_t a(6);
  sparse_uint_t b(a);
  b.p2x(0);
  EXPECT_EQ(a.to_uint64(), 6u);
  sparse_uint_t c;
  c = std::move(b);
  EXPECT_EQ(c.to_uint64(), 7u);
  sparse_uint_t& same = c;
  c = std::move(same);
  EXPECT_EQ(c.to_uint64(), 7u);
  b = 9;
  EXPECT_EQ(b.to_uint64(), 9u);
  b = a;
  EXPECT_EQ(b.to_uint64(), 6u);
}

}  // namespace
