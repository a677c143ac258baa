/// The rules of loopy propagation that surprise.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "QZ/bp/lbp.h"
#include "support/run_lbp.h"

namespace {

using qz_test::edge_probability;
using qz_test::enumerate;
using qz_test::expect_same_run;
using qz_test::PlainPropagation;
using qz_test::TestLbp;
using qz_test::TestModel;
using qz_test::ThreadCount;
using qz_test::vertex_probability;

using Model = TestModel<unsigned int, double>;
using Lbp = TestLbp<unsigned int, double>;
using Plain = PlainPropagation<unsigned int, double>;

/// Both roads of one engine against the plain rule, with given observations.
template <class val_t>
void expect_observed_runs_agree(TestModel<unsigned int, val_t>& model, std::vector<val_t> observed,
                                double tolerance, std::size_t iterations = 6) {
  for (const bool max : {false, true}) {
    PlainPropagation<unsigned int, val_t> plain(model, observed);
    plain.run(max, 0, iterations);
    for (const int threads : {1, 2}) {
      ThreadCount team(threads);
      TestLbp<unsigned int, val_t> engine(model, iterations);
      std::copy(observed.begin(), observed.end(), engine.observed);
      engine.infer(max ? 1 : 0);
      expect_same_run(engine, model, plain, tolerance);
      TestLbp<unsigned int, val_t> slow(model, iterations);
      std::copy(observed.begin(), observed.end(), slow.observed);
      slow.infer_continue(max ? 1 : 0);
      expect_same_run(slow, model, plain, tolerance);
    }
  }
}

TEST(LbpRules, ClampedVerticesConditionTheOthersOnATree) {
  std::mt19937 rng(1);
  for (int round = 0; round < 5; ++round) {
    Model model(6, qz_test::tree_edges(6, rng), qz_test::random_counts(6, 2, 4, rng));
    model.gaussian(1, rng);
    std::vector<int> clamped{-1, 1, -1, -1, 0, -1};
    const auto exact = enumerate(model, clamped);
    Lbp engine(model, 50);
    engine.observe(1, 1);
    engine.observe(4, 0);
    engine.infer(0);
    for (const std::size_t v : {0, 2, 3, 5}) {
      for (std::size_t x = 0; x < model.states[v]; ++x) {
        EXPECT_NEAR(vertex_probability(engine, v, x), exact.vertex[v][x], 1e-12);
      }
    }
  }
}

TEST(LbpRules, ObservationsOfEveryKindFollowThePlainRule) {
  std::mt19937 rng(2);
  Model model(9, qz_test::grid_edges(3, 3), qz_test::random_counts(9, 2, 4, rng));
  model.gaussian(1, rng);
  expect_observed_runs_agree<double>(model, {1, -1, 0.25, -1, -1, -0.5, 7, -1, 0}, 1e-9);
  // Neighbours that are clamped both.
  expect_observed_runs_agree<double>(model, {1, 1, 1, 0, -1, 0, -1, -1, -1}, 1e-9);
  expect_observed_runs_agree<double>(model, std::vector<double>(9, 1), 1e-9);
  TestModel<unsigned int, float> single(9, qz_test::grid_edges(3, 3),
                                        std::vector<std::size_t>(9, 3));
  single.gaussian(1, rng);
  expect_observed_runs_agree<float>(single, {1, -1, 0.25f, -1, -1, -0.5f, 7, -1, 0}, 3e-4);
}

TEST(LbpRules, MinusOneIsFreeButSmallerFractionsAreState0) {
  Model model(2, {{0, 1}}, {2, 2});
  model.weights = {1, 0, 0, 3};
  Lbp engine(model, 5);
  engine.observed[0] = -0.75;
  engine.infer(0);
  const double row0 = std::exp(1.0) / (std::exp(1.0) + 1);
  EXPECT_NEAR(vertex_probability(engine, 1, 0), row0, 1e-12);
  engine.observed[0] = -1;
  engine.infer(0);
  const double z = std::exp(1.0) + 2 + std::exp(3.0);
  EXPECT_NEAR(vertex_probability(engine, 1, 0), (std::exp(1.0) + 1) / z, 1e-12);
}

TEST(LbpRules, AMessageBetweenClampedVerticesIsAPlainParameter) {
  Model model(3, qz_test::chain_edges(3), {2, 2, 2});
  model.weights = {1, 5, 2, 3, 9, 9, -9, 4};
  Lbp engine(model, 4);
  engine.observe(0, 1);
  engine.observe(1, 0);
  engine.infer(0);
  // Row 1 of the first block, normalised.
  const double* message = engine.messages + engine.message_offsets[0];
  EXPECT_NEAR(message[1] - message[0], 3 - 2, 1e-12);
  EXPECT_NEAR(std::exp(message[0]) + std::exp(message[1]), 1, 1e-12);
}

TEST(LbpRules, AHalfObservedVertexMixesItsFirstTwoRows) {
  for (const std::size_t states : {2, 4}) {
    Model model(2, {{0, 1}}, {states, 2});
    model.weights[0] = 1;
    model.weights[1] = 2;
    model.weights[2] = 5;
    model.weights[3] = 0;
    for (std::size_t k = 4; k < model.weights.size(); ++k) model.weights[k] = 50;
    Lbp engine(model, 4);
    engine.observe(0, 0.5);
    engine.infer(0);
    const double* message = engine.messages + engine.message_offsets[0];
    EXPECT_NEAR(message[1] - message[0], (2 + 0) / 2.0 - (1 + 5) / 2.0, 1e-12);
  }
}

TEST(LbpRules, ASoftVertexOfOneStateHasOnlyThatRow) {
  Model model(2, {{0, 1}}, {1, 2});
  model.weights = {1, 3};
  Lbp engine(model, 4);
  engine.observe(0, 0.5);
  engine.infer(0);
  const double* message = engine.messages + engine.message_offsets[0];
  EXPECT_NEAR(message[1] - message[0], 2, 1e-12);
}

TEST(LbpRules, NoIterationsLeaveUniformMarginals) {
  std::mt19937 rng(3);
  Model model(4, qz_test::complete_edges(4), {2, 3, 2, 4});
  model.gaussian(1, rng);
  for (const bool by_epsilon : {false, true}) {
    Lbp engine(model, by_epsilon ? 10 : 0, by_epsilon ? 1e17 : 0);
    engine.infer(0);
    for (std::size_t v = 0; v < 4; ++v) {
      EXPECT_EQ(vertex_probability(engine, v, 1), 1.0 / model.states[v]);
    }
    for (std::size_t i = 0; i < engine.message_storage; ++i) EXPECT_EQ(engine.messages[i], 0);
    // The edge tables are those of the bare weights.
    double sum = 0;
    for (std::size_t k = 0; k < model.offsets[1]; ++k) sum += std::exp(model.weights[k]);
    EXPECT_NEAR(edge_probability(engine, 0, 1, 2), std::exp(model.weights[5]) / sum, 1e-12);
  }
}

TEST(LbpRules, TheExhaustiveModeIsExactOnEdgesAndLeavesBeliefsAlone) {
  std::mt19937 rng(4);
  Model model(4, qz_test::complete_edges(4), {2, 3, 2, 2});
  model.gaussian(2, rng);
  const auto exact = enumerate(model);
  Lbp engine(model, 3);
  engine.infer(0);
  const std::vector<double> beliefs(engine.beliefs, engine.beliefs + engine.belief_count);
  engine.infer(10);
  EXPECT_NEAR(engine.log_partition, static_cast<double>(exact.log_partition), 1e-12);
  for (std::size_t e = 0; e < model.edges(); ++e) {
    const auto [s, t] = model.ends(e);
    for (std::size_t xs = 0; xs < model.states[s]; ++xs) {
      for (std::size_t xt = 0; xt < model.states[t]; ++xt) {
        EXPECT_NEAR(edge_probability(engine, e, xs, xt), exact.edge[model.at(e, xs, xt)], 1e-12);
      }
    }
  }
  EXPECT_EQ(beliefs, std::vector<double>(engine.beliefs, engine.beliefs + engine.belief_count));
}

TEST(LbpRules, ExactEdgeTablesStayForGoodOnceThere) {
  std::mt19937 rng(5);
  Model model(4, qz_test::complete_edges(4), {2, 2, 2, 2});
  model.gaussian(2, rng);
  const auto exact = enumerate(model);
  Lbp engine(model, 3);
  engine.infer(10);
  engine.infer(0);
  EXPECT_NEAR(edge_probability(engine, 2, 1, 0), exact.edge[model.at(2, 1, 0)], 1e-12);
  EXPECT_EQ(engine.log_partition, engine.A_local());
}

TEST(LbpRules, AnIsolatedVertexCountsMinusOnceInTheBetheValue) {
  Model model(4, {{0, 1}}, {2, 2, 3, 5});
  Lbp engine(model, 5);
  engine.infer(0);
  EXPECT_NEAR(engine.log_partition, std::log(2.0 * 2 * 3 * 5), 1e-12);
  engine.infer_continue(0);
  EXPECT_NEAR(engine.log_partition, std::log(2.0 * 2 * 3 * 5), 1e-12);
}

TEST(LbpRules, AGraphWithoutEdgesIsUniform) {
  Model model(2, {}, {4, 2});
  Lbp engine(model, 5);
  engine.infer(0);
  EXPECT_NEAR(engine.log_partition, std::log(8.0), 1e-12);
  EXPECT_EQ(vertex_probability(engine, 0, 3), 0.25);
}

TEST(LbpRules, WeightsBeyondTheRangeFollowTheClampedRule) {
  std::mt19937 rng(6);
  for (const double scale : {100.0, 300.0, 900.0}) {
    Model model(6, qz_test::grid_edges(2, 3), {2, 3, 2, 3, 2, 3});
    model.gaussian(scale, rng);
    expect_observed_runs_agree<double>(model, std::vector<double>(6, -1), 1e-9, 4);
    expect_observed_runs_agree<double>(model, {1, -1, -1, -1, 0.5, -1}, 1e-9, 4);
  }
  for (const double scale : {10.0, 40.0, 100.0}) {
    TestModel<unsigned int, float> model(6, qz_test::grid_edges(2, 3), {2, 2, 3, 2, 2, 3});
    model.gaussian(scale, rng);
    expect_observed_runs_agree<float>(model, std::vector<float>(6, -1), 2e-2, 3);
  }
}

TEST(LbpRules, BeliefsThatDriftApartFollowTheClampedRule) {
  // Each weight alone is harmless, but the hub of the star collects sixty of them.
  std::vector<std::pair<std::size_t, std::size_t>> star;
  for (std::size_t v = 1; v <= 60; ++v) star.emplace_back(0, v);
  Model model(61, star, std::vector<std::size_t>(61, 2));
  for (std::size_t e = 0; e < 60; ++e) {
    model.weights[4 * e] = 20;
    model.weights[4 * e + 3] = -20;
  }
  expect_observed_runs_agree<double>(model, std::vector<double>(61, -1), 1e-9, 4);
}

TEST(LbpRules, AUnderflowingSumIsTheLogarithmOfTheSmallestNumbers) {
  TestModel<unsigned int, double> model(2, {{0, 1}}, {2, 2});
  model.weights = {-2000, -1000, -2000, -3000};
  Lbp engine(model, 1);
  engine.lbp<false>();
  const double smallest = std::log(2 * std::numeric_limits<double>::min());
  EXPECT_DOUBLE_EQ(engine.messages[engine.message_offsets[0]], smallest);
}

TEST(LbpRules, AMagnitudeAboveTheMaximumBecomesPlusMaximum) {
  Model model(2, {{0, 1}}, {2, 2});
  const double inf = std::numeric_limits<double>::infinity();
  model.weights = {inf, 0, 0, 0};
  Lbp engine(model, 1);
  engine.lbp<true>();
  EXPECT_EQ(engine.messages[engine.message_offsets[0]], std::numeric_limits<double>::max());
  engine.lbp<false>();
  EXPECT_DOUBLE_EQ(engine.messages[engine.message_offsets[0]],
                   std::log(std::numeric_limits<double>::max()));
}

TEST(LbpRules, ASumThatIsNoNumberIsTheSmallestOne) {
  Model model(2, {{0, 1}}, {2, 2});
  model.weights = {std::nan(""), 0, 0, 0};
  Lbp engine(model, 1);
  engine.lbp<false>();
  EXPECT_DOUBLE_EQ(engine.messages[engine.message_offsets[0]],
                   std::log(std::numeric_limits<double>::min()));
}

TEST(LbpRules, AVertexWithoutStatesHasEmptyMessages) {
  Model model(3, qz_test::chain_edges(3), {2, 0, 2});
  Lbp engine(model, 3);
  engine.infer(0);
  EXPECT_EQ(engine.edge_partition[0], 0);
  EXPECT_TRUE(std::isnan(engine.edge_centre[0]));
  EXPECT_EQ(vertex_probability(engine, 0, 0), 0.5);
  engine.lbp<true>();
  EXPECT_EQ(engine.messages[engine.message_offsets[1]], -std::numeric_limits<double>::max());
}

TEST(LbpRules, ALoopAtAVertexRuns) {
  Model model(2, {{0, 0}, {0, 1}}, {2, 2});
  model.weights = {1, 0, 0, 1, 2, 0, 0, 0};
  Lbp engine(model, 3);
  engine.infer(0);
  EXPECT_NEAR(vertex_probability(engine, 1, 0) + vertex_probability(engine, 1, 1), 1, 1e-12);
}

TEST(LbpRules, TheMapsAreClampedExponentialAndLogarithm) {
  TestModel<unsigned int, float> single(1, {}, {2});
  TestLbp<unsigned int, float> f(single, 1);
  EXPECT_EQ(f.map_exponential(-1000), std::numeric_limits<float>::min());
  EXPECT_EQ(f.map_exponential(1000), std::numeric_limits<float>::max());
  EXPECT_EQ(f.map_exponential(1.5f), std::exp(1.5f));
  EXPECT_EQ(f.map_logarithm(0), 0);
  EXPECT_EQ(f.map_logarithm(2), std::log(2.0f));
  EXPECT_EQ(f.map_other(std::nanf(""), 3), 3);
  EXPECT_EQ(f.map_other(4, std::nanf("")), 4);
  EXPECT_EQ(f.map_other(4, 5), 5);
  EXPECT_TRUE(std::isnan(f.map_logarithm(-1)));
}

TEST(LbpRules, TheCavityLeavesOutOneMessage) {
  std::mt19937 rng(7);
  Model model(3, {{0, 1}, {2, 1}}, {2, 3, 2});
  model.gaussian(1, rng);
  Lbp engine(model, 5);
  engine.infer(0);
  const double belief = engine.beliefs[engine.belief_offsets[1] + 2];
  EXPECT_EQ(engine.get_log_prod(1, 2, ~0u, 0), belief);
  EXPECT_EQ(engine.get_log_prod(1, 2, 3, 0), belief);
  EXPECT_EQ(engine.get_log_prod(1, 2, 0, 0),
            belief - engine.messages[engine.message_offsets[0] + 2]);
  EXPECT_EQ(engine.get_log_prod(2, 1, 1, 1), engine.beliefs[engine.belief_offsets[2] + 1] -
                                                 engine.messages[engine.message_offsets[3] + 1]);
}

TEST(LbpRules, VertexSumsAreKeptFromTheFirstQuestionOn) {
  Model model(2, {{0, 1}}, {2, 2});
  Lbp engine(model, 5);
  EXPECT_EQ(engine.vertex_partition[0], -1);
  engine.infer_continue(0);
  vertex_probability(engine, 0, 0);
  EXPECT_NEAR(engine.vertex_partition[0], 2, 1e-12);
  // A stored sum replaces whatever the caller brought.
  double q = 0;
  double Z = 77;
  engine.vertex_marginal(0, 1, q, Z);
  EXPECT_NEAR(Z, 2, 1e-12);
}

TEST(LbpRules, StopsAtOnceWhereNothingMoves) {
  Model model(3, qz_test::chain_edges(3), {1, 1, 1});
  Lbp engine(model, 1000);
  engine.infer_continue(0);
  EXPECT_EQ(engine.delta, 0);
  EXPECT_EQ(engine.log_partition, 0);
}

}  // namespace
