#include "QZ/bp/hugin.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

#include "support/pair_types.h"
#include "support/run_lbp.h"

namespace {

using qz_test::enumerate;
using qz_test::expect_exact_marginals;
using qz_test::TestModel;
using qz_test::vertex_probability;

template <class idx_t, class val_t>
class Hugin : public QZ::HuginAlgorithm<idx_t, val_t> {
 public:
  explicit Hugin(TestModel<idx_t, val_t>& model)
      : QZ::HuginAlgorithm<idx_t, val_t>(model.graph.get(), model.states.data(),
                                         model.weights.data(), nullptr) {}
};

using Model = TestModel<unsigned int, double>;
using Engine = Hugin<unsigned int, double>;

template <class val_t>
double tolerance() {
  return std::is_same_v<val_t, float> ? 1e-4 : 1e-10;
}

template <class P>
class HuginPairs : public testing::Test {};
TYPED_TEST_SUITE(HuginPairs, qz_test::FloatPairs);

template <class idx_t, class val_t>
void expect_exact(TestModel<idx_t, val_t>& model) {
  const auto exact = enumerate(model);
  Hugin<idx_t, val_t> engine(model);
  for (const idx_t mode : {idx_t(0), idx_t(1), idx_t(10)}) {
    engine.infer(mode);
    EXPECT_NEAR(engine.log_partition, static_cast<double>(exact.log_partition),
                tolerance<val_t>() * 10);
    expect_exact_marginals(engine, model, exact, tolerance<val_t>());
  }
}

TYPED_TEST(HuginPairs, IsExactOnGraphsOfEveryShape) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  std::mt19937 rng(1);
  std::vector<TestModel<idx_t, val_t>> models;
  models.emplace_back(6, qz_test::grid_edges(2, 3), qz_test::random_counts(6, 1, 3, rng));
  models.emplace_back(5, qz_test::complete_edges(4), qz_test::random_counts(5, 1, 3, rng));
  models.emplace_back(7, qz_test::tree_edges(7, rng), qz_test::random_counts(7, 1, 4, rng));
  models.emplace_back(6, qz_test::chain_edges(3), qz_test::random_counts(6, 2, 3, rng));
  models.emplace_back(3, std::vector<std::pair<std::size_t, std::size_t>>{},
                      qz_test::random_counts(3, 2, 4, rng));
  models.emplace_back(1, std::vector<std::pair<std::size_t, std::size_t>>{},
                      std::vector<std::size_t>{3});
  for (auto& model : models) {
    model.gaussian(1, rng);
    expect_exact(model);
  }
}

TEST(Hugin, IsExactOnRandomGraphs) {
  std::mt19937 rng(2);
  for (int round = 0; round < 60; ++round) {
    const std::size_t n = 2 + rng() % 8;
    std::vector<std::pair<std::size_t, std::size_t>> edges;
    const unsigned chance = 10 + rng() % 60;
    for (std::size_t s = 0; s < n; ++s) {
      for (std::size_t t = s + 1; t < n; ++t) {
        if (rng() % 100 >= chance) continue;
        if (rng() % 2 == 0) {
          edges.emplace_back(s, t);
        } else {
          edges.emplace_back(t, s);
        }
      }
    }
    std::shuffle(edges.begin(), edges.end(), rng);
    Model model(n, edges, qz_test::random_counts(n, 1, 4, rng));
    model.gaussian(2, rng);
    expect_exact(model);
  }
}

/// A model whose cliques have more entries than a block: all but two of the vertices are linked to
/// each other, and those two to some.
template <class idx_t, class val_t>
void expect_exact_in_blocks(std::size_t vertices, std::size_t states) {
  std::mt19937 rng(20);
  auto edges = qz_test::complete_edges(vertices - 2);
  for (std::size_t v = 0; v < vertices - 2; ++v) {
    if (v != 1) edges.emplace_back(vertices - 2, v);
    if (v % 3 != 0) edges.emplace_back(v, vertices - 1);
  }
  for (auto& [s, t] : edges) {
    s = (s * 5 + 2) % vertices;
    t = (t * 5 + 2) % vertices;
  }
  TestModel<idx_t, val_t> model(vertices, edges, std::vector<std::size_t>(vertices, states));
  model.gaussian(0.3, rng);
  expect_exact(model);
}

