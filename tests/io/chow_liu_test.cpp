#include <gtest/gtest.h>

#include <cmath>

#include "QZ/graph/complete.h"
#include "support/graph_contents.h"
#include "support/learned_model.h"
#include "support/pair_types.h"

namespace {

using namespace qz_test;

template <class pair_t>
class ChowLiu : public ::testing::Test {
 public:
  using I = typename pair_t::idx_t;
  using V = typename pair_t::val_t;

  static OwnedModel<I, V> complete(PlainTable& table) {
    return counted_model<I, V>(table, new QZ::Kn<I>(static_cast<I>(table.n), nullptr));
  }
};
TYPED_TEST_SUITE(ChowLiu, AllPairs);

/// The mutual information of two columns.
double information(const PlainTable& table, unsigned long a, unsigned long b) {
  return plain_entropy(table, {a}) + plain_entropy(table, {b}) - plain_entropy(table, {a, b});
}

double total_information(const PlainTable& table, const EdgeList& edges) {
  double sum = 0;
  for (const auto& [s, t] : edges) sum += information(table, s, t);
  return sum;
}

/// The tree of a sequence of n - 2 vertices (Prüfer 1918).
EdgeList tree_of(std::vector<unsigned long> sequence) {
  const std::size_t n = sequence.size() + 2;
  std::vector<int> degree(n, 1);
  for (const unsigned long v : sequence) ++degree[v];
  EdgeList edges;
  for (const unsigned long v : sequence) {
    const auto leaf = std::find(degree.begin(), degree.end(), 1) - degree.begin();
    edges.emplace_back(leaf, v);
    --degree[leaf];
    --degree[v];
  }
  const auto first = std::find(degree.begin(), degree.end(), 1);
  const auto second = std::find(first + 1, degree.end(), 1);
  edges.emplace_back(first - degree.begin(), second - degree.begin());
  return edges;
}

TYPED_TEST(ChowLiu, IsTheBestOfAllTrees) {
  for (unsigned seed = 0; seed < 10; ++seed) {
    const auto table = random_table(100, {2, 3, 2, 2, 3}, 0, seed);
    const auto model = TestFixture::complete(*table);
    model->buildChowLiu(nullptr);
    const auto tree = edges_of(*model->graph);
    ASSERT_EQ(tree.size(), 4);
    double best = 0;
    for (unsigned long code = 0; code < 125; ++code) {
      const auto other = tree_of({code / 25, code / 5 % 5, code % 5});
      best = std::max(best, total_information(*table, other));
    }
    EXPECT_NEAR(total_information(*table, tree), best, 1e-12);
  }
}

TYPED_TEST(ChowLiu, CopiesTheCountsOfItsEdges) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  const auto table = random_table(90, {2, 3, 2, 2}, 0, 3);
  const auto model = TestFixture::complete(*table);
  model->buildChowLiu(nullptr);
  EXPECT_EQ(model->graphType, 6);
  EXPECT_EQ(model->dim, calcDim(*model->graph, model->states));
  const auto expected = plain_statistics<V>(*table, *model->graph, states_of<I>(*table));
  EXPECT_EQ(copy_of(model->stats, model->statsLength), expected);
  EXPECT_EQ(copy_of(model->weights, model->dim), std::vector<V>(model->dim, 0));
  EXPECT_NO_THROW(model->require_matching_arrays());
}

TYPED_TEST(ChowLiu, NumbersItsEdgesRowByRow) {
  const auto table = random_table(100, {2, 2, 2, 2, 2}, 0, 7);
  const auto model = TestFixture::complete(*table);
  model->buildChowLiu(nullptr);
  auto edges = edges_of(*model->graph);
  const auto found = edges;
  std::sort(edges.begin(), edges.end());
  EXPECT_EQ(found, edges);
  for (const auto& [s, t] : edges) EXPECT_LT(s, t);
}

TYPED_TEST(ChowLiu, OfTwoColumnsIsTheirEdge) {
  PlainTable table;
  table.fill(4, {2, 2}, {0, 0, 0, 1, 1, 0, 1, 1});
  const auto model = TestFixture::complete(table);
  model->buildChowLiu(nullptr);
  EXPECT_EQ(edges_of(*model->graph), (EdgeList{{0, 1}}));
}

TYPED_TEST(ChowLiu, OfOneColumnHasNoEdge) {
  PlainTable table;
  table.fill(2, {2}, {0, 1});
  const auto model = TestFixture::complete(table);
  model->buildChowLiu(nullptr);
  EXPECT_EQ(model->graph->edges(), 0);
  EXPECT_EQ(model->dim, 0);
}

TYPED_TEST(ChowLiu, OfAGraphWithoutSomePairIsAForest) {
  using I = typename TestFixture::I;
  const auto table = random_table(80, {2, 2, 2, 2}, 0, 5);
  const auto model =
      counted_model<I, typename TestFixture::V>(*table, listed_graph<I>(4, {{3, 2}, {0, 1}}));
  model->buildChowLiu(nullptr);
  EXPECT_EQ(edges_of(*model->graph), (EdgeList{{0, 1}, {2, 3}}));
  // The block of (3, 2) is taken as it stands.
  EXPECT_EQ(model->stats[model->offsets[5] + 1],
            (plain_block<typename TestFixture::V>(*table, {3, 2}, states_of<I>(*table))[1]));
}

TYPED_TEST(ChowLiu, ReportsEveryEdge) {
  const auto table = random_table(30, {2, 2, 2}, 0, 5);
  const auto model = TestFixture::complete(*table);
  Reports::list.clear();
  model->buildChowLiu(&Reports::note);
  EXPECT_EQ(Reports::list,
            (std::vector<Reports::Report>{{1, 3, "CL   "}, {2, 3, "CL   "}, {3, 3, "CL   "}}));
}

// Independent columns: every tree has weight near 0.
TYPED_TEST(ChowLiu, OfIndependentColumnsIsSomeTree) {
  PlainTable table;
  std::vector<unsigned short> cells;
  for (unsigned short row = 0; row < 8; ++row) {
    for (int bit = 0; bit < 3; ++bit) cells.push_back(row >> bit & 1);
  }
  table.fill(8, {2, 2, 2}, cells);
  const auto model = TestFixture::complete(table);
  model->buildChowLiu(nullptr);
  EXPECT_EQ(model->graph->edges(), 2);
}

TEST(MutualInformation, IgnoresEmptyCells) {
  PlainTable table;
  table.fill(4, {2, 3}, {0, 0, 0, 0, 1, 2, 1, 2});
  const auto model = counted_model<u64, double>(table, new QZ::Kn<u64>(2, nullptr));
  const auto weights = QZ::mutual_information(*model, {});
  EXPECT_NEAR(weights[0], std::log(2.0), 1e-15);
}

}  // namespace
