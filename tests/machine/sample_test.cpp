#include "QZ/machine/operations/sample.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <set>

#include "QZ/mrf/mrf.h"
#include "support/pair_types.h"
#include "support/plain_table.h"
#include "support/small_model.h"

namespace {

using ::testing::ElementsAre;

/// An engine that keeps the weights it is asked about and recites vertex marginals.
template <class idx_t, class val_t>
class Listening : public QZ::InferenceAlgorithm<idx_t, val_t> {
 public:
  using QZ::InferenceAlgorithm<idx_t, val_t>::InferenceAlgorithm;
  void infer(const idx_t& mode) override {
    modes.push_back(mode);
    heard.assign(this->weights, this->weights + this->dim);
  }
  void vertex_marginal(const idx_t& v, const idx_t& x, val_t& q, val_t& Z) const override {
    q = marginals.at(v).at(x);
    Z += 1;
  }
  void edge_marginal(const idx_t&, const idx_t&, const idx_t&, val_t&, val_t&) const override {}

  std::vector<idx_t> modes;
  std::vector<val_t> heard;
  std::vector<std::vector<val_t>> marginals;
};

/// A star with two leaves and an edge between them, as container, engine and model.
template <class idx_t, class val_t>
struct Setting {
  qz_test::OwnedModel<idx_t, val_t> container = qz_test::numbered_model<idx_t, val_t>(
      qz_test::listed_graph<idx_t>(4, {{0, 1}, {2, 0}, {1, 2}}), {2, 3, 2, 2});
  std::vector<val_t> weights{container->weights, container->weights + container->dim};
  Listening<idx_t, val_t> engine{container->graph, container->states, weights.data(), nullptr};
  QZ::MRF<idx_t, val_t> model{&engine};
  std::mt19937 rng{11};

  Setting() { engine.marginals = {{3, 3}, {1, 5, 5}, {7, 2}, {0, 0}}; }
};

/// The perturbation by a plain reading of its steps.
template <class idx_t, class val_t>
std::vector<val_t> plainly_perturbed(Setting<idx_t, val_t>& setting, double scale,
                                     std::mt19937 rng) {
  std::vector<val_t> point = setting.weights;
  const auto& graph = *setting.container->graph;
  const auto shuffled = [&](unsigned long n) {
    std::vector<unsigned long> order(n);
    std::iota(order.begin(), order.end(), 0);
    for (unsigned long i = 0; i < n; ++i) {
      std::swap(order[i], order[std::uniform_int_distribution<idx_t>(0, n - 1)(rng)]);
    }
    return order;
  };
  const auto noise = [&] {
    const double a = rng(), b = rng();
    return -std::log(-std::log(1 - (a + b * 4294967296.0) / 18446744073709551616.0)) * scale;
  };
  const auto add = [&](unsigned long k, double amount) {
    double sum = static_cast<double>(point[k]) + amount;
    if (std::is_integral_v<val_t>) {
      sum = std::clamp(std::trunc(sum), 0.0, static_cast<double>(val_t(-1)));
    }
    point[k] = static_cast<val_t>(sum);
  };
  const unsigned long starts[] = {0, 6, 10, 16};
  std::set<unsigned long> finished;
  for (const unsigned long v : shuffled(4)) {
    bool found = false;
    const auto slots = shuffled(graph.num_neighbors(static_cast<idx_t>(v)));
    for (const unsigned long slot : slots) {
      const unsigned long e = graph.in_edge(static_cast<idx_t>(v), static_cast<idx_t>(slot));
      if (finished.count(e) != 0) continue;
      finished.insert(e);
      for (unsigned long k = starts[e]; k < starts[e + 1]; ++k) add(k, noise());
      found = true;
      break;
    }
    if (found || slots.empty()) continue;
    const unsigned long e = graph.in_edge(static_cast<idx_t>(v), 0);
    for (unsigned long y = 0; y < setting.container->states[v]; ++y) {
      const double shift = noise();
      for (unsigned long k = starts[e]; k < starts[e + 1]; ++k) add(k, shift);
    }
  }
  return point;
}

template <class Pair>
class PerturbedDecoder : public ::testing::Test {};
TYPED_TEST_SUITE(PerturbedDecoder, qz_test::AllPairs);

TYPED_TEST(PerturbedDecoder, PerturbsAnEdgePerVertexAndABlockWhereNoneIsLeft) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  for (unsigned seed = 0; seed < 20; ++seed) {
    Setting<idx_t, val_t> setting;
    setting.rng.seed(seed);
    const auto expected = plainly_perturbed(setting, 2.5, setting.rng);
    QZ::PerturbedDecoder<idx_t, val_t> decoder(setting.model, *setting.container, 2.5, setting.rng);
    std::vector<val_t> x(4, static_cast<val_t>(-1));
    decoder.sample(x.data());
    EXPECT_EQ(setting.engine.heard, expected) << seed;
    EXPECT_THAT(setting.engine.modes, ElementsAre(1));
    // The next sample starts from the container's weights again.
    EXPECT_EQ(setting.weights, qz_test::copy_of(setting.container->weights, 16));
  }
}

TYPED_TEST(PerturbedDecoder, GivesTheLastOfTheBestStatesToIntegersAndLeavesFreeFloatsAlone) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  Setting<idx_t, val_t> setting;
  QZ::PerturbedDecoder<idx_t, val_t> decoder(setting.model, *setting.container, 1, setting.rng);
  std::vector<val_t> x{static_cast<val_t>(-1), 7, 1, static_cast<val_t>(-1)};
  decoder.sample(x.data());
  if (std::is_integral_v<val_t>) {
    EXPECT_THAT(x, ElementsAre(1, 2, 1, 1));
  } else {
    EXPECT_THAT(x, ElementsAre(-1, -1, 1, -1));
  }
}

TEST(SampleRows, ReadsMissingCellsAsFreeAndNumbersBeyondTheTypeAsNoState) {
  qz_test::PlainTable table;
  table.fill(1, {2, 2, 2}, {1, 65535, 300});
  std::vector<double> reals(4);
  QZ::read_row(table, 0, reals);
  EXPECT_THAT(reals, ElementsAre(1, -1, 300, -1));
  std::vector<unsigned char> bytes(4);
  QZ::read_row(table, 0, bytes);
  EXPECT_THAT(bytes, ElementsAre(1, 255, 255, 255));
}

TEST(SampleRows, WritesNegativeStatesAsStateZero) {
  qz_test::PlainTable table;
  table.fill(1, {2, 2}, {1, 1});
  QZ::write_row<unsigned long>(table, 0, std::vector<double>{-1, 1, 5});
  EXPECT_EQ(table.get(0, 0), 0u);
  EXPECT_EQ(table.get(1, 0), 1u);
}

TEST(PrivateWeights, AreGivenBackAtTheEnd) {
  Setting<unsigned, double> setting;
  std::mt19937 own;
  {
    const QZ::PrivateWeights<unsigned, double> hold(setting.engine, own);
    EXPECT_NE(setting.engine.weights, setting.weights.data());
    EXPECT_EQ(qz_test::copy_of(setting.engine.weights, 16), setting.weights);
    EXPECT_EQ(setting.engine.rng, &own);
  }
  EXPECT_EQ(setting.engine.weights, setting.weights.data());
}

}  // namespace
