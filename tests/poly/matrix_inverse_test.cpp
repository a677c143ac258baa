#include "QZ/poly/matrix_inverse.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <vector>

namespace {

using QZ::invert;

template <class T>
class MatrixInverse : public ::testing::Test {};
using Reals = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MatrixInverse, Reals);

template <class idx_t, class val_t>
std::vector<val_t> inverse_of(const std::vector<val_t>& in, idx_t n) {
  std::vector<val_t> out(in.size(), val_t(7));
  val_t* to = out.data();
  const val_t* from = in.data();
  EXPECT_EQ(invert(to, from, n), 0);
  return out;
}

TYPED_TEST(MatrixInverse, OfTheIdentityIsTheIdentity) {
  const std::vector<TypeParam> identity = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  EXPECT_EQ(inverse_of(identity, 3), identity);
  EXPECT_EQ(inverse_of(identity, 3u), identity);
  EXPECT_EQ(inverse_of(identity, 3ul), identity);
}

TYPED_TEST(MatrixInverse, OfAPermutationIsItsTranspose) {
  const std::vector<TypeParam> cycle = {0, 1, 0, 0, 0, 1, 1, 0, 0};
  const std::vector<TypeParam> transpose = {0, 0, 1, 1, 0, 0, 0, 1, 0};
  EXPECT_EQ(inverse_of(cycle, 3ul), transpose);
}

TYPED_TEST(MatrixInverse, OfASmallMatrixIsTheKnownOne) {
  const std::vector<TypeParam> in = {1, 2, 4, 2};
  const std::vector<TypeParam> expected = {TypeParam(-1) / 3, TypeParam(1) / 3, TypeParam(2) / 3,
                                           TypeParam(-1) / 6};
  const auto out = inverse_of(in, 2u);
  for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(out[i], expected[i], 1e-6);
}

TYPED_TEST(MatrixInverse, OfNothingIsNothing) {
  EXPECT_TRUE(inverse_of(std::vector<TypeParam>(), 0u).empty());
}

TYPED_TEST(MatrixInverse, TimesTheMatrixIsTheIdentity) {
  std::mt19937 rng(5);
  std::normal_distribution<TypeParam> normal;
  const std::size_t n = 9;
  std::vector<TypeParam> in(n * n);
  for (TypeParam& entry : in) entry = normal(rng);
  const auto out = inverse_of(in, n);
  for (std::size_t i = 0; i < n; ++i) {
    for (std::size_t j = 0; j < n; ++j) {
      double sum = 0;
      for (std::size_t k = 0; k < n; ++k) sum += double(in[i * n + k]) * double(out[k * n + j]);
      EXPECT_NEAR(sum, i == j ? 1 : 0, sizeof(TypeParam) == 4 ? 1e-4 : 1e-12);
    }
  }
}

TYPED_TEST(MatrixInverse, PivotsOnTheLargestEntry) {
  // Without an exchange of rows the tiny pivot would wipe out the 1 beside it.
  const TypeParam tiny = sizeof(TypeParam) == 4 ? TypeParam(1e-9) : TypeParam(1e-18);
  const auto out = inverse_of(std::vector<TypeParam>{tiny, 1, 1, 1}, 2);
  EXPECT_NEAR(out[0], -1, 1e-6);
  EXPECT_NEAR(out[3], 0, 1e-6);
}

TEST(MatrixInverseDeath, OfASingularMatrixStops) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(inverse_of(std::vector<double>(4, 0.0), 2u), "QZPOLY.*Assertion `false' failed");
  EXPECT_DEATH(inverse_of(std::vector<float>{1, 2, 2, 4}, 2), "QZPOLY.*Assertion `false' failed");
}

}  // namespace
