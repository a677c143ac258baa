#include "QZ/support/vector_math.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

template <class val_t>
class VectorMath : public testing::Test {
 protected:
  static constexpr double limit() { return QZ::vector_math::Format<val_t>::exp_limit; }

  /// The distance in units of the last place of the rounded true value.
  static double ulps(val_t got, long double want) {
    const val_t rounded = std::abs(static_cast<val_t>(want));
    const val_t unit = std::nextafter(rounded, std::numeric_limits<val_t>::infinity()) - rounded;
    return static_cast<double>(std::abs(static_cast<long double>(got) - want) / unit);
  }
};
using Floating = testing::Types<float, double>;
TYPED_TEST_SUITE(VectorMath, Floating);

TYPED_TEST(VectorMath, IsWithinTwoUnitsOfTheTrueValue) {
  std::mt19937 rng(1);
  for (const double range : {1e-3, 1.0, 20.0, this->limit()}) {
    std::uniform_real_distribution<double> uniform(-range, range);
    std::vector<TypeParam> x(20001);
    for (auto& value : x) value = static_cast<TypeParam>(uniform(rng));
    std::vector<TypeParam> y(x.size());
    std::vector<TypeParam> back(x.size());
    QZ::exp_all(x.data(), y.data(), x.size());
    QZ::log_all(y.data(), back.data(), y.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
      EXPECT_LT(this->ulps(y[i], std::exp(static_cast<long double>(x[i]))), 2);
      EXPECT_LT(this->ulps(back[i], std::log(static_cast<long double>(y[i]))), 2);
    }
  }
}

TYPED_TEST(VectorMath, GivesTheSameBitsWithAndWithoutWideRegisters) {
  std::mt19937 rng(2);
  std::uniform_real_distribution<double> uniform(-80, 80);
  std::vector<TypeParam> x(1003);
  for (auto& value : x) value = static_cast<TypeParam>(uniform(rng));
  std::vector<TypeParam> plain(x.size());
  std::vector<TypeParam> chosen(x.size());
  QZ::vector_math::exp_body(x.data(), plain.data(), x.size());
  QZ::exp_all(x.data(), chosen.data(), x.size());
  EXPECT_EQ(plain, chosen);
  QZ::vector_math::log_body(plain.data(), plain.data(), x.size());
  QZ::log_all(chosen.data(), chosen.data(), x.size());
  EXPECT_EQ(plain, chosen);
}

TYPED_TEST(VectorMath, FollowsTheStandardFunctionsOutsideItsRange) {
  using limits = std::numeric_limits<TypeParam>;
  const TypeParam inf = limits::infinity();
  const std::vector<TypeParam> x{0, 1, inf, -inf, 1000, -1000, limits::max(), limits::lowest()};
  std::vector<TypeParam> y(x.size());
  QZ::exp_all(x.data(), y.data(), x.size());
  for (std::size_t i = 0; i < x.size(); ++i) EXPECT_EQ(y[i], std::exp(x[i])) << x[i];
  const std::vector<TypeParam> p{1, 0, inf, limits::denorm_min(), limits::min(), limits::max()};
  y.resize(p.size());
  QZ::log_all(p.data(), y.data(), p.size());
  for (std::size_t i = 0; i < p.size(); ++i) EXPECT_EQ(y[i], std::log(p[i])) << p[i];
  const TypeParam bad[] = {limits::quiet_NaN(), -1};
  QZ::log_all(bad, y.data(), 2);
  EXPECT_TRUE(std::isnan(y[0]) && std::isnan(y[1]));
}

TYPED_TEST(VectorMath, IsExactAtZeroAndOne) {
  const TypeParam zero = 0;
  const TypeParam one = 1;
  TypeParam y;
  QZ::exp_all(&zero, &y, 1);
  EXPECT_EQ(y, one);
  QZ::log_all(&one, &y, 1);
  EXPECT_EQ(y, zero);
}

}  // namespace
