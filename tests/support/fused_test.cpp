#include "QZ/support/fused.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

template <class val_t>
class Fused : public ::testing::Test {
 protected:
  std::vector<val_t> draw(std::size_t n) {
    std::vector<val_t> values(n);
    for (val_t& value : values) value = std::uniform_real_distribution<val_t>(-2, 2)(rng_);
    return values;
  }
  static constexpr std::size_t lengths[] = {0, 1, 3, 4, 8, 17, 100};

 private:
  std::mt19937 rng_{5};
};

using Reals = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Fused, Reals);

TYPED_TEST(Fused, AddsAMultipleWithOneRounding) {
  const TypeParam factor = TypeParam(1) / 3;
  for (const std::size_t n : this->lengths) {
    std::vector<TypeParam> x = this->draw(n), d = this->draw(n), expected(n);
    for (std::size_t i = 0; i < n; ++i) expected[i] = std::fma(factor, d[i], x[i]);
    std::vector<TypeParam> elsewhere(n);
    QZ::add_scaled(elsewhere.data(), x.data(), factor, d.data(), n);
    QZ::add_scaled(x.data(), x.data(), factor, d.data(), n);
    EXPECT_EQ(elsewhere, expected);
    EXPECT_EQ(x, expected);
  }
}

TYPED_TEST(Fused, ExtrapolatesWithOneRoundingBehindTheDifference) {
  const TypeParam factor = TypeParam(1) / 3;
  for (const std::size_t n : this->lengths) {
    const std::vector<TypeParam> x = this->draw(n), before = this->draw(n);
    std::vector<TypeParam> y(n), expected(n);
    for (std::size_t i = 0; i < n; ++i) expected[i] = std::fma(factor, x[i] - before[i], x[i]);
    QZ::extrapolate(y.data(), x.data(), factor, before.data(), n);
    EXPECT_EQ(y, expected);
  }
}

TYPED_TEST(Fused, SumsAnInnerProductInIndexOrder) {
  for (const std::size_t n : this->lengths) {
    const std::vector<TypeParam> a = this->draw(n), b = this->draw(n);
    TypeParam sum = 0;
    for (std::size_t i = 0; i < n; ++i) sum = std::fma(a[i], b[i], sum);
    EXPECT_EQ(QZ::inner_product(a.data(), b.data(), n), sum);
  }
}

TYPED_TEST(Fused, AgreesToTheBitWithItsPortableBody) {
  const std::size_t n = 100;
  const TypeParam factor = TypeParam(-1) / 7;
  const std::vector<TypeParam> a = this->draw(n), b = this->draw(n);
  std::vector<TypeParam> here(n), portable(n);
  QZ::add_scaled(here.data(), a.data(), factor, b.data(), n);
  QZ::fused::add_scaled_body(portable.data(), a.data(), factor, b.data(), n);
  EXPECT_EQ(here, portable);
  QZ::extrapolate(here.data(), a.data(), factor, b.data(), n);
  QZ::fused::extrapolate_body(portable.data(), a.data(), factor, b.data(), n);
  EXPECT_EQ(here, portable);
  EXPECT_EQ(QZ::inner_product(a.data(), b.data(), n),
            QZ::fused::inner_product_body(a.data(), b.data(), n));
}

}  // namespace
