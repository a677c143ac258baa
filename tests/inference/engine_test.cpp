#include "QZ/inference/engine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "support/enumeration_oracle.h"
#include "support/pair_types.h"
#include "support/pairwise_models.h"

namespace {

using qz_test::TestModel;

/// An engine with nothing of its own.
template <class idx_t, class val_t>
class BareEngine : public QZ::InferenceAlgorithm<idx_t, val_t> {
 public:
  using QZ::InferenceAlgorithm<idx_t, val_t>::InferenceAlgorithm;
  void infer(const idx_t& mode) override { this->infer_slow(mode); }
  void vertex_marginal(const idx_t&, const idx_t&, val_t&, val_t&) const override {}
  void edge_marginal(const idx_t&, const idx_t&, const idx_t&, val_t&, val_t&) const override {}
};

template <class idx_t, class val_t>
BareEngine<idx_t, val_t> engine_on(TestModel<idx_t, val_t>& model) {
  return {model.graph.get(), model.states.data(), model.weights.data(), nullptr};
}

template <class P>
class EngineAllPairs : public testing::Test {};
TYPED_TEST_SUITE(EngineAllPairs, qz_test::AllPairs);

TYPED_TEST(EngineAllPairs, LaysOutTheParametersByEdge) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  TestModel<idx_t, val_t> model(4, {{0, 1}, {3, 1}, {2, 3}}, {2, 3, 1, 4});
  auto engine = engine_on(model);
  EXPECT_EQ(engine.wdim(), 2 * 3 + 4 * 3 + 1 * 4);
  EXPECT_EQ(engine.max_states, 4);
  EXPECT_EQ(engine.max_iterations, 0);
  for (std::size_t e = 0; e <= 3; ++e) EXPECT_EQ(engine.weight_offsets[e], model.offsets[e]);
  EXPECT_EQ(engine.moment_norms[0], static_cast<val_t>(-1));
  EXPECT_EQ(engine.edge_of_weight[0], static_cast<idx_t>(-1));
  EXPECT_FALSE(engine.owns_weights || engine.owns_states || engine.owns_graph);
  for (std::size_t v = 0; v < 4; ++v) EXPECT_EQ(engine.observed[v], static_cast<val_t>(-1));
}

TYPED_TEST(EngineAllPairs, OwnsZeroWeightsWhenItGetsNone) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  TestModel<idx_t, val_t> model(3, {{0, 1}, {1, 2}}, {2, 2, 3});
  BareEngine<idx_t, val_t> engine(model.graph.get(), model.states.data(), nullptr, nullptr);
  EXPECT_TRUE(engine.owns_weights);
  for (std::size_t k = 0; k < engine.dim; ++k) EXPECT_EQ(engine.weights[k], 0);
}

TYPED_TEST(EngineAllPairs, EnumeratesEveryConfiguration) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  TestModel<idx_t, val_t> model(3, {{0, 1}, {1, 2}}, {2, 2, 3});
  auto engine = engine_on(model);
  engine.infer(10);
  // Twelve configurations of weight 1 each; integers cut the logarithm.
  const double log_z = std::log(12.0);
  EXPECT_NEAR(engine.log_partition, std::is_integral_v<val_t> ? std::floor(log_z) : log_z, 1e-6);
  for (std::size_t k = 0; k < engine.dim; ++k) {
    EXPECT_EQ(engine.moment_sums[k], k < 4 ? 3 : 2);
    EXPECT_EQ(engine.moment_norms[k], 1);
  }
}

TEST(Engine, EnumerationMeetsTheReference) {
  std::mt19937 rng(1);
  for (int round = 0; round < 5; ++round) {
    TestModel<unsigned long, double> model(5, qz_test::complete_edges(5),
                                           qz_test::random_counts(5, 1, 4, rng));
    model.gaussian(1, rng);
    auto engine = engine_on(model);
    // Enumeration does not look at observations.
    engine.observe(0, 0);
    engine.infer_slow(0);
    const auto exact = qz_test::enumerate(model);
    EXPECT_NEAR(engine.log_partition, static_cast<double>(exact.log_partition), 1e-12);
    for (std::size_t k = 0; k < model.weights.size(); ++k) {
      EXPECT_NEAR(engine.moment_sums[k] / std::exp(engine.log_partition), exact.edge[k], 1e-12);
    }
  }
}

TEST(Engine, AGraphWithoutEdgesCountsItsConfigurations) {
  TestModel<unsigned int, float> model(3, {}, {4, 5, 6});
  auto engine = engine_on(model);
  engine.infer_slow(0);
  EXPECT_EQ(engine.dim, 0u);
  EXPECT_FLOAT_EQ(engine.log_partition, std::log(120.0f));
}

TEST(Engine, AVertexWithoutStatesLeavesNoConfiguration) {
  TestModel<unsigned int, double> model(2, {}, {4, 0});
  auto engine = engine_on(model);
  engine.infer_slow(0);
  EXPECT_EQ(engine.log_partition, -std::numeric_limits<double>::infinity());
}

TEST(Engine, IntegerEnumerationWraps) {
  // exp(5) is 148.4: two such configurations wrap in eight bits, 148 + 148 + 1 + 1 = 298 - 256
  // = 42.
  TestModel<unsigned char, unsigned char> model(2, {{0, 1}}, {2, 2});
  model.weights = {5, 0, 0, 5};
  auto engine = engine_on(model);
  engine.infer_slow(0);
  EXPECT_EQ(engine.moment_sums[0], 148);
  EXPECT_EQ(engine.moment_sums[1], 1);
  EXPECT_EQ(engine.log_partition, static_cast<unsigned char>(std::log(42.0)));
}

TEST(Engine, IntegerExponentsWrapAtTheirWidth) {
  TestModel<unsigned char, unsigned char> model(3, {{0, 1}, {1, 2}}, {1, 1, 1});
  model.weights = {255, 3};
  auto engine = engine_on(model);
  engine.infer_slow(0);
  // 255 + 3 wraps to 2, and exp(2) is 7.39.
  EXPECT_EQ(engine.moment_sums[0], 7);
}

TYPED_TEST(EngineAllPairs, GuardsObservations) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  TestModel<idx_t, val_t> model(2, {{0, 1}}, {2, 3});
  auto engine = engine_on(model);
  engine.observe(1, 2);
  EXPECT_EQ(engine.observation(1), 2);
  engine.observe(1, 3);
  EXPECT_EQ(engine.observation(1), static_cast<val_t>(-1));
  engine.observe(2, 1);
  EXPECT_EQ(engine.observation(2), static_cast<val_t>(-1));
  engine.observe(0, static_cast<val_t>(-1));
  EXPECT_EQ(engine.observation(0), static_cast<val_t>(-1));
}

TEST(Engine, TheGuardedStoreKeepsNegativeAndSoftStates) {
  TestModel<unsigned int, double> model(1, {}, {2});
  auto engine = engine_on(model);
  for (const double x : {-3.0, 0.25, 1.75}) {
    engine.observe(0, x);
    EXPECT_EQ(engine.observation(0), x);
  }
  engine.observe(0, 2.5);
  EXPECT_EQ(engine.observation(0), -1);
}

TEST(Engine, RefusesAModelThatItsIndexTypeCannotNumber) {
  TestModel<unsigned char, float> model(2, {{0, 1}}, {16, 16});
  try {
    engine_on(model);
    FAIL();
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "the index type is too narrow for the model");
  }
  TestModel<unsigned char, float> fits(2, {{0, 1}}, {15, 17});
  EXPECT_EQ(engine_on(fits).wdim(), 255);
}

}  // namespace