TEST(Hugin, IsExactWhereTablesAreWalkedInBlocks) {
  expect_exact_in_blocks<unsigned short, float>(13, 2);
  expect_exact_in_blocks<unsigned int, double>(13, 2);
  expect_exact_in_blocks<unsigned int, double>(8, 3);
  expect_exact_in_blocks<unsigned long, float>(8, 3);
}

TEST(Hugin, LoopsAndParallelEdgesCount) {
  std::mt19937 rng(3);
  Model model(3, {{0, 1}, {1, 0}, {1, 1}, {2, 2}}, {2, 3, 2});
  model.gaussian(1, rng);
  const auto exact = enumerate(model);
  Engine engine(model);
  engine.infer(0);
  EXPECT_NEAR(engine.log_partition, static_cast<double>(exact.log_partition), 1e-12);
  expect_exact_marginals(engine, model, exact, 1e-12);
}

TEST(Hugin, IgnoresObservationsAndModes) {
  std::mt19937 rng(4);
  Model model(4, qz_test::grid_edges(2, 2), {2, 2, 2, 2});
  model.gaussian(1, rng);
  Engine engine(model);
  engine.infer(0);
  const double before = engine.log_partition;
  const double p = vertex_probability(engine, 0, 0);
  engine.observe(0, 1);
  for (const unsigned mode : {0u, 1u, 10u}) {
    engine.infer(mode);
    EXPECT_EQ(engine.log_partition, before);
    EXPECT_EQ(vertex_probability(engine, 0, 0), p);
  }
  EXPECT_EQ(engine.moment_norms[0], -1);
}

TEST(Hugin, FollowsTheWeightsWithoutARebuild) {
  std::mt19937 rng(5);
  Model model(6, qz_test::grid_edges(2, 3), {2, 3, 2, 3, 2, 3});
  Engine engine(model);
  for (int round = 0; round < 3; ++round) {
    model.gaussian(1, rng);
    engine.infer(0);
    expect_exact_marginals(engine, model, enumerate(model), 1e-12);
  }
}

TEST(Hugin, TablesAreNormalisedAndHaveTheLowestVertexFastest) {
  std::mt19937 rng(6);
  Model model(2, {{1, 0}}, {2, 3});
  model.gaussian(1, rng);
  Engine engine(model);
  engine.infer(0);
  ASSERT_EQ(engine.potential_count, 6u);
  EXPECT_EQ(engine.clique_potential_count, 6u);
  EXPECT_EQ(engine.node_size[0], 6u);
  EXPECT_EQ(engine.node_offsets[1], 6u);
  for (std::size_t x0 = 0; x0 < 2; ++x0) {
    for (std::size_t x1 = 0; x1 < 3; ++x1) {
      EXPECT_NEAR(engine.potentials[x0 + 2 * x1], model.weights[x1 * 2 + x0] - engine.log_partition,
                  1e-12);
    }
  }
}

TEST(Hugin, EveryTableSumsToOne) {
  std::mt19937 rng(7);
  TestModel<unsigned int, float> model(16, qz_test::grid_edges(4, 4),
                                       qz_test::random_counts(16, 1, 3, rng));
  model.gaussian(2, rng);
  Hugin<unsigned int, float> engine(model);
  engine.infer(0);
  for (unsigned node = 0; node < engine.tree->vertices(); ++node) {
    double sum = 0;
    for (unsigned i = engine.node_offsets[node]; i < engine.node_offsets[node + 1]; ++i) {
      sum += std::exp(static_cast<double>(engine.potentials[i]));
    }
    EXPECT_NEAR(sum, 1, 1e-5) << node;
  }
}

