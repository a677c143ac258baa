#include "QZ/bp/lbp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "support/pair_types.h"
#include "support/run_lbp.h"

namespace {

using qz_test::enumerate;
using qz_test::expect_exact_marginals;
using qz_test::expect_same_run;
using qz_test::PlainPropagation;
using qz_test::TestLbp;
using qz_test::TestModel;
using qz_test::ThreadCount;

template <class P>
class LbpPairs : public testing::Test {};
TYPED_TEST_SUITE(LbpPairs, qz_test::FloatPairs);

/// A few hundred roundings of numbers around 1 to 30.
template <class val_t>
double tolerance() {
  return std::is_same_v<val_t, float> ? 3e-4 : 1e-9;
}

TYPED_TEST(LbpPairs, IsExactOnTrees) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  std::mt19937 rng(11);
  for (int round = 0; round < 8; ++round) {
    const std::size_t n = 2 + rng() % 6;
    TestModel<idx_t, val_t> model(n, qz_test::tree_edges(n, rng),
                                  qz_test::random_counts(n, 1, 4, rng));
    model.gaussian(1, rng);
    const auto exact = enumerate(model);
    for (int threads : {1, 2}) {
      ThreadCount team(threads);
      TestLbp<idx_t, val_t> engine(model, 50);
      engine.infer(0);
      expect_exact_marginals(engine, model, exact, tolerance<val_t>());
      EXPECT_NEAR(engine.log_partition, static_cast<double>(exact.log_partition),
                  tolerance<val_t>() * 10);
    }
  }
}

TYPED_TEST(LbpPairs, FindsMaximumMarginalsOnTrees) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  std::mt19937 rng(12);
  TestModel<idx_t, val_t> model(6, qz_test::tree_edges(6, rng),
                                qz_test::random_counts(6, 2, 4, rng));
  model.gaussian(1, rng);
  const auto exact = enumerate(model, {}, true);
  TestLbp<idx_t, val_t> engine(model, 50);
  for (const idx_t mode : {idx_t(1), idx_t(2), idx_t(9), idx_t(11)}) {
    engine.infer(mode);
    expect_exact_marginals(engine, model, exact, tolerance<val_t>());
  }
}

/// Models of every shape that the iterations treat in a form of their own.
template <class idx_t, class val_t>
std::vector<TestModel<idx_t, val_t>> loopy_models(double scale) {
  std::mt19937 rng(13);
  std::vector<TestModel<idx_t, val_t>> models;
  for (const std::size_t count : {2, 3, 4, 5, 8, 10}) {
    models.emplace_back(6, qz_test::grid_edges(2, 3), std::vector<std::size_t>(6, count));
  }
  models.emplace_back(12, qz_test::grid_edges(3, 4), qz_test::random_counts(12, 1, 6, rng));
  models.emplace_back(7, qz_test::complete_edges(7), qz_test::random_counts(7, 2, 3, rng));
  models.emplace_back(9, qz_test::chain_edges(5), std::vector<std::size_t>(9, 3));
  for (auto& model : models) model.gaussian(scale, rng);
  return models;
}

template <class idx_t, class val_t>
void expect_runs_like_the_plain_rule(double scale, bool max) {
  for (auto& model : loopy_models<idx_t, val_t>(scale)) {
    for (const std::size_t iterations : {0, 1, 2, 7}) {
      PlainPropagation<idx_t, val_t> plain(model, std::vector<val_t>(model.vertices(), -1));
      plain.run(max, 0, iterations);
      for (int threads : {1, 2}) {
        ThreadCount team(threads);
        TestLbp<idx_t, val_t> engine(model, iterations);
        engine.infer(max ? 1 : 0);
        expect_same_run(engine, model, plain, tolerance<val_t>());
        // The general loop, through the operations alone.
        TestLbp<idx_t, val_t> general(model, iterations);
        static_cast<QZ::PairwiseBP<idx_t, val_t>&>(general)
            .QZ::template PairwiseBP<idx_t, val_t>::infer(max ? 1 : 0);
        expect_same_run(general, model, plain, tolerance<val_t>());
      }
    }
  }
}

TEST(Lbp, RunsLikeThePlainRuleInDouble) {
  expect_runs_like_the_plain_rule<unsigned long, double>(1, false);
  expect_runs_like_the_plain_rule<unsigned int, double>(1, true);
}

TEST(Lbp, RunsLikeThePlainRuleInFloat) {
  expect_runs_like_the_plain_rule<unsigned int, float>(1, false);
  expect_runs_like_the_plain_rule<unsigned short, float>(1, true);
}

TEST(Lbp, RunsLikeThePlainRuleWithStrongWeights) {
  expect_runs_like_the_plain_rule<unsigned int, double>(8, false);
}

TEST(Lbp, StopsWhereThePlainRuleStops) {
  std::mt19937 rng(14);
  for (const double epsilon : {0.5, 0.1, 1e-2, 1e-4, 1e-8}) {
    TestModel<unsigned int, double> model(9, qz_test::grid_edges(3, 3),
                                          std::vector<std::size_t>(9, 3));
    model.gaussian(0.7, rng);
    PlainPropagation<unsigned int, double> plain(model, std::vector<double>(9, -1));
    plain.run(false, epsilon, 1000);
    TestLbp<unsigned int, double> engine(model, 1000, epsilon);
    engine.infer(0);
    expect_same_run(engine, model, plain, 1e-9);
  }
}

