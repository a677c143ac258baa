#include "QZ/graph/spanning_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "QZ/graph/complete.h"
#include "support/index_types.h"
#include "support/plain_junction_tree.h"
#include "support/random_graphs.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;

template <class idx_t, class weight_t, bool maximum = true>
std::vector<unsigned long> tree_of(const QZ::AbstractGraph<idx_t>& graph,
                                   const std::vector<weight_t>& weights) {
  idx_t* tree = nullptr;
  const QZ::AbstractGraph<idx_t>* const source = &graph;
  QZ::MWST<idx_t, weight_t, maximum>(tree, source, weights.data());
  const std::unique_ptr<idx_t, decltype(&std::free)> owner(tree, &std::free);
  const std::size_t n = graph.vertices();
  return {tree, tree + n * n};
}

template <class idx_t>
class SpanningTree : public ::testing::Test {
 public:
  /// Compares with the plain steps, with weights below `levels`.
  template <class weight_t>
  static void agrees_with_the_plain_steps(unsigned levels) {
    std::mt19937 rng(levels);
    for (int round = 0; round < 240; ++round) {
      const auto sketch = qz_test::random_sketch(rng, 1 + round / 12 % 18, round);
      const qz_test::ListedGraph<idx_t> graph(sketch.n, sketch.edges);
      std::vector<weight_t> weights;
      for (std::size_t e = 0; e < sketch.edges.size(); ++e) {
        weights.push_back(static_cast<weight_t>(qz_test::draw_below(rng, levels)));
      }
      std::vector<unsigned long> expected(sketch.n * sketch.n, 0);
      for (const auto& [i, j] :
           qz_test::plain_spanning_tree<idx_t>(sketch.n, qz_test::edges_of(graph), weights)) {
        expected[i * sketch.n + j] = expected[j * sketch.n + i] = 1;
      }
      ASSERT_EQ(tree_of(graph, weights), expected) << sketch.kind << ' ' << sketch.n;
    }
  }
};
TYPED_TEST_SUITE(SpanningTree, qz_test::IndexTypes);

TYPED_TEST(SpanningTree, TakesTheHeaviestEdgesThatCloseNoCycle) {
  const qz_test::ListedGraph<TypeParam> graph(4, {{0, 1}, {1, 2}, {2, 0}, {2, 3}});
  EXPECT_THAT(tree_of<TypeParam>(graph, std::vector<double>{0.5, -1, 2, -3}),
              ElementsAre(0, 1, 1, 0,  //
                          1, 0, 0, 0,  //
                          1, 0, 0, 1,  //
                          0, 0, 1, 0));
}

TYPED_TEST(SpanningTree, TakesTheLightestEdgesOnDemand) {
  const qz_test::ListedGraph<TypeParam> graph(3, {{0, 1}, {1, 2}, {2, 0}});
  const std::vector<double> weights = {0.5, -1, 2};
  EXPECT_THAT((tree_of<TypeParam, double, false>(graph, weights)),
              ElementsAre(0, 1, 0, 1, 0, 1, 0, 1, 0));
}

TYPED_TEST(SpanningTree, StaysEmptyWithoutEdges) {
  EXPECT_THAT(tree_of(qz_test::ListedGraph<TypeParam>(1, {}), std::vector<double>{}),
              ElementsAre(0));
  EXPECT_THAT(tree_of(qz_test::ListedGraph<TypeParam>(3, {}), std::vector<double>{}), Each(0));
}

TYPED_TEST(SpanningTree, TiesFallAsTheSortLeavesThem) {
  TestFixture::template agrees_with_the_plain_steps<double>(1);
  TestFixture::template agrees_with_the_plain_steps<double>(3);
  TestFixture::template agrees_with_the_plain_steps<TypeParam>(2);
  TestFixture::template agrees_with_the_plain_steps<TypeParam>(100);
}

TEST(SpanningTree, TiesOfACompleteGraphFallAsTheSortLeavesThem) {
  // Enough edges for the sort to split its list many times.
  std::mt19937 rng(8);
  for (unsigned n : {17u, 30u, 60u}) {
    for (unsigned levels : {1u, 2u, 5u}) {
      const QZ::Kn<unsigned int> graph(n);
      std::vector<double> weights;
      for (std::size_t e = 0; e < graph.edges(); ++e) {
        weights.push_back(qz_test::draw_below(rng, levels));
      }
      std::vector<unsigned long> expected(n * n, 0);
      for (const auto& [i, j] :
           qz_test::plain_spanning_tree<unsigned int>(n, qz_test::edges_of(graph), weights)) {
        expected[i * n + j] = expected[j * n + i] = 1;
      }
      ASSERT_EQ(tree_of<unsigned int>(graph, weights), expected) << n << ' ' << levels;
    }
  }
}

TEST(SpanningTree, ASelfLoopThatComesFirstCountsAsAnEdge) {
  // It starts a component of one vertex and uses up one of the two edges that a tree may have.
  const qz_test::ListedGraph<unsigned int> graph(3, {{1, 1}, {0, 1}, {1, 2}});
  EXPECT_THAT(tree_of<unsigned int>(graph, std::vector<double>{3, 2, 1}),
              ElementsAre(0, 1, 0, 1, 1, 0, 0, 0, 0));
  EXPECT_THAT(tree_of<unsigned int>(graph, std::vector<double>{1, 3, 2}),
              ElementsAre(0, 1, 0, 1, 0, 1, 0, 1, 0));
}

TEST(SpanningTree, RefusesWeightsThatAreNoNumbers) {
  const qz_test::ListedGraph<unsigned int> graph(2, {{0, 1}});
  EXPECT_THROW(tree_of<unsigned int>(graph, std::vector<double>{std::nan("")}), std::logic_error);
}

}  // namespace