void expect_the_same_step_by_step(Model& model) {
  Engine whole(model);
  whole.infer(0);
  Engine steps(model);
  std::fill_n(steps.potentials, steps.potential_count, 0.0);
  steps.convert_w_psi();
  steps.collect(0, 0);
  steps.distribute(0, 0);
  for (unsigned i = 0; i < whole.potential_count; ++i) {
    EXPECT_NEAR(steps.potentials[i], whole.potentials[i], 1e-11);
  }
}

TEST(Hugin, StepByStepIsTheSameAsTheWhole) {
  std::mt19937 rng(8);
  Model grid(9, qz_test::grid_edges(3, 3), qz_test::random_counts(9, 2, 3, rng));
  grid.gaussian(1, rng);
  expect_the_same_step_by_step(grid);
  for (int round = 0; round < 10; ++round) {
    Model tree(40, qz_test::tree_edges(40, rng), qz_test::random_counts(40, 1, 5, rng));
    tree.gaussian(1, rng);
    expect_the_same_step_by_step(tree);
  }
}

TEST(Hugin, AMessageMovesTheMarginOfOneCliqueToTheOther) {
  Model model(3, qz_test::chain_edges(3), {2, 2, 2});
  model.weights = {1, 2, 3, 4, 0, 0, 0, 0};
  Engine engine(model);
  std::fill_n(engine.potentials, engine.potential_count, 0.0);
  engine.convert_w_psi();
  const unsigned from = engine.node_of_edge[0];
  const unsigned to = engine.node_of_edge[1];
  engine.hugin_message(from, to, 2);
  const double* separator = engine.potentials + engine.node_offsets[2];
  EXPECT_NEAR(separator[0], std::log(std::exp(1.0) + std::exp(3.0)), 1e-14);
  EXPECT_NEAR(separator[1], std::log(std::exp(2.0) + std::exp(4.0)), 1e-14);
  const double* table = engine.potentials + engine.node_offsets[to];
  for (int i = 0; i < 4; ++i) EXPECT_EQ(table[i], separator[i % 2]);
  // The same message again has nothing new.
  engine.hugin_message(from, to, 2);
  for (int i = 0; i < 4; ++i) EXPECT_EQ(table[i], separator[i % 2]);
}

TEST(Hugin, AMarginAboveTheLargestNumberIsHeldThere) {
  Model model(3, qz_test::chain_edges(3), {2, 2, 2});
  model.weights = {900, 1, 900, 1, 0, 0, 0, 0};
  Engine engine(model);
  std::fill_n(engine.potentials, engine.potential_count, 0.0);
  engine.convert_w_psi();
  engine.hugin_message(engine.node_of_edge[0], engine.node_of_edge[1], 2);
  EXPECT_EQ(engine.potentials[engine.node_offsets[2]],
            std::log(std::numeric_limits<double>::max()));
}

TEST(Hugin, AnUnderflowOfTheFirstEntryLeavesTheValueFinite) {
  for (const double weight : {-1000.0, 1000.0}) {
    Model model(2, {{0, 1}}, {2, 2});
    model.weights = {0, 0, 0, 0};
    model.weights[weight < 0 ? 0 : 3] = weight;
    Engine engine(model);
    engine.infer(0);
    // The first weight, less the logarithm of the smallest number.
    const double smallest = std::log(std::numeric_limits<double>::min());
    EXPECT_DOUBLE_EQ(engine.log_partition, (weight < 0 ? weight : 0) - smallest);
    EXPECT_NEAR(vertex_probability(engine, 0, 1), weight < 0 ? 2.0 / 3 : 1, 1e-12);
  }
}

