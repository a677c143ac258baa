#include "QZ/opt/fista.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "QZ/opt/gradient_descent.h"
#include "support/pair_types.h"
#include "support/toy_functions.h"

namespace {

using ::testing::ElementsAre;
using State = QZ::OptState<unsigned long, double>;
using Toy = qz_test::Quadratic<unsigned long, double>;

template <class Pair>
class Fista : public ::testing::Test {};
TYPED_TEST_SUITE(Fista, qz_test::FloatPairs);

TYPED_TEST(Fista, FollowsThePublishedRecursionToTheBit) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  const val_t a = val_t(1.3), target = val_t(0.1), curvature = val_t(0.7), step = val_t(0.3);
  qz_test::Quadratic<idx_t, val_t> f({a}, {target}, {curvature});
  QZ::FISTA<idx_t, val_t> fista;
  QZ::OptState<idx_t, val_t> s{};
  s.x = f.point.data();
  s.dim = 1;
  s.step = step;

  val_t x = a, y = a, t = 1;
  for (int k = 0; k < 6; ++k) {
    fista.update(&f, s);
    const val_t before = x;
    x = std::fma(-step, static_cast<val_t>(curvature * (y - target)), y);
    const val_t next = (1 + std::sqrt(std::fma(4 * t, t, val_t(1)))) / 2;
    y = std::fma(static_cast<val_t>((t - 1) / next), x - before, x);
    t = next;
    EXPECT_EQ(f.point[0], x);
    EXPECT_EQ(fista.y_point[0], y);
    EXPECT_EQ(fista.prev_point[0], before);
    EXPECT_EQ(fista.t_k, t);
    EXPECT_EQ(s.y, fista.y_point);
  }
}

TYPED_TEST(Fista, StepsLikeGradientDescentAtFirst) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  using Toy = qz_test::Quadratic<idx_t, val_t>;
  Toy a({val_t(1.3), val_t(-2)}, {0, 0}, {1, val_t(0.3)});
  Toy b({val_t(1.3), val_t(-2)}, {0, 0}, {1, val_t(0.3)});
  QZ::FISTA<idx_t, val_t>().opt(&a, nullptr, nullptr, nullptr, 1, val_t(0.1), false, 0, 0);
  QZ::GradientDescent<idx_t, val_t>().opt(&b, nullptr, nullptr, nullptr, 1, val_t(0.1), false, 0,
                                          0);
  EXPECT_EQ(a.point, b.point);
}

TEST(FistaOfDoubles, LetsTheMomentumScalarGrow) {
  Toy f({1.0}, {0.0}, {1.0});
  QZ::FISTA<unsigned long, double> fista;
  State s{};
  s.dim = 1;
  EXPECT_EQ(fista.t_k, 1.0);
  fista.update(&f, s);
  EXPECT_DOUBLE_EQ(fista.t_k, 1.618033988749895);
  fista.update(&f, s);
  EXPECT_DOUBLE_EQ(fista.t_k, 2.1935270853310533);
}

TEST(FistaOfDoubles, TakesTheGradientAtTheExtrapolatedPointWithoutDecoding) {
  Toy f({1.0}, {0.0}, {1.0});
  QZ::FISTA<unsigned long, double> fista;
  State s{};
  s.dim = 1;
  s.step = 0.5;
  fista.update(&f, s);
  fista.update(&f, s);
  const double ahead = fista.y_point[0];
  fista.update(&f, s);
  EXPECT_EQ(s.grad[0], ahead);
  EXPECT_EQ(f.calls, "pgpgpg");
}

TEST(FistaOfDoubles, AllocatesNothingAfterTheFirstStep) {
  Toy f({1.0}, {0.0}, {1.0});
  QZ::FISTA<unsigned long, double> fista;
  State s{};
  s.dim = 1;
  EXPECT_EQ(fista.y_point, nullptr);
  EXPECT_EQ(fista.prev_point, nullptr);
  fista.update(&f, s);
  const double* y = fista.y_point;
  const double* prev = fista.prev_point;
  fista.update(&f, s);
  EXPECT_EQ(fista.y_point, y);
  EXPECT_EQ(fista.prev_point, prev);
}

TEST(FistaOfDoubles, ForgetsEverythingOnReset) {
  Toy f({1.0}, {0.0}, {1.0});
  QZ::FISTA<unsigned long, double> fista;
  State s{};
  s.dim = 1;
  fista.update(&f, s);
  fista.update(&f, s);
  fista.reset();
  EXPECT_EQ(fista.y_point, nullptr);
  EXPECT_EQ(fista.prev_point, nullptr);
  EXPECT_EQ(fista.t_k, 1.0);
}

TEST(FistaOfDoubles, ChangesNothingButTheMomentumWithoutParameters) {
  Toy f({}, {}, {});
  QZ::FISTA<unsigned long, double> fista;
  State s{};
  fista.update(&f, s);
  EXPECT_GT(fista.t_k, 1.6);
}

TEST(FistaOfDoubles, CallsTheUpdateHookTwiceAnIteration) {
  static std::string order;
  order.clear();
  auto hook = [](State* s) { order += s->y == nullptr ? '0' : 'y'; };
  auto after = [](State*) { order += 'a'; };
  Toy f({1.0}, {0.0}, {1.0});
  QZ::FISTA<unsigned long, double> fista(hook);
  fista.opt(&f, hook, after, nullptr, 2, 0.5, false, 0, 0);
  EXPECT_EQ(order, "0yyayyaa");
}

TEST(FistaOfDoubles, LeavesThePointAheadWhenTheOperatorDoesNothing) {
  Toy f({1.0}, {0.0}, {1.0});
  QZ::FISTA<unsigned long, double> fista;
  State s{};
  s.dim = 1;
  s.step = 0.5;
  fista.update(&f, s);
  fista.update(&f, s);
  fista.prox_hook = [](State*) {};
  const double ahead = fista.y_point[0], before = f.point[0], t = fista.t_k;
  fista.update(&f, s);
  EXPECT_EQ(f.point[0], ahead);
  EXPECT_EQ(fista.y_point[0], std::fma((t - 1) / fista.t_k, ahead - before, ahead));
}

TEST(FistaOfDoubles, HandsTheOperatorTheExtrapolatedPointAndItsGradient) {
  auto prox = [](State* s) { s->x[0] = s->y[0] - s->step * s->grad[0] - s->lam; };
  Toy f({1.0}, {0.0}, {1.0});
  QZ::FISTA<unsigned long, double> fista(nullptr, prox);
  fista.opt(&f, nullptr, nullptr, nullptr, 1, 0.5, false, 0.125, 0);
  EXPECT_THAT(f.point, ElementsAre(0.375));
}

TEST(FistaOfDoubles, OutrunsPlainDescentOnANarrowValley) {
  Toy a({1.0, 1.0}, {0.0, 0.0}, {1.0, 0.01});
  Toy b({1.0, 1.0}, {0.0, 0.0}, {1.0, 0.01});
  a.lipschitz = b.lipschitz = 1;
  QZ::FISTA<unsigned long, double>().opt(&a, nullptr, nullptr, nullptr, 60, 1.0, false, 0, 0);
  QZ::GradientDescent<unsigned long, double>().opt(&b, nullptr, nullptr, nullptr, 60, 1.0, false, 0,
                                                   0);
  EXPECT_LT(a.eval(), b.eval() / 4);
}

}  // namespace
