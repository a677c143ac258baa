#include "QZ/machine/operations/predict.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/pair_types.h"
#include "support/plain_table.h"
#include "support/small_model.h"

namespace {

/// Vertex marginals q / Z from a list; Z is 8.
template <class idx_t, class val_t>
class Reciting : public QZ::InferenceAlgorithm<idx_t, val_t> {
 public:
  using QZ::InferenceAlgorithm<idx_t, val_t>::InferenceAlgorithm;
  void infer(const idx_t&) override {}
  void vertex_marginal(const idx_t& v, const idx_t& x, val_t& q, val_t& Z) const override {
    q = marginals.at(v).at(x);
    Z += norm;
  }
  void edge_marginal(const idx_t&, const idx_t&, const idx_t&, val_t&, val_t&) const override {}
  std::vector<std::vector<val_t>> marginals;
  val_t norm = 8;
};

template <class Pair>
class RowPredictor : public ::testing::Test {
 protected:
  using idx_t = typename Pair::idx_t;
  using val_t = typename Pair::val_t;

  RowPredictor() {
    table.fill(1, {2, 3, 2, 2}, {65535, 65535, 65535, 1});
    engine.marginals = {{4, 4}, {1, 8, 7}, {0, 0}, {8, 0}};
  }
  std::vector<unsigned long> row() const {
    return {table.get(0, 0), table.get(1, 0), table.get(2, 0), table.get(3, 0)};
  }

  qz_test::OwnedModel<idx_t, val_t> container = qz_test::numbered_model<idx_t, val_t>(
      qz_test::listed_graph<idx_t>(4, {{0, 1}, {2, 0}, {1, 3}}), {2, 3, 2, 2});
  Reciting<idx_t, val_t> engine{container->graph, container->states, container->weights, nullptr};
  qz_test::PlainTable table;
};
TYPED_TEST_SUITE(RowPredictor, qz_test::AllPairs);

TYPED_TEST(RowPredictor, WritesTheLastOfTheBestStatesForIntegersAndStateZeroForFloats) {
  QZ::RowPredictor predictor(this->engine, *this->container, this->table);
  predictor.complete(0);
  if (std::is_integral_v<typename TypeParam::val_t>) {
    EXPECT_EQ(this->row(), (std::vector<unsigned long>{1, 1, 1, 1}));
  } else {
    EXPECT_EQ(this->row(), (std::vector<unsigned long>{0, 0, 0, 1}));
  }
}

TYPED_TEST(RowPredictor, WritesProbabilitiesAsTheValueTypeHoldsThem) {
  QZ::RowPredictor predictor(this->engine, *this->container, this->table);
  predictor.complete(0);
  predictor.annotate(0);
  const auto& texts = this->table.annotations;
  ASSERT_EQ(texts.size(), 3u);
  if (std::is_integral_v<typename TypeParam::val_t>) {
    EXPECT_EQ(texts.at({0, 0}), "[a:0;b:0]");
    EXPECT_EQ(texts.at({0, 1}), "[a:0;b:1;c:0]");
  } else {
    EXPECT_EQ(texts.at({0, 0}), "[a:0.5;b:0.5]");
    EXPECT_EQ(texts.at({0, 1}), "[a:0.125;b:1;c:0.875]");
  }
}

TYPED_TEST(RowPredictor, SurvivesANormaliserOfZero) {
  this->engine.norm = 0;
  QZ::RowPredictor predictor(this->engine, *this->container, this->table);
  predictor.complete(0);
  predictor.annotate(0);
  EXPECT_EQ(this->table.annotations.size(), 3u);
}

TYPED_TEST(RowPredictor, TakesANumberBeyondTheTypeForNoState) {
  this->table.set(257, 3, 0, true);
  QZ::RowPredictor predictor(this->engine, *this->container, this->table);
  predictor.complete(0);
  // Cut to a byte it would have been state 1; the engine finds state 0.
  EXPECT_EQ(this->row()[3], 0u);
}

TYPED_TEST(RowPredictor, GivesStateZeroToAVertexWithoutStates) {
  this->engine.states[2] = 0;
  QZ::RowPredictor predictor(this->engine, *this->container, this->table);
  predictor.complete(0);
  predictor.annotate(0);
  EXPECT_EQ(this->row()[2], 0u);
  EXPECT_EQ(this->table.annotations.at({0, 2}), "[]");
}

}  // namespace