TEST(Lbp, TheFirstIterationIsMeasuredAgainstLinearOne) {
  // Without weights the first messages are uniform, a half each, so they move by one half from 1.
  TestModel<unsigned int, double> model(2, qz_test::chain_edges(2), {2, 2});
  for (const double epsilon : {0.49, 0.51}) {
    TestLbp<unsigned int, double> engine(model, 100, epsilon);
    engine.infer_continue(0);
    EXPECT_NEAR(engine.delta, epsilon < 0.5 ? 0 : 0.5, 1e-15);
  }
}

TEST(Lbp, BeliefsAreCentredAndMessagesSumToOne) {
  std::mt19937 rng(15);
  TestModel<unsigned int, double> model(6, qz_test::grid_edges(2, 3),
                                        qz_test::random_counts(6, 2, 5, rng));
  model.gaussian(2, rng);
  TestLbp<unsigned int, double> engine(model, 5);
  for (const bool fast : {true, false}) {
    if (fast) {
      engine.infer(0);
    } else {
      engine.infer_continue(0);
    }
    for (std::size_t v = 0; v < 6; ++v) {
      double sum = 0;
      for (std::size_t x = 0; x < model.states[v]; ++x) {
        sum += engine.beliefs[engine.belief_offsets[v] + x];
      }
      EXPECT_NEAR(sum, 0, 1e-12);
    }
    for (std::size_t e = 0; e < model.edges(); ++e) {
      const auto [s, t] = model.ends(e);
      for (int d : {0, 1}) {
        double sum = 0;
        for (std::size_t y = 0; y < model.states[d == 0 ? t : s]; ++y) {
          sum += std::exp(engine.messages[engine.message_offsets[2 * e + d] + y]);
        }
        EXPECT_NEAR(sum, 1, 1e-12);
      }
    }
  }
}

TEST(Lbp, ContinuesFromTheMessagesOfTheLastRun) {
  std::mt19937 rng(16);
  TestModel<unsigned int, double> model(9, qz_test::grid_edges(3, 3),
                                        std::vector<std::size_t>(9, 2));
  model.gaussian(1, rng);
  for (const bool max : {false, true}) {
    PlainPropagation<unsigned int, double> plain(model, std::vector<double>(9, -1));
    plain.run(max, 0, 3);
    plain.run(max, 0, 2, true);
    TestLbp<unsigned int, double> engine(model, 3);
    engine.infer(max ? 1 : 0);
    engine.max_iterations = 2;
    engine.infer_continue(max ? 1 : 0);
    expect_same_run(engine, model, plain, 1e-9);
  }
}

TEST(Lbp, ContinuingKnowsNoExhaustiveMode) {
  std::mt19937 rng(17);
  TestModel<unsigned int, double> model(4, qz_test::complete_edges(4), {2, 2, 2, 2});
  model.gaussian(1, rng);
  TestLbp<unsigned int, double> a(model, 4);
  TestLbp<unsigned int, double> b(model, 4);
  a.infer_continue(10);
  b.infer_continue(1);
  EXPECT_EQ(a.log_partition, b.log_partition);
  EXPECT_EQ(a.moment_norms[0], -1);
}

TEST(Lbp, ReadsTheWeightsOfTheMoment) {
  std::mt19937 rng(18);
  TestModel<unsigned int, double> model(5, qz_test::chain_edges(5), {2, 3, 2, 3, 2});
  TestLbp<unsigned int, double> engine(model, 20);
  for (int round = 0; round < 3; ++round) {
    model.gaussian(1, rng);
    engine.infer(0);
    expect_exact_marginals(engine, model, enumerate(model), 1e-12);
  }
}

TEST(Lbp, WritesWholeEdgeBlocks) {
  std::mt19937 rng(19);
  TestModel<unsigned int, float> model(6, qz_test::grid_edges(2, 3),
                                       qz_test::random_counts(6, 1, 5, rng));
  model.gaussian(1, rng);
  TestLbp<unsigned int, float> engine(model, 10);
  for (const unsigned mode : {0u, 10u}) {
    engine.infer(mode);
    for (unsigned e = 0; e < model.edges(); ++e) {
      std::vector<float> block(model.offsets[e + 1] - model.offsets[e]);
      engine.edge_marginals(e, block.data());
      const auto [s, t] = model.ends(e);
      for (std::size_t xs = 0; xs < model.states[s]; ++xs) {
        for (std::size_t xt = 0; xt < model.states[t]; ++xt) {
          EXPECT_NEAR(block[xs * model.states[t] + xt],
                      qz_test::edge_probability(engine, e, xs, xt), 1e-6);
        }
      }
    }
  }
}

TEST(Lbp, DoesNotDependOnTheNumberOfThreads) {
  std::mt19937 rng(20);
  TestModel<unsigned int, double> model(30, qz_test::grid_edges(5, 6),
                                        qz_test::random_counts(30, 2, 4, rng));
  model.gaussian(1, rng);
  TestLbp<unsigned int, double> reference(model, 25);
  {
    ThreadCount team(1);
    reference.infer(0);
  }
  for (int threads : {2, 3}) {
    ThreadCount team(threads);
    TestLbp<unsigned int, double> engine(model, 25);
    engine.infer(0);
    for (std::size_t i = 0; i < engine.message_storage; ++i) {
      EXPECT_EQ(engine.messages[i], reference.messages[i]);
    }
    EXPECT_NEAR(engine.log_partition, reference.log_partition, 1e-11);
  }
}

TEST(Lbp, TheBetheValueOfAStoredRunIsTheReportedOne) {
  for (auto& model : loopy_models<unsigned int, double>(1)) {
    TestLbp<unsigned int, double> engine(model, 6);
    engine.infer(0);
    EXPECT_NEAR(engine.A_local(), engine.log_partition,
                1e-11 * std::max(1.0, std::abs(engine.log_partition)));
  }
}

}  // namespace
