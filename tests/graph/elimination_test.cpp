#include "QZ/graph/elimination.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "QZ/graph/complete.h"
#include "QZ/graph/grid.h"
#include "support/index_types.h"
#include "support/plain_junction_tree.h"
#include "support/random_graphs.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

template <class idx_t>
std::vector<idx_t> search(const QZ::AbstractGraph<idx_t>& graph) {
  std::vector<idx_t> order(graph.vertices());
  const QZ::AbstractGraph<idx_t>* const searched = &graph;
  QZ::MCS(order.data(), searched);
  return order;
}

template <class idx_t>
class Search : public ::testing::Test {};
TYPED_TEST_SUITE(Search, qz_test::IndexTypes);

TYPED_TEST(Search, FirstVertexZeroThenTheLargestNumberAmongEquals) {
  // Without edges all weights stay equal; the vertex chosen first stands last.
  const qz_test::ListedGraph<TypeParam> edgeless(5, {});
  EXPECT_THAT(search(edgeless), ElementsAre(1, 2, 3, 4, 0));
  EXPECT_THAT(search<TypeParam>(QZ::Kn<TypeParam>(4)), ElementsAre(1, 2, 3, 0));
  EXPECT_THAT(search<TypeParam>(QZ::Grid<TypeParam>(2)), ElementsAre(1, 3, 2, 0));
}

TYPED_TEST(Search, MoreEdgesToNumberedVerticesComeBeforeLargerNumbers) {
  // The two edges between 0 and 1 count twice.
  const qz_test::ListedGraph<TypeParam> graph(4, {{0, 1}, {1, 0}, {0, 3}, {1, 2}});
  EXPECT_THAT(search(graph), ElementsAre(2, 3, 1, 0));
}

TYPED_TEST(Search, OfNothingAndOfOneVertex) {
  EXPECT_THAT(search(qz_test::ListedGraph<TypeParam>(0, {})), IsEmpty());
  EXPECT_THAT(search(qz_test::ListedGraph<TypeParam>(1, {{0, 0}})), ElementsAre(0));
}

TYPED_TEST(Search, AgreesWithThePlainStepsOnRandomGraphs) {
  std::mt19937 rng(3);
  for (int round = 0; round < 720; ++round) {
    const auto sketch = qz_test::random_sketch(rng, 1 + round / 12 % 20, round);
    const qz_test::ListedGraph<TypeParam> graph(sketch.n, sketch.edges);
    ASSERT_EQ(search(graph), qz_test::plain_search(graph)) << sketch.kind << ' ' << sketch.n;
  }
}

TEST(Search, AgreesWithThePlainStepsOnLargerGraphs) {
  // Long enough for several rounds of merging in the sort.
  std::mt19937 rng(4);
  for (int round = 0; round < 72; ++round) {
    const auto sketch = qz_test::random_sketch(rng, 60 + rng() % 140, round);
    const qz_test::ListedGraph<unsigned int> graph(sketch.n, sketch.edges);
    ASSERT_EQ(search(graph), qz_test::plain_search(graph)) << sketch.kind << ' ' << sketch.n;
  }
}

TEST(Elimination, JoinsTheNeighboursThatRemain) {
  // A cycle 0 - 3 - 2 - 1 - 0 is searched as 0, 3, 2, 1: eliminating 1 joins 0 and 2.
  const qz_test::ListedGraph<unsigned int> graph(4, {{0, 1}, {1, 2}, {2, 3}, {3, 0}});
  const auto eliminated = QZ::eliminate(graph);
  EXPECT_THAT(eliminated.order, ElementsAre(1, 2, 3, 0));
  EXPECT_THAT(eliminated.later,
              ElementsAre(ElementsAre(1, 3), ElementsAre(2, 3), ElementsAre(3), IsEmpty()));
}

}  // namespace
