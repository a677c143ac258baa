#include "QZ/poly/remez.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using QZ::ChebyshevApproximationRemez;

template <class val_t>
using Function = std::function<val_t(const val_t&)>;

template <class Pair>
class Remez : public ::testing::Test {};
using Pairs =
    ::testing::Types<std::tuple<unsigned char, float>, std::tuple<unsigned short, float>,
                     std::tuple<unsigned int, float>, std::tuple<unsigned long, float>,
                     std::tuple<unsigned char, double>, std::tuple<unsigned short, double>,
                     std::tuple<unsigned int, double>, std::tuple<unsigned long, double>>;
TYPED_TEST_SUITE(Remez, Pairs);

template <class Fit, class val_t>
void fit_exponential(Fit& fit, int iterations = 100) {
  Function<val_t> f = [](const val_t& x) { return std::exp(x); };
  fit.apx(f, f, f, static_cast<unsigned char>(iterations));
}

TYPED_TEST(Remez, OfDegreeZeroIsTheMeanOfTheEnds) {
  using val_t = std::tuple_element_t<1, TypeParam>;
  using idx_t = std::tuple_element_t<0, TypeParam>;
  ChebyshevApproximationRemez<idx_t, val_t> fit(0, 2, 0);
  fit_exponential<decltype(fit), val_t>(fit);
  EXPECT_NEAR(fit.coefficients()[0], (1 + std::exp(2.0)) / 2, 1e-6);
  EXPECT_NEAR(fit.error(), (std::exp(2.0) - 1) / 2, 1e-6);
  EXPECT_EQ(fit.nodes()[0], 0);
  EXPECT_EQ(fit.nodes()[1], 2);
}

TYPED_TEST(Remez, OfTheExponentialByALineIsTheClosedForm) {
  using val_t = std::tuple_element_t<1, TypeParam>;
  using idx_t = std::tuple_element_t<0, TypeParam>;
  ChebyshevApproximationRemez<idx_t, val_t> fit(-1, 1, 1);
  fit_exponential<decltype(fit), val_t>(fit);
  // The line has the slope of the chord and lies halfway between the chord and its tangent.
  const double slope = std::sinh(1.0);
  const double level = (std::cosh(1.0) + slope - slope * std::log(slope)) / 2;
  EXPECT_NEAR(fit.coefficients()[1], slope, 1e-5);
  EXPECT_NEAR(fit.coefficients()[0], level, 1e-5);
  EXPECT_NEAR(fit.error(), std::cosh(1.0) - level, 1e-5);
  EXPECT_NEAR(fit.nodes()[1], std::log(slope), 1e-3);
}

TYPED_TEST(Remez, ReproducesAPolynomial) {
  using val_t = std::tuple_element_t<1, TypeParam>;
  using idx_t = std::tuple_element_t<0, TypeParam>;
  ChebyshevApproximationRemez<idx_t, val_t> fit(-1, 2, 3);
  Function<val_t> f = [](const val_t& x) { return 2 - x + x * x / 2; };
  Function<val_t> f1 = [](const val_t& x) { return -1 + x; };
  Function<val_t> f2 = [](const val_t&) { return val_t(1); };
  fit.apx(f, f1, f2, 20);
  const val_t expected[] = {2, -1, 0.5, 0};
  const double tolerance = sizeof(val_t) == 4 ? 1e-4 : 1e-12;
  for (std::size_t i = 0; i < 4; ++i) EXPECT_NEAR(fit.coefficients()[i], expected[i], tolerance);
  EXPECT_NEAR(fit.error(), 0, tolerance);
}

TYPED_TEST(Remez, StartsAtChebyshevPointsWithTheEndsMovedOut) {
  using val_t = std::tuple_element_t<1, TypeParam>;
  using idx_t = std::tuple_element_t<0, TypeParam>;
  const ChebyshevApproximationRemez<idx_t, val_t> fit(2, 6, 2);
  EXPECT_EQ(fit.nodes()[0], 2);
  EXPECT_NEAR(fit.nodes()[1], 4 - 2 * std::sin(M_PI / 8), 1e-6);
  EXPECT_NEAR(fit.nodes()[2], 4 + 2 * std::sin(M_PI / 8), 1e-6);
  EXPECT_EQ(fit.nodes()[3], 6);
}

/// The largest deviation on a fine grid.
double distance_from_exponential(const ChebyshevApproximationRemez<unsigned int, double>& fit,
                                 double lower, double upper) {
  double largest = 0;
  for (int i = 0; i <= 20000; ++i) {
    const double x = lower + (upper - lower) * i / 20000;
    largest = std::max(largest, std::abs(std::exp(x) - fit.evaluate(x)));
  }
  return largest;
}