TEST(Hugin, AWeightThatAllStatesShareMayBeHuge) {
  std::mt19937 rng(21);
  for (const double shift : {-3000.0, 3000.0}) {
    for (std::size_t shifted = 0; shifted < 4; ++shifted) {
      Model model(5, {{0, 1}, {1, 2}, {1, 3}, {3, 4}}, {2, 3, 2, 2, 3});
      model.gaussian(1, rng);
      const auto exact = enumerate(model);
      Engine engine(model);
      const std::size_t end = engine.weight_offsets[shifted + 1];
      for (std::size_t i = engine.weight_offsets[shifted]; i < end; ++i) model.weights[i] += shift;
      engine.infer(0);
      EXPECT_NEAR(engine.log_partition, static_cast<double>(exact.log_partition) + shift, 1e-11);
      expect_exact_marginals(engine, model, exact, 1e-11);
    }
  }
}

TEST(Hugin, AStateThatIsRuledOutLeavesTheOthersExact) {
  std::mt19937 rng(22);
  for (const std::size_t edge : {0, 1, 2}) {
    Model model(4, qz_test::chain_edges(4), {2, 3, 3, 2});
    model.gaussian(1, rng);
    Engine engine(model);
    // The second state of the first end of an edge.
    const std::size_t columns = model.states[edge + 1];
    for (std::size_t y = 0; y < columns; ++y) {
      model.weights[engine.weight_offsets[edge] + columns + y] = -2000;
    }
    const auto exact = enumerate(model);
    for (int round = 0; round < 2; ++round) {
      engine.infer(0);
      EXPECT_NEAR(engine.log_partition, static_cast<double>(exact.log_partition), 1e-12);
      expect_exact_marginals(engine, model, exact, 1e-12);
      EXPECT_EQ(vertex_probability(engine, edge, 1), 0);
    }
    engine.collect(0, 0);
    engine.distribute(0, 0);
    expect_exact_marginals(engine, model, exact, 1e-12);
  }
}

TEST(Hugin, PropagatingAgainChangesNothing) {
  std::mt19937 rng(23);
  Model model(9, qz_test::grid_edges(3, 3), qz_test::random_counts(9, 2, 3, rng));
  model.gaussian(1, rng);
  const auto exact = enumerate(model);
  Engine engine(model);
  engine.infer(0);
  for (const unsigned root : {0u, 2u, engine.tree->cliqueCount - 1u}) {
    engine.collect(root, root);
    engine.distribute(root, root);
    expect_exact_marginals(engine, model, exact, 1e-12);
  }
}

TEST(Hugin, ALongChainStaysInRange) {
  constexpr std::size_t n = 20000;
  TestModel<unsigned int, double> model(n, qz_test::chain_edges(n), std::vector<std::size_t>(n, 3));
  std::mt19937 rng(9);
  model.gaussian(1, rng);
  // Forward sums, rescaled at every step.
  std::vector<double> forward(3, 1);
  double log_z = 0;
  for (std::size_t e = 0; e + 1 < n; ++e) {
    std::vector<double> next(3, 0);
    for (std::size_t x = 0; x < 3; ++x) {
      for (std::size_t y = 0; y < 3; ++y)
        next[y] += forward[x] * std::exp(model.weights[9 * e + 3 * x + y]);
    }
    const double sum = next[0] + next[1] + next[2];
    log_z += std::log(sum);
    for (std::size_t y = 0; y < 3; ++y) forward[y] = next[y] / sum;
  }
  Hugin<unsigned int, double> engine(model);
  engine.infer(0);
  EXPECT_NEAR(engine.log_partition / log_z, 1, 1e-11);
  for (std::size_t y = 0; y < 3; ++y) {
    EXPECT_NEAR(vertex_probability(engine, n - 1, y), forward[y], 1e-11);
  }
  TestModel<unsigned int, float> single(n, qz_test::chain_edges(n), std::vector<std::size_t>(n, 3));
  std::copy(model.weights.begin(), model.weights.end(), single.weights.begin());
  Hugin<unsigned int, float> rough(single);
  rough.infer(0);
  EXPECT_NEAR(rough.log_partition / log_z, 1, 1e-5);
  EXPECT_NEAR(vertex_probability(rough, n / 2, 1), vertex_probability(engine, n / 2, 1), 1e-4);
}

