#include "QZ/graph/junction_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <random>
#include <stdexcept>
#include <vector>

#include "QZ/graph/chain.h"
#include "QZ/graph/complete.h"
#include "QZ/graph/grid.h"
#include "QZ/graph/star.h"
#include "support/index_types.h"
#include "support/plain_junction_tree.h"
#include "support/random_graphs.h"

namespace {

using QZ::JunctionTree;
using qz_test::EdgeList;
using qz_test::edges_of;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

template <class idx_t>
void expect_the_plain_result(const QZ::AbstractGraph<idx_t>& graph, const std::string& name) {
  const JunctionTree<idx_t> tree(graph);
  const qz_test::PlainJunctionTree<idx_t> plain(graph);
  ASSERT_EQ(tree.cliqueCount, plain.cliques) << name;
  ASSERT_EQ(tree.vertices(), plain.objects.size()) << name;
  ASSERT_EQ(tree.objects, plain.objects) << name;
  ASSERT_EQ(edges_of(tree), plain.edges) << name;
}

template <class idx_t>
class JunctionTreeOf : public ::testing::Test {};
TYPED_TEST_SUITE(JunctionTreeOf, qz_test::IndexTypes);

TYPED_TEST(JunctionTreeOf, AChainHasOneCliquePerEdge) {
  const QZ::Chain<TypeParam> chain(3);
  const JunctionTree<TypeParam> tree(chain);
  EXPECT_EQ(tree.cliqueCount, 2);
  EXPECT_EQ(edges_of(tree), (EdgeList{{0, 2}, {2, 1}}));
  // Vertex 2 is eliminated first.
  EXPECT_THAT(tree.objects, ElementsAre(ElementsAre(1, 2), ElementsAre(0, 1), ElementsAre(1)));
  EXPECT_EQ(tree.baseVertices(), 3);
  EXPECT_EQ(tree.baseGraph, &chain);
  EXPECT_FALSE(tree.isSeparator(1));
  EXPECT_TRUE(tree.isSeparator(2));
}

TYPED_TEST(JunctionTreeOf, ATriangleIsOneClique) {
  const QZ::Kn<TypeParam> triangle(3);
  const JunctionTree<TypeParam> tree(triangle);
  EXPECT_EQ(tree.cliqueCount, 1);
  EXPECT_EQ(tree.vertices(), 1);
  EXPECT_EQ(tree.edges(), 0);
  EXPECT_THAT(tree.vertexObjects(0), ElementsAre(0, 1, 2));
}

TYPED_TEST(JunctionTreeOf, LoneVerticesAreLinkedByEmptySeparators) {
  const qz_test::ListedGraph<TypeParam> graph(4, {});
  const JunctionTree<TypeParam> tree(graph);
  EXPECT_EQ(tree.cliqueCount, 4);
  EXPECT_EQ(tree.edges(), 6);
  for (TypeParam v = 4; v < 7; ++v) EXPECT_THAT(tree.vertexObjects(v), IsEmpty());
  EXPECT_EQ(tree.baseVertices(), 4);
}

TYPED_TEST(JunctionTreeOf, ACycleIsFilledIn) {
  const QZ::Grid<TypeParam> square(2);
  const JunctionTree<TypeParam> tree(square);
  EXPECT_THAT(tree.objects,
              ElementsAre(ElementsAre(0, 1, 3), ElementsAre(0, 2, 3), ElementsAre(0, 3)));
}

TYPED_TEST(JunctionTreeOf, OfNothingIsNothing) {
  const qz_test::ListedGraph<TypeParam> graph(0, {});
  const JunctionTree<TypeParam> tree(graph);
  EXPECT_EQ(tree.vertices(), 0);
  EXPECT_EQ(tree.edges(), 0);
  EXPECT_THROW(tree.vertexObjects(0), std::out_of_range);
}

TYPED_TEST(JunctionTreeOf, SeparatorsHaveTwoCliquesAndShareWhatTheyShare) {
  std::mt19937 rng(21);
  for (int round = 0; round < 120; ++round) {
    const auto sketch = qz_test::random_sketch(rng, 2 + round / 12 % 10, round);
    const qz_test::ListedGraph<TypeParam> graph(sketch.n, sketch.edges);
    const JunctionTree<TypeParam> tree(graph);
    ASSERT_EQ(tree.edges(), 2 * (tree.cliqueCount - 1)) << sketch.kind;
    ASSERT_EQ(tree.baseVertices(), sketch.n) << sketch.kind;
    for (TypeParam v = tree.cliqueCount; v < tree.vertices(); ++v) {
      ASSERT_EQ(tree.num_neighbors(v), 2) << sketch.kind;
    }
    // The links among the cliques that hold a vertex form a tree: one fewer than the cliques.
    for (TypeParam x = 0; x < sketch.n; ++x) {
      int cliques = 0, separators = 0;
      for (TypeParam v = 0; v < tree.vertices(); ++v) {
        (v < tree.cliqueCount ? cliques : separators) += tree.vertexObjects(v).contains(x);
      }
      ASSERT_EQ(cliques, separators + 1) << sketch.kind;
    }
  }
}

TYPED_TEST(JunctionTreeOf, AgreesWithThePlainStepsOnRandomGraphs) {
  std::mt19937 rng(1);
  for (int round = 0; round < 840; ++round) {
    const auto sketch = qz_test::random_sketch(rng, 1 + round / 12 % 24, round);
    const qz_test::ListedGraph<TypeParam> graph(sketch.n, sketch.edges);
    expect_the_plain_result(graph, sketch.kind + " of " + std::to_string(sketch.n));
  }
}

TEST(JunctionTree, AgreesWithThePlainStepsOnLargerGraphs) {
  std::mt19937 rng(2);
  for (int round = 0; round < 36; ++round) {
    const auto sketch = qz_test::random_sketch(rng, 40 + rng() % 60, round);
    const qz_test::ListedGraph<unsigned int> graph(sketch.n, sketch.edges);
    expect_the_plain_result(graph, sketch.kind + " of " + std::to_string(sketch.n));
  }
  expect_the_plain_result<unsigned long>(QZ::Grid<unsigned long>(9), "grid");
  expect_the_plain_result<unsigned long>(QZ::Star<unsigned long>(90, 40), "star");
  expect_the_plain_result<unsigned long>(QZ::Chain<unsigned long>(150), "chain");
}

TEST(JunctionTree, RecognisesWhetherTheTreeOfCliquesIsTheOnlyOne) {
  std::mt19937 rng(6);
  int only = 0, several = 0;
  for (int round = 0; round < 600; ++round) {
    const auto sketch = qz_test::random_sketch(rng, 2 + round / 12 % 9, round);
    const qz_test::ListedGraph<unsigned int> graph(sketch.n, sketch.edges);
    const qz_test::PlainJunctionTree<unsigned int> plain(graph);
    EdgeList pairs;
    std::vector<double> weights;
    for (std::size_t i = 0; i < plain.cliques; ++i) {
      for (std::size_t j = i + 1; j < plain.cliques; ++j) {
        pairs.emplace_back(i, j);
        std::vector<unsigned int> shared;
        std::ranges::set_intersection(plain.objects[i], plain.objects[j],
                                      std::back_inserter(shared));
        weights.push_back(static_cast<double>(shared.size()));
      }
    }
    // Each pair in turn is favoured by less than a whole vertex: it enters the tree exactly if it
    // belongs to some tree of largest weight.
    const auto tree = qz_test::plain_spanning_tree<unsigned>(plain.cliques, pairs, weights);
    bool found_another = false;
    for (std::size_t e = 0; e < pairs.size(); ++e) {
      weights[e] += 0.5;
      found_another |=
          qz_test::plain_spanning_tree<unsigned>(plain.cliques, pairs, weights) != tree;
      weights[e] -= 0.5;
    }
    const auto forest = QZ::collect_cliques(QZ::eliminate(graph));
    ASSERT_EQ(QZ::is_only_maximum_tree(forest), !found_another) << sketch.kind << ' ' << sketch.n;
    ++(found_another ? several : only);
  }
  EXPECT_GT(only, 100);
  EXPECT_GT(several, 100);
}

TEST(JunctionTree, LongChainsAreLinkedInARow) {
  const QZ::Chain<unsigned int> chain(3000);
  const JunctionTree<unsigned int> tree(chain);
  ASSERT_EQ(tree.cliqueCount, 2999u);
  for (unsigned int k = 0; k < 2998; ++k) {
    const auto [i, p] = QZ::endpoints(tree, 2 * k);
    ASSERT_EQ(i, k);
    ASSERT_EQ(p, 2999 + k);
    ASSERT_THAT(tree.vertexObjects(p), ElementsAre(2998 - k));
  }
}

TEST(JunctionTree, TooManyCliquesForTheIndexTypeAreRefused) {
  EXPECT_EQ(JunctionTree<unsigned char>(QZ::Chain<unsigned char>(65)).cliqueCount, 64);
  EXPECT_THROW(JunctionTree<unsigned char>(QZ::Chain<unsigned char>(66)), std::logic_error);
}

}  // namespace