TEST(Remez, DeviatesEquallyAtAllNodesAndNowhereMore) {
  // By the alternation theorem a polynomial that does so is the best one.
  for (unsigned int degree = 1; degree <= 5; ++degree) {
    for (const auto& [lower, upper] : {std::pair(-1.0, 1.0), {-3.0, 2.0}, {0.5, 1.5}}) {
      ChebyshevApproximationRemez<unsigned int, double> fit(lower, upper, degree);
      fit_exponential<decltype(fit), double>(fit);
      const double error = fit.error();
      const double slack = 1e-3 * error + 1e-13;
      EXPECT_NEAR(distance_from_exponential(fit, lower, upper), error, slack) << degree;
      double sign = fit.evaluate(lower) < std::exp(lower) ? 1 : -1;
      for (unsigned int j = 0; j < degree + 2; ++j, sign = -sign) {
        const double x = fit.nodes()[j];
        EXPECT_NEAR(std::exp(x) - fit.evaluate(x), sign * error, slack) << degree << " " << j;
      }
    }
  }
}

/// A fit of degree 2 on [0, 4] whose polynomial is 0 and whose level is 1, and whose two inner
/// nodes head for given targets. With p = 0 the full Newton step is f1 / f2.
struct Steered {
  ChebyshevApproximationRemez<unsigned int, double> fit{0, 4, 2};
  double start1 = fit.nodes()[1];
  double start2 = fit.nodes()[2];
  double target1 = start1;
  double target2 = start2;

  void run_once() {
    const auto is_end = [](double x) { return x <= 0 || x >= 4; };
    Function<double> f = [=, this](const double& x) { return x <= 0 || x == start2 ? 1.0 : -1.0; };
    Function<double> f1 = [=, this](const double& x) {
      return is_end(x) ? 10.0 : x - (x == start1 ? target1 : target2);
    };
    Function<double> f2 = [](const double&) { return 1.0; };
    fit.apx(f, f1, f2, 1);
  }
};

TEST(Remez, AFullFirstStepGoesToTheTarget) {
  Steered steered;
  steered.target1 = 1.0;
  steered.target2 = 3.0;
  steered.run_once();
  EXPECT_NEAR(steered.fit.error(), 1, 1e-12);
  EXPECT_NEAR(steered.fit.nodes()[1], 1.0, 1e-12);
  EXPECT_NEAR(steered.fit.nodes()[2], 3.0, 1e-12);
}

TEST(Remez, TheEndNodesStay) {
  Steered steered;
  steered.run_once();
  EXPECT_EQ(steered.fit.nodes()[0], 0);
  EXPECT_EQ(steered.fit.nodes()[3], 4);
}

TEST(Remez, TheStepShrinksWithTheRootOfTheRound) {
  ChebyshevApproximationRemez<unsigned int, double> fit(0, 4, 1);
  const double start = fit.nodes()[1];
  Function<double> f = [](const double& x) { return x <= 0 || x >= 4 ? 1.0 : -1.0; };
  Function<double> f1 = [](const double&) { return 0.1; };
  Function<double> f2 = [](const double&) { return 1.0; };
  fit.apx(f, f1, f2, 3);
  EXPECT_NEAR(fit.nodes()[1], start - 0.1 * (1 + 1 / std::sqrt(2.0) + 1 / std::sqrt(3.0)), 1e-12);
}

TEST(Remez, CandidatesOutsideTheIntervalAreRejected) {
  Steered steered;
  steered.target1 = -0.5;
  steered.target2 = 4.5;
  steered.run_once();
  EXPECT_EQ(steered.fit.nodes()[1], steered.start1);
  EXPECT_EQ(steered.fit.nodes()[2], steered.start2);
}

TEST(Remez, CandidatesAtOrBeyondANeighbourAreRejected) {
  Steered steered;
  steered.target1 = steered.start2 + 0.1;
  steered.target2 = steered.start1 - 0.1;
  steered.run_once();
  EXPECT_EQ(steered.fit.nodes()[1], steered.start1);
  EXPECT_EQ(steered.fit.nodes()[2], steered.start2);
}

