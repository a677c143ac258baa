#include "QZ/graph/unrolled.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

#include "QZ/graph/chain.h"
#include "QZ/graph/star.h"
#include "support/graph_contents.h"
#include "support/index_types.h"
#include "support/random_graphs.h"
#include "support/temp_file.h"

namespace {

using QZ::STGraph;
using qz_test::EdgeList;
using qz_test::edges_of;
using qz_test::incidence_of;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAreArray;

template <class idx_t>
class Unrolled : public ::testing::Test {};
TYPED_TEST_SUITE(Unrolled, qz_test::IndexTypes);

TYPED_TEST(Unrolled, ThreeSlicesOfAPair) {
  QZ::Chain<TypeParam> base(2);
  const STGraph<TypeParam> graph(3, &base);
  EXPECT_EQ(graph.vertices(), 6);
  EXPECT_EQ(graph.edges(), 11);
  EXPECT_EQ(edges_of(graph), (EdgeList{{0, 2},
                                       {2, 4},
                                       {1, 3},
                                       {3, 5},  // temporal
                                       {0, 1},
                                       {0, 3},
                                       {2, 1},  // from slice 0
                                       {2, 3},
                                       {2, 5},
                                       {4, 3},     // from slice 1
                                       {4, 5}}));  // last slice
  // Spatial, to the earlier slice (to the later one in slice 0), to the later slice, temporal.
  EXPECT_THAT(incidence_of<TypeParam>(graph, 0), ElementsAre(4, 5, 0));
  EXPECT_THAT(incidence_of<TypeParam>(graph, 2), ElementsAre(7, 6, 8, 1, 0));
  EXPECT_THAT(incidence_of<TypeParam>(graph, 3), ElementsAre(7, 5, 9, 3, 2));
  EXPECT_THAT(incidence_of<TypeParam>(graph, 5), ElementsAre(10, 8, 3));
  EXPECT_EQ(graph.in_edge(0, 3), std::numeric_limits<TypeParam>::max());
  EXPECT_EQ(graph.in_edge(2, 5), std::numeric_limits<TypeParam>::max());
  EXPECT_EQ(graph.in_edge(5, 3), std::numeric_limits<TypeParam>::max());
}

TYPED_TEST(Unrolled, TwoSlicesAreTheFirstAndTheLast) {
  QZ::Star<TypeParam> base(4, 1);
  const STGraph<TypeParam> graph(2, &base);
  for (TypeParam x = 0; x < graph.vertices(); ++x) {
    EXPECT_EQ(graph.num_neighbors(x), 2 * base.num_neighbors(x % 4) + 1);
  }
}

TYPED_TEST(Unrolled, AVertexListsExactlyItsEdges) {
  std::mt19937 rng(9);
  for (int round = 0; round < 96; ++round) {
    const auto sketch = qz_test::random_sketch(rng, 1 + round / 12 % 4, round);
    if (sketch.kind == "parallel") continue;
    if (sketch.kind == "cycle" && sketch.n == 1) continue;
    qz_test::ListedGraph<TypeParam> base(sketch.n, sketch.edges);
    for (TypeParam slices : {2, 3, 4, 5, 6}) {
      const STGraph<TypeParam> graph(slices, &base);
      std::vector<std::vector<unsigned long>> expected(graph.vertices());
      const EdgeList edges = edges_of(graph);
      for (std::size_t e = 0; e < edges.size(); ++e) {
        expected.at(edges[e].first).push_back(e);
        expected.at(edges[e].second).push_back(e);
      }
      for (TypeParam x = 0; x < graph.vertices(); ++x) {
        ASSERT_THAT(incidence_of<TypeParam>(graph, x), UnorderedElementsAreArray(expected[x]))
            << sketch.kind << " of " << sketch.n << ", slices " << int(slices);
      }
    }
  }
}

TYPED_TEST(Unrolled, ASelfLoopIsTakenForItsSecondEnd) {
  qz_test::ListedGraph<TypeParam> base(1, {{0, 0}});
  const STGraph<TypeParam> graph(2, &base);
  // One temporal edge, then the loop in slice 0 and its two cross edges, then the loop in slice 1.
  EXPECT_EQ(edges_of(graph), (EdgeList{{0, 1}, {0, 0}, {0, 1}, {1, 0}, {1, 1}}));
  EXPECT_THAT(incidence_of<TypeParam>(graph, 0), ElementsAre(1, 1, 3, 3, 0));
  EXPECT_THAT(incidence_of<TypeParam>(graph, 1), ElementsAre(4, 4, 2, 2, 0));
}

TYPED_TEST(Unrolled, MemoryAndFileAreThoseOfTheBase) {
  QZ::Chain<TypeParam> base(3);
  const STGraph<TypeParam> graph(4, &base);
  EXPECT_EQ(graph.mem(), base.mem() + sizeof(TypeParam) + 8);
  const qz_test::TempFile base_file, file;
  base.store(base_file.path());
  graph.store(file.path());
  EXPECT_EQ(file.read(), base_file.read());
}

TYPED_TEST(Unrolled, FewerThanTwoSlicesAreRefused) {
  QZ::Chain<TypeParam> base(3);
  EXPECT_THROW(STGraph<TypeParam>(0, &base), std::logic_error);
  EXPECT_THROW(STGraph<TypeParam>(1, &base), std::logic_error);
}

TEST(Unrolled, TooLargeForTheIndexTypeIsRefused) {
  QZ::Chain<unsigned char> base(10);
  EXPECT_EQ(STGraph<unsigned char>(7, &base).edges(), 7 * 9 + (10 + 2 * 9) * 6);
  EXPECT_THROW(STGraph<unsigned char>(8, &base), std::logic_error);
}

TEST(Unrolled, VertexOfATemporalEdgeIsRoundedInFloat) {
  // Where the float nearest to 1 / span lies below it, a product may fall short of a whole number:
  // the vertex is then one too small.
  int differing = 0;
  for (unsigned int slices = 2; slices < 1500; ++slices) {
    QZ::Chain<unsigned int> base(200);
    const STGraph<unsigned int> graph(slices, &base);
    const unsigned int span = slices - 1;
    const auto inverse = static_cast<float>(1.0 / span);
    ASSERT_EQ(graph.invSpan, inverse);
    for (unsigned int v = 0; v < 200; ++v) {
      const float scaled = static_cast<float>(v * span) * inverse;
      const auto expected = static_cast<unsigned int>(scaled);
      differing += expected != v;
      const auto [a, b] = QZ::endpoints(graph, v * span);
      ASSERT_EQ(a, expected);
      ASSERT_EQ(b, expected + 200);
    }
  }
  EXPECT_GT(differing, 0);
}

TEST(Unrolled, AVertexCountsItsEdgesWithoutRounding) {
  // Where `edge` rounds to another base vertex or edge, the list of a vertex stays in whole
  // numbers.
  const unsigned int D = 41;
  QZ::Chain<unsigned int> base(3);
  const STGraph<unsigned int> graph(D + 1, &base);
  ASSERT_EQ(QZ::endpoints(graph, D).s, 0u);
  for (unsigned int t = 1; t < D; ++t) {
    const unsigned int middle = 3 * D;
    // Vertex 2, the second end of base edge 1: spatial, earlier, later, then temporal.
    EXPECT_THAT(incidence_of<unsigned int>(graph, 3 * t + 2),
                ElementsAre(middle + 3 * D + 3 * t, middle + 3 * D - 2 + 3 * t,
                            middle + 3 * D + 2 + 3 * t, 2 * D + t, 2 * D + t - 1));
  }
}

TEST(Unrolled, BaseEdgeOfAMiddleEdgeIsRoundedInFloat) {
  int differing = 0;
  for (unsigned int slices = 2; slices < 1500; ++slices) {
    QZ::Chain<unsigned int> base(200);
    const STGraph<unsigned int> graph(slices, &base);
    const unsigned int span = slices - 1;
    const auto inverse = static_cast<float>(1.0 / span);
    for (unsigned int e = 0; e < 199; ++e) {
      const auto expected = static_cast<unsigned int>(static_cast<float>(e * span) * inverse);
      differing += expected != e;
      const auto [a, b] = QZ::endpoints(graph, span * 200 + 3 * span * e);
      ASSERT_EQ(a, expected);
      ASSERT_EQ(b, expected + 1);
    }
  }
  EXPECT_GT(differing, 0);
}

}  // namespace
