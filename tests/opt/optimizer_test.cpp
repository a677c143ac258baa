#include "QZ/opt/optimizer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "QZ/opt/gradient_descent.h"
#include "support/pair_types.h"
#include "support/toy_functions.h"

namespace {

using ::testing::ElementsAre;

constexpr double huge = std::numeric_limits<double>::max();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// Moves the whole point up by one and remembers the step sizes it was offered.
template <class idx_t, class val_t>
class CountingUp : public QZ::Optimizer<idx_t, val_t, true> {
 public:
  void update(QZ::Function<idx_t, val_t>*, QZ::OptState<idx_t, val_t>& s) override {
    for (idx_t i = 0; i < s.dim; ++i) ++s.x[i];
    steps.push_back(s.step);
    if (clear_run_at == steps.size()) __run = 0;
  }
  std::vector<val_t> steps;
  std::size_t clear_run_at = 0;
};

using State = QZ::OptState<unsigned long, double>;
using Up = CountingUp<unsigned long, double>;
using Script = qz_test::Scripted<unsigned long, double>;

/// What callbacks report, through the record's `user`.
struct Log {
  std::string order;
  std::vector<double> iterations, norms, points;
  State last{};
};

Log& log_of(State* s) { return *static_cast<Log*>(s->user); }

void before(State* s) {
  log_of(s).order += 'b';
  log_of(s).iterations.push_back(static_cast<double>(s->iter));
  log_of(s).points.push_back(s->x[0]);
}

void after(State* s) {
  log_of(s).order += 'a';
  log_of(s).norms.push_back(s->gnorm);
  log_of(s).last = *s;
}

class OptimizerLoop : public ::testing::Test {
 protected:
  void TearDown() override { __run = 1; }
  double run(Script& f, unsigned long max_iter, double step, bool restore = false) {
    return up.opt(&f, before, after, &log, max_iter, step, restore, 0.25, 0.5);
  }
  Up up;
  Log log;
};

TEST_F(OptimizerLoop, CallsBeforeAheadOfTheLoopAndBothAfterEachStepAndAfterOnceMore) {
  Script f({0.0}, {5, 4, 3});
  run(f, 2, 1.0);
  EXPECT_EQ(log.order, "bbabaa");
  EXPECT_THAT(log.iterations, ElementsAre(0, 0, 1));
  EXPECT_THAT(log.norms, ElementsAre(4, 3, 3));
}

TEST_F(OptimizerLoop, AsksForDecodedWeightsThenTheGradientThenTheValue) {
  qz_test::Quadratic<unsigned long, double> f({0.0}, {1.0}, {1.0});
  up.opt(&f, nullptr, nullptr, nullptr, 1, 1.0, false, 0, 0);
  EXPECT_EQ(f.calls, "dgepdged");
}

TEST_F(OptimizerLoop, ShowsTheCallerEverythingInTheRecord) {
  Script f({7.0, 8.0}, {5, 4});
  f.lipschitz = 0;
  run(f, 1, 2.0);
  EXPECT_EQ(log.last.obj, 102);
  EXPECT_EQ(log.last.gnorm, 4);
  EXPECT_EQ(log.last.min_step, 0);
  EXPECT_EQ(log.last.lam, 0.25);
  EXPECT_EQ(log.last.elam, 0.5);
  EXPECT_EQ(log.last.iter, 1u);
  EXPECT_EQ(log.last.max_iter, 1u);
  EXPECT_EQ(log.last.dim, 2u);
  EXPECT_EQ(log.last.x, f.point.data());
  EXPECT_EQ(log.last.grad, f.gradient);
  EXPECT_EQ(log.last.y, nullptr);
  EXPECT_EQ(log.last.tag, 0);
  EXPECT_EQ(log.last.best_obj, 102);
  EXPECT_EQ(log.last.best_gnorm, 4);
  EXPECT_NE(log.last.best_x, f.point.data());
  EXPECT_EQ(log.last.value_size, 8u);
  EXPECT_EQ(log.last.user, &log);
  EXPECT_FALSE(log.last.converged);
}

TEST_F(OptimizerLoop, MakesNoStepWithALimitOfZero) {
  Script f({7.0}, {5});
  EXPECT_EQ(run(f, 0, 1.0), huge);
  EXPECT_EQ(log.order, "ba");
  EXPECT_THAT(f.point, ElementsAre(7.0));
}

TEST_F(OptimizerLoop, ServesAFunctionWithoutParameters) {
  Script f({}, {0, 0});
  EXPECT_EQ(up.opt(&f, nullptr, nullptr, nullptr, 1, 1.0, false, 0, 0), 102);
}

TEST_F(OptimizerLoop, EndsAtTheSmallestGradientNormWhateverTheObjective) {
  Script f({0.0}, {9, 5, 2, 4, 3});
  EXPECT_EQ(run(f, 4, 1.0), 103);  // The objective at the third evaluation, after two steps.
  EXPECT_THAT(f.point, ElementsAre(2.0));
  EXPECT_EQ(f.decoded_at.back(), 2.0);
}

TEST_F(OptimizerLoop, CountsTheFirstStepAsAnImprovementOnTheStartEvenIfItIsWorse) {
  Script f({0.0}, {1, 50, 60});
  EXPECT_EQ(run(f, 2, 1.0), 102);
  EXPECT_THAT(f.point, ElementsAre(1.0));
}

TEST_F(OptimizerLoop, ReturnsToTheStartWhenEveryNormIsNan) {
  Script f({7.0}, {nan, nan, nan});
  EXPECT_EQ(run(f, 2, 1.0), huge);
  EXPECT_THAT(f.point, ElementsAre(7.0));
}

TEST_F(OptimizerLoop, ReturnsToTheStartWhenEveryNormIsInfinite) {
  const double inf = std::numeric_limits<double>::infinity();
  Script f({7.0}, {inf, inf});
  EXPECT_EQ(run(f, 1, 1.0), huge);
  EXPECT_THAT(f.point, ElementsAre(7.0));
}

TEST_F(OptimizerLoop, KeepsTheBestPointWhenANanFollows) {
  Script f({0.0}, {9, 5, nan, nan});
  EXPECT_EQ(run(f, 3, 1.0), 102);
  EXPECT_THAT(f.point, ElementsAre(1.0));
}

TEST_F(OptimizerLoop, UndoesAStepThatDoesNotImproveWhenAskedToRestore) {
  Script f({0.0}, {9, 5, 6, 7, 4});
  run(f, 4, 1.0, true);
  EXPECT_THAT(log.points, ElementsAre(0, 1, 2, 2, 2));
}

TEST_F(OptimizerLoop, GoesOnFromAWorseStepOtherwise) {
  Script f({0.0}, {9, 5, 6, 7, 4});
  run(f, 4, 1.0);
  EXPECT_THAT(log.points, ElementsAre(0, 1, 2, 3, 4));
}

TEST_F(OptimizerLoop, ConvergesWhenTheBestNormFallsByLessThanEpsilon) {
  Script f({0.0}, {9, 5, 4.5, 1, 0});
  up.epsilon = 0.75;
  EXPECT_EQ(run(f, 4, 1.0), 103);
  EXPECT_EQ(up.steps.size(), 2u);
  EXPECT_TRUE(log.last.converged);
}

TEST_F(OptimizerLoop, NeverConvergesAtTheFirstStep) {
  Script f({0.0}, {5, 5, 4.9, 1});
  up.epsilon = 1e300;
  run(f, 3, 1.0);
  EXPECT_EQ(up.steps.size(), 2u);
}

TEST_F(OptimizerLoop, DoesNotConvergeOnStepsThatDoNotImprove) {
  Script f({0.0}, {9, 5, 5, 5, 5});
  up.epsilon = 1;
  run(f, 4, 1.0);
  EXPECT_EQ(up.steps.size(), 4u);
}

TEST_F(OptimizerLoop, RunsToItsLimitWithAnEpsilonOfZero) {
  Script f({0.0}, {9, 5, std::nextafter(5.0, 0.0), std::nextafter(5.0, 0.0)});
  run(f, 3, 1.0);
  EXPECT_EQ(up.steps.size(), 3u);
}

TEST_F(OptimizerLoop, LetsTheStepDecayWithoutAFloorWhenTheCurvatureIsUnknown) {
  Script f({0.0}, {9, 9, 9, 9, 9});
  run(f, 4, 3.0);
  EXPECT_THAT(up.steps,
              ElementsAre(3.0, 3.0 / std::sqrt(2.0), 3.0 / std::sqrt(3.0), 3.0 / std::sqrt(4.0)));
}

TEST_F(OptimizerLoop, StopsTheDecayAtTheCurvatureBound) {
  Script f({0.0}, {9, 9, 9, 9, 9});
  f.lipschitz = 0.5;  // 1 / (0.5 * 1.001), between 3 / sqrt(2) and 3 / sqrt(3).
  run(f, 4, 3.0);
  const double bound = 1 / (0.5 * 1.001);
  EXPECT_THAT(up.steps, ElementsAre(3.0, 3.0 / std::sqrt(2.0), bound, bound));
  EXPECT_EQ(log.last.min_step, bound);
}

TEST_F(OptimizerLoop, NeverLetsTheBoundExceedTheFirstStep) {
  Script f({0.0}, {9, 9, 9});
  f.lipschitz = 1e-3;
  run(f, 2, 0.5);
  EXPECT_THAT(up.steps, ElementsAre(0.5, 0.5));
}

TEST_F(OptimizerLoop, NeverMovesWithAStepOfZero) {
  qz_test::Quadratic<unsigned long, double> f({3.0}, {0.0}, {1.0});
  f.lipschitz = 1;
  QZ::GradientDescent<unsigned long, double> descent;
  descent.opt(&f, nullptr, nullptr, nullptr, 5, 0.0, false, 0, 0);
  EXPECT_THAT(f.point, ElementsAre(3.0));
}

TEST_F(OptimizerLoop, DividesTheStepOfFloatsInDouble) {
  CountingUp<unsigned int, float> up32;
  qz_test::Scripted<unsigned int, float> f({0.0f}, {9, 9, 9, 9});
  up32.opt(&f, nullptr, nullptr, nullptr, 3, 0.1f, false, 0, 0);
  EXPECT_EQ(up32.steps[2], static_cast<float>(static_cast<double>(0.1f) / std::sqrt(3.0)));
  EXPECT_EQ(up32.eta, 1.001f);
}

TEST_F(OptimizerLoop, StopsBeforeTheNextStepOnRequestAndKeepsTheBestPoint) {
  Script f({0.0}, {9, 5, 6, 1, 1});
  up.clear_run_at = 2;
  EXPECT_EQ(run(f, 4, 1.0), 102);
  EXPECT_EQ(log.order, "bbabaa");
  EXPECT_THAT(f.point, ElementsAre(1.0));
}

TEST_F(OptimizerLoop, MakesNoStepOnceARequestToStopStands) {
  __run = 0;
  Script f({7.0}, {9});
  EXPECT_EQ(run(f, 4, 1.0), huge);
  EXPECT_EQ(log.order, "ba");
}

TEST_F(OptimizerLoop, LetsACallbackMoveThePointBehindTheBackOfTheBestPoint) {
  qz_test::Quadratic<unsigned long, double> f({0.0}, {1.0}, {1.0});
  auto overwrite = [](State* s) { s->x[0] = 10; };
  QZ::GradientDescent<unsigned long, double> descent;
  descent.opt(&f, overwrite, nullptr, nullptr, 2, 0.5, false, 0, 0);
  // The first step starts from 10 with the gradient -1 of the old point, and its norm is the best
  // one; the callback then overwrites the point before it is kept.
  EXPECT_THAT(f.point, ElementsAre(10.0));
}

TEST_F(OptimizerLoop, LetsACallbackEndTheRun) {
  Script f({0.0}, {9, 5, 4, 3});
  auto stop = [](State* s) { s->converged = s->iter == 1; };
  up.opt(&f, nullptr, stop, nullptr, 3, 1.0, false, 0, 0);
  EXPECT_EQ(up.steps.size(), 2u);
}

TEST_F(OptimizerLoop, PassesOnWhatACallbackThrows) {
  Script f({0.0}, {9, 5});
  auto fail = [](State*) { throw std::runtime_error("enough"); };
  EXPECT_THROW(up.opt(&f, nullptr, fail, nullptr, 1, 1.0, false, 0, 0), std::runtime_error);
}

// Integers.

using Up8 = CountingUp<unsigned char, unsigned char>;
using Script8 = qz_test::Scripted<unsigned char, unsigned char>;
using State8 = QZ::OptState<unsigned char, unsigned char>;

TEST(IntegerOptimizerLoop, KeepsTheStepConstant) {
  Up8 up;
  Script8 f({0}, {9, 9, 9, 9});
  f.lipschitz = 1;
  up.opt(&f, nullptr, nullptr, nullptr, 3, 5, false, 0, 0);
  EXPECT_THAT(up.steps, ElementsAre(5, 5, 5));
  EXPECT_EQ(up.eta, 1);
}

TEST(IntegerOptimizerLoop, TruncatesTheCurvatureBound) {
  static unsigned char seen;
  auto look = [](State8* s) { seen = s->min_step; };
  auto bound = [&](unsigned char lipschitz, unsigned char step) {
    Up8 up;
    Script8 f({0}, {9});
    f.lipschitz = lipschitz;
    up.opt(&f, look, nullptr, nullptr, 0, step, false, 0, 0);
    return seen;
  };
  EXPECT_EQ(bound(0, 7), 0);
  EXPECT_EQ(bound(1, 7), 1);
  EXPECT_EQ(bound(1, 0), 0);
  EXPECT_EQ(bound(2, 7), 0);
}

TEST(IntegerOptimizerLoop, MarksItsRecordAndStartsWithAllBitsSet) {
  static State8 first;
  auto look = [](State8* s) { first = *s; };
  Up8 up;
  Script8 f({3}, {9});
  EXPECT_EQ(up.opt(&f, look, nullptr, nullptr, 0, 1, false, 0, 0), 255);
  EXPECT_EQ(first.tag, 1);
  EXPECT_EQ(first.best_obj, 255);
  EXPECT_EQ(first.best_gnorm, 255);
  EXPECT_EQ(first.value_size, 1);
  EXPECT_EQ(first.lam, 0);
}

TEST(IntegerOptimizerLoop, ComparesTheChangeOfTheNormAsDoubles) {
  Up8 up;
  up.epsilon = 3;
  Script8 f({0}, {200, 100, 98, 50});
  up.opt(&f, nullptr, nullptr, nullptr, 3, 1, false, 0, 0);
  EXPECT_EQ(up.steps.size(), 2u);
  // Both norms round to the same double, so even the smallest epsilon sees no change.
  CountingUp<unsigned long, unsigned long> wide;
  wide.epsilon = 1;
  qz_test::Scripted<unsigned long, unsigned long> g({0}, {~0ul, ~0ul - 5, 0});
  wide.opt(&g, nullptr, nullptr, nullptr, 2, 1, false, 0, 0);
  EXPECT_EQ(wide.steps.size(), 1u);
}

TEST(IntegerOptimizerLoop, RestoresTheBestPoint) {
  Up8 up;
  Script8 f({0}, {9, 5, 7, 8});
  EXPECT_EQ(up.opt(&f, nullptr, nullptr, nullptr, 3, 1, true, 0, 0), 102);
  EXPECT_THAT(f.point, ElementsAre(1));
  EXPECT_THAT(f.decoded_at, ElementsAre(0, 1, 2, 2, 1));
}

template <class Pair>
class EveryPair : public ::testing::Test {};
TYPED_TEST_SUITE(EveryPair, qz_test::AllPairs);

TYPED_TEST(EveryPair, RunsTheLoop) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  CountingUp<idx_t, val_t> up;
  qz_test::Scripted<idx_t, val_t> f({1, 2}, {9, 5, 3, 4});
  EXPECT_EQ(up.opt(&f, nullptr, nullptr, nullptr, 3, 1, false, 0, 0), 103);
  EXPECT_THAT(f.point, ElementsAre(3, 4));
}

TEST(OptimizerBase, StartsWithoutAThresholdOrARandomEngineAndResetsToNothing) {
  Up up;
  up.reset();
  EXPECT_EQ(up.epsilon, 0);
  EXPECT_EQ(up.eta, 1.001);
  EXPECT_EQ(up.rng, nullptr);
}

}  // namespace
