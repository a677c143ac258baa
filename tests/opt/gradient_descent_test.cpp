#include "QZ/opt/gradient_descent.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "QZ/opt/proximal_gradient.h"
#include "support/pair_types.h"
#include "support/toy_functions.h"

namespace {

using ::testing::ElementsAre;

template <class Pair>
class GradientDescent : public ::testing::Test {};
TYPED_TEST_SUITE(GradientDescent, qz_test::FloatPairs);

TYPED_TEST(GradientDescent, MakesAFusedStepAgainstTheGradient) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  // Enough entries for whole vectors and a rest, with products that do not fit the type.
  std::vector<val_t> x, g, expected;
  const val_t step = val_t(1) / 3;
  for (int i = 0; i < 21; ++i) {
    x.push_back(val_t(1) + val_t(i) / 7);
    g.push_back(val_t(i - 10) / 9);
    expected.push_back(std::fma(-step, g.back(), x.back()));
  }
  QZ::OptState<idx_t, val_t> s{};
  s.x = x.data();
  s.grad = g.data();
  s.step = step;
  s.dim = 21;
  QZ::GradientDescent<idx_t, val_t>().update(nullptr, s);
  EXPECT_EQ(x, expected);
}

TEST(GradientDescentOfDoubles, FollowsItsIterates) {
  qz_test::Quadratic<unsigned long, double> f({1.0, -2.0}, {0.0, 0.0}, {1.0, 0.5});
  f.lipschitz = 1;
  QZ::GradientDescent<unsigned long, double> descent;
  // Steps 0.5 throughout: 1 / 1.001 is above the first step. x halves, y falls to three quarters.
  descent.opt(&f, nullptr, nullptr, nullptr, 3, 0.5, false, 0, 0);
  EXPECT_THAT(f.point, ElementsAre(0.125, -2.0 * 0.421875));
}

TEST(GradientDescentOfDoubles, KeepsTheHookWithoutCallingIt) {
  auto hook = [](QZ::OptState<unsigned long, double>*) { FAIL(); };
  QZ::GradientDescent<unsigned long, double> descent(hook);
  EXPECT_NE(descent.update_hook, nullptr);
  qz_test::Quadratic<unsigned long, double> f({1.0}, {0.0}, {1.0});
  descent.opt(&f, nullptr, nullptr, nullptr, 1, 0.5, false, 0, 0);
  EXPECT_EQ(f.point[0], 0.5);
}

TEST(ProximalGradient, StepsLikeGradientDescentWithoutAnOperator) {
  using Toy = qz_test::Quadratic<unsigned int, float>;
  Toy a({1.3f, -2.7f, 0.1f}, {0.1f, 0.2f, 0.3f}, {1.0f, 0.7f, 0.3f});
  Toy b({1.3f, -2.7f, 0.1f}, {0.1f, 0.2f, 0.3f}, {1.0f, 0.7f, 0.3f});
  QZ::GradientDescent<unsigned int, float> descent;
  QZ::ProximalGradient<unsigned int, float> proximal;
  descent.opt(&a, nullptr, nullptr, nullptr, 7, 0.3f, false, 0, 0);
  proximal.opt(&b, nullptr, nullptr, nullptr, 7, 0.3f, false, 0, 0);
  EXPECT_EQ(a.point, b.point);
}

TEST(ProximalGradient, LeavesTheWholeStepToTheOperator) {
  using State = QZ::OptState<unsigned long, double>;
  // Soft thresholding, the operator of the absolute value.
  auto soft = [](State* s) {
    for (unsigned long i = 0; i < s->dim; ++i) {
      const double moved = s->x[i] - s->step * s->grad[i];
      const double shrunk = std::max(std::abs(moved) - s->step * s->lam, 0.0);
      s->x[i] = std::copysign(shrunk, moved);
    }
  };
  auto hook = [](State*) { FAIL(); };
  QZ::ProximalGradient<unsigned long, double> proximal(hook, soft);
  qz_test::Quadratic<unsigned long, double> f({4.0, 0.25}, {0.0, 0.0}, {1.0, 1.0});
  proximal.opt(&f, nullptr, nullptr, nullptr, 1, 0.5, false, 1.0, 0);
  EXPECT_THAT(f.point, ElementsAre(1.5, 0.0));
}

TEST(ProximalGradient, TellsTheFunctionThatItsPointMayChangeEvenAheadOfTheOperator) {
  using State = QZ::OptState<unsigned long, double>;
  QZ::ProximalGradient<unsigned long, double> proximal(nullptr, [](State*) {});
  qz_test::Quadratic<unsigned long, double> f({4.0}, {0.0}, {1.0});
  State s{};
  s.dim = 1;
  proximal.update(&f, s);
  EXPECT_EQ(f.calls, "p");
  EXPECT_THAT(f.point, ElementsAre(4.0));
}

}  // namespace
