#include "QZ/poly/polynomial.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <initializer_list>
#include <vector>

namespace {

/// A polynomial with given coefficients, which fits nothing.
template <class idx_t, class val_t>
class FixedPolynomial final : public QZ::PolyApproximation<idx_t, val_t> {
  using Base = QZ::PolyApproximation<idx_t, val_t>;

 public:
  FixedPolynomial(val_t lower, val_t upper, std::initializer_list<val_t> c)
      : Base(lower, upper, static_cast<idx_t>(c.size() - 1)) {
    std::copy(c.begin(), c.end(), this->coefficients_);
  }
  void apx(std::function<val_t(const val_t&)>&, std::function<val_t(const val_t&)>&,
           std::function<val_t(const val_t&)>&, const idx_t&) override {}
  std::vector<val_t> spare_room() const {
    return {this->aux_matrix_, this->aux_matrix_ + this->terms() * this->terms()};
  }
};

TEST(Polynomial, EvaluatesItsTerms) {
  const FixedPolynomial<unsigned char, double> p(0, 1, {2, 0, -3, 1});
  EXPECT_EQ(p.evaluate(0), 2);
  EXPECT_EQ(p.evaluate(1), 0);
  EXPECT_EQ(p.evaluate(-2), -18);
}

TEST(Polynomial, EvaluatesFused) {
  // x * x has a tail below the last bit of double, which only the fused sum keeps.
  const double x = 1 + 0x1p-30;
  const double square = x * x;
  const FixedPolynomial<unsigned int, double> p(0, 1, {-square, x});
  EXPECT_EQ(p.evaluate(x), std::fma(x, x, -square));
  EXPECT_NE(p.evaluate(x), 0);
}

TEST(Polynomial, WithADegreeOfAllOnesIsZero) {
  const FixedPolynomial<unsigned char, float> p(0, 1, {});
  EXPECT_EQ(p.evaluate(3), 0);
}

TEST(Polynomial, HoldsItsCoefficientsAndItsError) {
  FixedPolynomial<unsigned long, float> p(0, 1, {4, 5});
  EXPECT_EQ(p.coefficients()[0], 4);
  EXPECT_EQ(p.coefficients()[1], 5);
  std::function<float(const float&)> square = [](const float& x) { return x * x; };
  const float distance = p.error(square, 64);
  EXPECT_EQ(p.error(), distance);
}

TEST(Polynomial, HasSpareRoomFilledWithMinusOne) {
  const FixedPolynomial<unsigned short, double> p(0, 1, {1, 2, 3});
  EXPECT_EQ(p.spare_room(), std::vector<double>(9, -1));
}

TEST(Polynomial, ErrorScansFromTheLowerEndByEqualSteps) {
  FixedPolynomial<unsigned int, double> p(1, 3, {0});
  std::vector<double> visited;
  std::function<double(const double&)> f = [&](const double& x) {
    visited.push_back(x);
    return x == 2.5 ? -7 : x;
  };
  EXPECT_EQ(p.error(f, 4), 7);
  EXPECT_EQ(visited, (std::vector<double>{1, 1.5, 2, 2.5, 3}));
}

TEST(Polynomial, ErrorMayMissTheUpperEndByRounding) {
  FixedPolynomial<unsigned int, double> p(0, 1, {0});
  double last = -1;
  std::function<double(const double&)> f = [&](const double& x) { return last = x; };
  p.error(f, 10);
  double sum = 0;
  for (int i = 0; i < 10; ++i) sum += 0.1;
  EXPECT_EQ(last, sum);
  EXPECT_LT(last, 1);
}

TEST(Polynomial, ErrorOfAnEmptyIntervalIsZero) {
  FixedPolynomial<unsigned int, double> p(1, 0, {5});
  std::function<double(const double&)> f = [](const double& x) { return x; };
  EXPECT_EQ(p.error(f, 10), 0);
}

TEST(Polynomial, ErrorOfASinglePointEnds) {
  FixedPolynomial<unsigned int, double> p(2, 2, {5});
  std::function<double(const double&)> f = [](const double& x) { return x; };
  EXPECT_EQ(p.error(f, 10), 3);
  EXPECT_EQ(p.error(f, 0), 3);
}

TEST(Polynomial, ErrorIsMeasuredAnew) {
  FixedPolynomial<unsigned int, double> p(0, 1, {0});
  std::function<double(const double&)> far = [](const double&) { return 9; };
  std::function<double(const double&)> near = [](const double&) { return 1; };
  EXPECT_EQ(p.error(far, 4), 9);
  EXPECT_EQ(p.error(near, 4), 1);
}

}  // namespace