TEST(Remez, ALaterNodeSeesWhereTheOneBeforeHasGone) {
  Steered steered;
  // The second target is clear of where node 1 was, and not of where it is now.
  steered.target1 = steered.start2 - 0.1;
  steered.target2 = steered.start2 - 0.2;
  steered.run_once();
  EXPECT_NEAR(steered.fit.nodes()[1], steered.start2 - 0.1, 1e-12);
  EXPECT_EQ(steered.fit.nodes()[2], steered.start2);

  Steered room;
  // And here it is the move of node 1 that makes room for node 2.
  room.target1 = room.start1 - 0.2;
  room.target2 = room.start1 - 0.1;
  room.run_once();
  EXPECT_NEAR(room.fit.nodes()[1], room.start1 - 0.2, 1e-12);
  EXPECT_NEAR(room.fit.nodes()[2], room.start1 - 0.1, 1e-12);
}

TEST(Remez, ANodeWhereTheCurvesMeetStays) {
  ChebyshevApproximationRemez<unsigned int, double> fit(-1, 1, 1);
  Function<double> zero = [](const double&) { return 0.0; };
  Function<double> one = [](const double&) { return 1.0; };
  const double start = fit.nodes()[1];
  fit.apx(zero, one, one, 5);
  EXPECT_EQ(fit.nodes()[1], start);
  EXPECT_EQ(fit.error(), 0);
}

TEST(Remez, ASecondRunGoesOnFromTheNodesReached) {
  ChebyshevApproximationRemez<unsigned int, double> fit(-2, 2, 3);
  fit_exponential<decltype(fit), double>(fit, 4);
  const std::vector<double> reached(fit.nodes(), fit.nodes() + 5);
  fit_exponential<decltype(fit), double>(fit, 0);
  EXPECT_EQ(std::vector<double>(fit.nodes(), fit.nodes() + 5), reached);
  const double before = fit.error();
  fit_exponential<decltype(fit), double>(fit, 1);
  // The level never falls while the nodes approach the extrema.
  EXPECT_GT(fit.error(), before);
}

TEST(Remez, AnEmptyFunctionIsRefused) {
  ChebyshevApproximationRemez<unsigned int, double> fit(-2, 2, 3);
  Function<double> none;
  EXPECT_THROW(fit.apx(none, none, none, 1), std::bad_function_call);
}

/// Shows the room that no method uses.
struct Exposed : ChebyshevApproximationRemez<unsigned short, float> {
  using ChebyshevApproximationRemez::ChebyshevApproximationRemez;
  std::vector<float> rooms() const {
    std::vector<float> all(aux_matrix_, aux_matrix_ + 9);
    all.insert(all.end(), cheb_matrix_, cheb_matrix_ + 9);
    return all;
  }
  std::vector<float> system() const { return {system_, system_ + 16}; }
};

TEST(Remez, BothSpareMatricesAreFilledWithMinusOne) {
  EXPECT_EQ(Exposed(0, 1, 2).rooms(), std::vector<float>(18, -1));
}

TEST(Remez, TheSystemHoldsPowersAndAlternatingSigns) {
  const Exposed fit(0, 4, 2);
  const std::vector<float> system = fit.system();
  for (std::size_t i = 0; i < 4; ++i) {
    const float x = fit.nodes()[i];
    EXPECT_EQ(system[4 * i], 1);
    EXPECT_EQ(system[4 * i + 1], x);
    EXPECT_FLOAT_EQ(system[4 * i + 2], x * x);
    EXPECT_EQ(system[4 * i + 3], i % 2 == 0 ? 1 : -1);
  }
}

TEST(Remez, OnAWideIntervalTheLevelOfALowDegreeSaysNothing) {
  // All inner nodes run to one end, where the curve is flat. The levels were worked out by another
  // program; with more nodes the exchange holds.
  const std::pair<unsigned int, double> levels[] = {
      {3, 6.339e-7}, {6, 85.68}, {7, 34.88}, {8, 13.38}};
  for (const auto& [degree, level] : levels) {
    ChebyshevApproximationRemez<unsigned int, double> fit(-6, 9, degree);
    fit_exponential<decltype(fit), double>(fit);
    EXPECT_NEAR(fit.error() / level, 1, 1e-3) << degree;
    const double largest = distance_from_exponential(fit, -6, 9);
    EXPECT_GT(largest, degree == 3 ? 4000 : level);
    EXPECT_LT(largest, degree == 3 ? 5000 : 2.5 * level);
  }
}

TEST(RemezDeath, CoincidingNodesStop) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ChebyshevApproximationRemez<unsigned int, double> fit(1, 1, 2);
  EXPECT_DEATH((fit_exponential<decltype(fit), double>(fit)), "QZPOLY.*Assertion `false' failed");
}

}  // namespace
