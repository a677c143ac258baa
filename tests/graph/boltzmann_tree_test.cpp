#include "QZ/graph/boltzmann_tree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

#include "QZ/graph/chain.h"
#include "QZ/graph/complete.h"
#include "support/graph_contents.h"
#include "support/index_types.h"
#include "support/random_graphs.h"

namespace {

using QZ::DeepBoltzmannTree;
using QZ::JunctionTree;
using qz_test::EdgeList;
using qz_test::edges_of;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

template <class idx_t>
class BoltzmannTreeOf : public ::testing::Test {};
TYPED_TEST_SUITE(BoltzmannTreeOf, qz_test::IndexTypes);

TYPED_TEST(BoltzmannTreeOf, ACliqueStandsAboveTheVerticesItHoldsFirst) {
  // The cliques of the chain are {1, 2} and {0, 1}.
  const QZ::Chain<TypeParam> chain(3);
  const JunctionTree<TypeParam> source(chain);
  const DeepBoltzmannTree<TypeParam> tree(source, 0);
  EXPECT_EQ(tree.vertices(), 6);
  EXPECT_EQ(edges_of(tree), (EdgeList{{1, 3}, {2, 3}, {3, 5}, {0, 4}, {4, 5}}));
  EXPECT_THAT(tree.objects, ElementsAre(ElementsAre(0), ElementsAre(1), ElementsAre(2),
                                        ElementsAre(1, 2), ElementsAre(0, 1), ElementsAre(1)));
  EXPECT_EQ(tree.leafCount, 3);
  EXPECT_EQ(tree.separatorCount, 1);
  EXPECT_EQ(tree.extraCount, 0);
  EXPECT_THAT(tree.sinkSet, ElementsAre(5));
  EXPECT_EQ(tree.sourceGraph, &chain);
}

TYPED_TEST(BoltzmannTreeOf, ExtraVerticesAreJoinedToEverySeparator) {
  const QZ::Chain<TypeParam> chain(3);
  const DeepBoltzmannTree<TypeParam> tree(JunctionTree<TypeParam>(chain), 2);
  EXPECT_EQ(tree.vertices(), 8);
  EXPECT_EQ(tree.leafCount, 5);
  EXPECT_EQ(edges_of(tree), (EdgeList{{1, 5}, {2, 5}, {5, 7}, {0, 6}, {6, 7}, {3, 7}, {4, 7}}));
  EXPECT_THAT(tree.vertexObjects(3), ElementsAre(3));
  EXPECT_THAT(tree.vertexObjects(4), ElementsAre(4));
  EXPECT_THAT(tree.sinkSet, ElementsAre(7));
}

TYPED_TEST(BoltzmannTreeOf, OneCliqueIsAStar) {
  const QZ::Kn<TypeParam> triangle(3);
  const DeepBoltzmannTree<TypeParam> tree(JunctionTree<TypeParam>(triangle), 0);
  EXPECT_EQ(edges_of(tree), (EdgeList{{0, 3}, {1, 3}, {2, 3}}));
  EXPECT_THAT(tree.sinkSet, IsEmpty());
}

TYPED_TEST(BoltzmannTreeOf, WithoutASeparatorExtraVerticesHaveNoEdgeAndNoSet) {
  const QZ::Kn<TypeParam> pair(2);
  const DeepBoltzmannTree<TypeParam> tree(JunctionTree<TypeParam>(pair), 1);
  EXPECT_EQ(edges_of(tree), (EdgeList{{0, 3}, {1, 3}}));
  EXPECT_THAT(tree.vertexObjects(2), IsEmpty());
}

TYPED_TEST(BoltzmannTreeOf, EdgeCountMeetsTheEdgesMade) {
  std::mt19937 rng(5);
  for (int round = 0; round < 96; ++round) {
    const auto sketch = qz_test::random_sketch(rng, 1 + round / 12, round);
    const qz_test::ListedGraph<TypeParam> graph(sketch.n, sketch.edges);
    const JunctionTree<TypeParam> source(graph);
    for (TypeParam extra : {0, 3}) {
      const DeepBoltzmannTree<TypeParam> tree(source, extra);
      const std::size_t separators = source.cliqueCount - 1;
      ASSERT_EQ(tree.edges(), sketch.n + 2 * separators + extra * separators) << sketch.kind;
      ASSERT_EQ(tree.vertices(), sketch.n + extra + 2 * separators + 1) << sketch.kind;
      for (TypeParam v = 0; v < sketch.n; ++v) {
        ASSERT_EQ(tree.num_neighbors(v), 1);
        ASSERT_THAT(tree.vertexObjects(v), ElementsAre(v));
      }
      for (TypeParam v : tree.sinkSet) ASSERT_EQ(tree.num_neighbors(v), 2 + extra);
    }
  }
}

TEST(BoltzmannTree, TooManyVerticesForTheIndexTypeAreRefused) {
  const QZ::Chain<unsigned char> chain(3);
  const JunctionTree<unsigned char> source(chain);
  EXPECT_THROW(DeepBoltzmannTree<unsigned char>(source, 251), std::logic_error);
  EXPECT_EQ(DeepBoltzmannTree<unsigned char>(source, 100).vertices(), 106);
}

}  // namespace
