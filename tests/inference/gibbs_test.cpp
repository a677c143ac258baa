#include "QZ/inference/gibbs.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <csignal>
#include <random>
#include <vector>

#include "QZ/inference/engine.h"
#include "support/enumeration_oracle.h"
#include "support/pairwise_models.h"

namespace {

using qz_test::TestModel;

/// An engine for sampling only.
template <class idx_t, class val_t>
class Sampler : public QZ::InferenceAlgorithm<idx_t, val_t> {
 public:
  Sampler(TestModel<idx_t, val_t>& model, std::mt19937& rng)
      : QZ::InferenceAlgorithm<idx_t, val_t>(model.graph.get(), model.states.data(),
                                             model.weights.data(), &rng) {}
  void infer(const idx_t&) override {}
  void vertex_marginal(const idx_t&, const idx_t&, val_t&, val_t&) const override {}
  void edge_marginal(const idx_t&, const idx_t&, const idx_t&, val_t&, val_t&) const override {}

  std::vector<val_t> sample(std::vector<val_t> x, std::size_t sweeps, bool fixed) {
    val_t* data = x.data();
    this->GIBBS(data, static_cast<idx_t>(sweeps), fixed);
    return x;
  }
};

/// One sweep after the other, straight from the definition of the conditional distribution.
template <class idx_t, class val_t>
std::vector<val_t> reference(const TestModel<idx_t, val_t>& model, std::vector<val_t> x,
                             std::size_t sweeps, bool fixed, std::mt19937& rng) {
  const std::vector<val_t> input = x;
  const std::size_t n = model.vertices();
  const auto is_state = [&](std::size_t v) {
    return input[v] < 0 ? model.states[v] > 0 : input[v] < model.states[v];
  };
  for (std::size_t v = 0; v < n; ++v) {
    if (!is_state(v)) {
      x[v] = static_cast<val_t>(std::uniform_int_distribution<idx_t>(0, model.states[v] - 1)(rng));
    }
  }
  for (std::size_t i = 0; i < n * sweeps; ++i) {
    const std::size_t v = i % n;
    if (fixed && is_state(v)) continue;
    std::vector<val_t> p(model.states[v]);
    val_t sum = 0;
    for (std::size_t y = 0; y < p.size(); ++y) {
      val_t s = 0;
      for (std::size_t e = 0; e < model.edges(); ++e) {
        const auto [a, b] = model.ends(e);
        const auto at = [&](std::size_t u) {
          return x[u] > 0 ? static_cast<std::size_t>(x[u]) : std::size_t{0};
        };
        if (v == a) s += model.weights[model.at(e, y, at(b))];
        if (v == b) s += model.weights[model.at(e, at(a), y)];
      }
      sum += p[y] = std::exp(s);
    }
    const double u = std::generate_canonical<double, 53>(rng);
    val_t total = 0;
    std::size_t chosen = 0;
    for (std::size_t y = 0; y < p.size(); ++y) {
      total += p[y] / sum;
      if (total >= u) {
        chosen = y;
        break;
      }
    }
    x[v] = static_cast<val_t>(chosen);
  }
  return x;
}

template <class idx_t, class val_t>
void expect_follows_the_definition(double scale, unsigned seed) {
  std::mt19937 source(seed);
  const auto random_states = [&](std::size_t least, std::size_t most) {
    return qz_test::random_counts(12, least, most, source);
  };
  std::vector<TestModel<idx_t, val_t>> models;
  models.emplace_back(12, qz_test::grid_edges(3, 4), std::vector<std::size_t>(12, 2));
  models.emplace_back(12, qz_test::grid_edges(3, 4), random_states(1, 6));
  models.emplace_back(12, qz_test::tree_edges(12, source), random_states(2, 4));
  for (auto& model : models) {
    model.gaussian(scale, source);
    for (const bool fixed : {false, true}) {
      for (const std::size_t sweeps : {0, 1, 2, 20}) {
        std::vector<val_t> x(12);
        for (std::size_t v = 0; v < 12; ++v) x[v] = static_cast<val_t>(source() % 9) - 1;
        std::mt19937 rng(seed + sweeps);
        std::mt19937 same = rng;
        Sampler<idx_t, val_t> sampler(model, rng);
        EXPECT_EQ(sampler.sample(x, sweeps, fixed), reference(model, x, sweeps, fixed, same));
        EXPECT_EQ(rng, same) << "the number of draws differs";
      }
    }
  }
}

TEST(Gibbs, FollowsTheDefinitionToTheLastChoice) {
  for (unsigned seed = 0; seed < 10; ++seed) {
    expect_follows_the_definition<unsigned long, double>(1, seed);
    expect_follows_the_definition<unsigned int, double>(0, seed);
    expect_follows_the_definition<unsigned int, float>(2, seed);
    expect_follows_the_definition<unsigned short, float>(0, seed);
  }
}

TEST(Gibbs, FollowsTheDefinitionWherePotentialsOverflow) {
  for (unsigned seed = 0; seed < 5; ++seed) {
    expect_follows_the_definition<unsigned int, double>(400, seed);
    expect_follows_the_definition<unsigned int, float>(60, seed);
  }
}

TEST(Gibbs, MeetsTheMarginalsOfTheModel) {
  std::mt19937 rng(3);
  TestModel<unsigned int, double> model(4, qz_test::complete_edges(4), {2, 3, 2, 3});
  model.gaussian(0.7, rng);
  const auto exact = qz_test::enumerate(model);
  Sampler<unsigned int, double> sampler(model, rng);
  std::vector<std::vector<double>> counts{{0, 0}, {0, 0, 0}, {0, 0}, {0, 0, 0}};
  std::vector<double> x(4, 9);
  constexpr int samples = 20000;
  for (int i = 0; i < samples; ++i) {
    x = sampler.sample(x, 5, false);
    for (std::size_t v = 0; v < 4; ++v) counts[v][static_cast<std::size_t>(x[v])] += 1;
  }
  for (std::size_t v = 0; v < 4; ++v) {
    for (std::size_t y = 0; y < counts[v].size(); ++y) {
      // Five standard deviations of independent samples.
      EXPECT_NEAR(counts[v][y] / samples, exact.vertex[v][y], 5 * 0.5 / std::sqrt(samples));
    }
  }
}

TEST(Gibbs, FixedStatesComeBackUnchanged) {
  std::mt19937 rng(4);
  TestModel<unsigned int, double> model(4, qz_test::chain_edges(4), {3, 3, 3, 3});
  model.gaussian(1, rng);
  const std::mt19937 before = rng;
  Sampler<unsigned int, double> sampler(model, rng);
  const std::vector<double> x{2, 0, 1, 1};
  EXPECT_EQ(sampler.sample(x, 30, true), x);
  EXPECT_EQ(rng, before);
}

TEST(Gibbs, StatesThatAreNotFixedAreOnlyTheStart) {
  std::mt19937 rng(5);
  TestModel<unsigned int, double> model(1, {}, {2});
  Sampler<unsigned int, double> sampler(model, rng);
  int ones = 0;
  for (int i = 0; i < 200; ++i) ones += sampler.sample({0}, 1, false)[0] == 1;
  EXPECT_GT(ones, 50);
  EXPECT_LT(ones, 150);
}

TEST(Gibbs, ANegativeStateIsFixedAndCountsAsStateZero) {
  std::mt19937 rng(6);
  TestModel<unsigned int, double> model(2, {{0, 1}}, {2, 2});
  // With state 0 of the first vertex, the second has state 1.
  model.weights = {0, 50, 50, 0};
  Sampler<unsigned int, double> sampler(model, rng);
  EXPECT_EQ(sampler.sample({-1, 7}, 10, true), (std::vector<double>{-1, 1}));
  EXPECT_EQ(sampler.observed[0], -1);
}

TEST(Gibbs, AnIntegerAllOnesStateIsDrawn) {
  std::mt19937 rng(7);
  TestModel<unsigned int, unsigned int> model(1, {}, {2});
  Sampler<unsigned int, unsigned int> sampler(model, rng);
  int ones = 0;
  for (int i = 0; i < 200; ++i) {
    const unsigned y = sampler.sample({~0u}, 1, true)[0];
    ASSERT_LT(y, 2u);
    ones += y == 1;
  }
  EXPECT_GT(ones, 50);
  EXPECT_LT(ones, 150);
}

TEST(Gibbs, NoSweepsLeaveTheFirstState) {
  std::mt19937 rng(8);
  TestModel<unsigned int, float> model(3, qz_test::chain_edges(3), {2, 4, 2});
  Sampler<unsigned int, float> sampler(model, rng);
  const auto x = sampler.sample({1, 99, 0}, 0, false);
  EXPECT_EQ(x[0], 1);
  EXPECT_LT(x[1], 4);
  EXPECT_EQ(x[2], 0);
}

TEST(Gibbs, IntegerPotentialsAreCut) {
  // exp(1) is cut to 2, so state 1 has probability 2 / 3 and not e / (1 + e).
  std::mt19937 rng(9);
  std::mt19937 same = rng;
  TestModel<unsigned char, unsigned char> model(2, {{0, 1}}, {1, 2});
  model.weights = {0, 1};
  Sampler<unsigned char, unsigned char> sampler(model, rng);
  for (int i = 0; i < 300; ++i) {
    const auto x = sampler.sample({0, 255}, 1, true);
    std::uniform_int_distribution<unsigned char>(0, 1)(same);
    const double u = std::generate_canonical<double, 53>(same);
    EXPECT_EQ(x[1], u <= 1.0 / 3 ? 0 : 1);
  }
}

TEST(Gibbs, IntegerNeighboursWithoutAStateAreSkipped) {
  std::mt19937 rng(10);
  TestModel<unsigned int, unsigned int> model(2, {{0, 1}}, {2, 2});
  model.weights = {9, 0, 0, 9};
  const unsigned observed[] = {~0u, ~0u};
  Sampler<unsigned int, unsigned int> sampler(model, rng);
  EXPECT_EQ(QZ::gibbs_exponent(sampler.model(), observed, 0u, 0u), 0u);
}

TEST(Gibbs, ASelfLoopCountsAtBothEnds) {
  std::mt19937 rng(11);
  TestModel<unsigned int, double> model(1, {{0, 0}}, {2});
  model.weights = {1, 2, 4, 8};
  const double observed[] = {-1};
  Sampler<unsigned int, double> sampler(model, rng);
  const auto pieces = sampler.model();
  // Listed twice, each time with row y and with column y; the other end counts as state 0.
  EXPECT_EQ(QZ::gibbs_exponent(pieces, observed, 0u, 0u), 2 * (1 + 1));
  EXPECT_EQ(QZ::gibbs_exponent(pieces, observed, 0u, 1u), 2 * (4 + 2));
}

TEST(Gibbs, AVertexWithoutStatesStaysWithoutOne) {
  std::mt19937 rng(12);
  TestModel<unsigned int, double> model(1, {}, {0});
  Sampler<unsigned int, double> sampler(model, rng);
  EXPECT_EQ(sampler.sample({0}, 3, true)[0], -1);
}

template <class idx_t>
void sample_for_a_second(std::size_t vertices, std::size_t sweeps) {
  std::mt19937 rng(13);
  TestModel<idx_t, float> model(vertices, qz_test::chain_edges(vertices),
                                std::vector<std::size_t>(vertices, 1));
  Sampler<idx_t, float> sampler(model, rng);
  ::alarm(1);
  sampler.sample(std::vector<float>(vertices, 0), sweeps, false);
  ::_exit(0);
}

TEST(GibbsDeathTest, ANarrowCounterNeverReachesALongerRun) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(sample_for_a_second<unsigned char>(16, 16), testing::KilledBySignal(SIGALRM), "");
  EXPECT_EXIT(sample_for_a_second<unsigned char>(15, 17), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(sample_for_a_second<unsigned int>(16, 16), testing::ExitedWithCode(0), "");
}

}  // namespace