TEST(Hugin, AVertexWithoutStatesHasNoProbability) {
  Model model(3, qz_test::chain_edges(3), {2, 0, 2});
  Engine engine(model);
  engine.infer(0);
  EXPECT_EQ(vertex_probability(engine, 0, 1), 0);
}

TEST(Hugin, RefusesTablesThatItsIndexTypeCannotNumber) {
  // Eight vertices that are all linked make one table of 256 entries.
  TestModel<unsigned char, float> model(8, qz_test::complete_edges(8),
                                        std::vector<std::size_t>(8, 2));
  try {
    Hugin<unsigned char, float> engine(model);
    FAIL();
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "the index type is too narrow for the model");
  }
  TestModel<unsigned char, float> fits(7, qz_test::complete_edges(7),
                                       std::vector<std::size_t>(7, 2));
  EXPECT_EQ((Hugin<unsigned char, float>(fits).potential_count), 128);
}

TEST(Hugin, AHugeCliqueIsOutOfMemoryAndNotACrash) {
  TestModel<unsigned long, float> model(70, qz_test::complete_edges(70),
                                        std::vector<std::size_t>(70, 2));
  EXPECT_ANY_THROW((Hugin<unsigned long, float>(model)));
}

TEST(HuginDeathTest, AnEdgeWithoutACliqueIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Model model(3, qz_test::chain_edges(3), {2, 2, 2});
  Engine engine(model);
  engine.tree->cliqueCount = 0;
  EXPECT_DEATH(engine.infer(0), "./src/include/QZ/QZBP:[0-9]+: .*!H->isSeparator\\(C\\)");
}

TEST(HuginDeathTest, AStateThatIsNotFoundIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Model model(3, qz_test::chain_edges(3), {2, 2, 2});
  Engine engine(model);
  std::swap(engine.node_of_edge[0], engine.node_of_edge[1]);
  EXPECT_DEATH(engine.convert_w_psi(),
               "./src/include/QZ/QZBP:[0-9]+: .*xs!=\\(idx_t\\)-1&&xt!=\\(idx_t\\)-1");
}

TEST(HuginDeathTest, ATreeThatIsNotBipartiteIsFatal) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Model model(3, qz_test::chain_edges(3), {2, 2, 2});
  Engine engine(model);
  engine.tree->cliqueCount = 3;
  EXPECT_DEATH(engine.collect(0, 0), "./src/include/QZ/QZBP:[0-9]+: .*H->isSeparator\\(S\\)");
  EXPECT_DEATH(engine.distribute(0, 0), "./src/include/QZ/QZBP:[0-9]+: .*H->isSeparator\\(S\\)");
}

TEST(Hugin, AStateThatAVertexDoesNotHaveHasNoProbability) {
  Model model(3, qz_test::chain_edges(3), {2, 3, 2});
  Engine engine(model);
  engine.infer(0);
  EXPECT_EQ(vertex_probability(engine, 0, 2), 0);
  double q = 1;
  double Z = 0;
  engine.edge_marginal(0, 2, 0, q, Z);
  EXPECT_EQ(q, 0);
  engine.edge_marginal(0, 0, 3, q, Z);
  EXPECT_EQ(q, 0);
  EXPECT_EQ(Z, 1);
  EXPECT_THROW(engine.vertex_marginal(3, 0, q, Z), std::out_of_range);
  EXPECT_THROW(engine.edge_marginal(2, 0, 0, q, Z), std::out_of_range);
}

TEST(Hugin, ABadNodeNumberIsOutOfRange) {
  Model model(3, qz_test::chain_edges(3), {2, 2, 2});
  Engine engine(model);
  EXPECT_THROW(engine.tree->vertexObjects(3), std::out_of_range);
}

}  // namespace
