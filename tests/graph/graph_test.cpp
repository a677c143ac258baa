#include "QZ/graph/graph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "QZ/graph/set_graph.h"
#include "support/graph_contents.h"
#include "support/index_types.h"
#include "support/temp_file.h"

namespace {

using QZ::Graph;
using qz_test::EdgeList;
using qz_test::edges_of;
using qz_test::incidence_of;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::ThrowsMessage;

template <class idx_t>
class GraphOf : public ::testing::Test {
 public:
  /// Written from number lists so that a test reads like the layout of the file.
  static std::string bytes(const std::vector<idx_t>& fields) {
    return {reinterpret_cast<const char*>(fields.data()), fields.size() * sizeof(idx_t)};
  }
};
TYPED_TEST_SUITE(GraphOf, qz_test::IndexTypes);

TYPED_TEST(GraphOf, AdjacencyGivesTheUpperTriangleRowByRow) {
  // The diagonal and the lower triangle hold ones that must not count.
  const TypeParam matrix[] = {1, 0, 1, 7,  //
                              1, 1, 1, 0,  //
                              0, 0, 0, 0,  //
                              0, 1, 1, 1};
  const Graph<TypeParam> graph(matrix, 4, 3);
  EXPECT_EQ(edges_of(graph), (EdgeList{{0, 2}, {0, 3}, {1, 2}}));
  EXPECT_EQ(graph.vertices(), 4);
  EXPECT_EQ(graph.edges(), 3);
  EXPECT_EQ(graph.indexWidth, static_cast<unsigned char>(QZ::idx_code<TypeParam>()));
}

TYPED_TEST(GraphOf, AdjacencyWithAnotherNumberOfEdgesIsRefused) {
  const TypeParam matrix[] = {0, 1, 1, 0, 0, 1, 0, 0, 0};
  EXPECT_THROW(Graph<TypeParam>(matrix, 3, 2), std::logic_error);
  EXPECT_THROW(Graph<TypeParam>(matrix, 3, 4), std::logic_error);
}

TYPED_TEST(GraphOf, AVertexListsItsEdgesInAscendingOrder) {
  TypeParam edges[] = {3, 0, 1, 2, 0, 1, 2, 0};
  const Graph<TypeParam> graph(QZ::borrowed_edges, edges, 5, 4);
  EXPECT_THAT(incidence_of<TypeParam>(graph, 0), ElementsAre(0, 2, 3));
  EXPECT_THAT(incidence_of<TypeParam>(graph, 1), ElementsAre(1, 2));
  EXPECT_THAT(incidence_of<TypeParam>(graph, 2), ElementsAre(1, 3));
  EXPECT_THAT(incidence_of<TypeParam>(graph, 3), ElementsAre(0));
  EXPECT_THAT(incidence_of<TypeParam>(graph, 4), IsEmpty());
}

TYPED_TEST(GraphOf, AnEdgeKeepsTheOrderOfItsEndpoints) {
  TypeParam edges[] = {2, 0, 0, 1};
  const Graph<TypeParam> graph(QZ::borrowed_edges, edges, 3, 2);
  EXPECT_EQ(edges_of(graph), (EdgeList{{2, 0}, {0, 1}}));
}

TYPED_TEST(GraphOf, ASelfLoopCountsTwice) {
  TypeParam edges[] = {1, 1, 0, 1};
  const Graph<TypeParam> graph(QZ::borrowed_edges, edges, 2, 2);
  EXPECT_EQ(graph.num_neighbors(1), 3);
  EXPECT_THAT(incidence_of<TypeParam>(graph, 1), ElementsAre(0, 0, 1));
}

TYPED_TEST(GraphOf, ACallersEdgeListIsNotFreed) {
  std::vector<TypeParam> edges = {0, 1};
  { const Graph<TypeParam> graph(QZ::borrowed_edges, edges.data(), 2, 1); }
  EXPECT_THAT(edges, ElementsAre(0, 1));
}

TYPED_TEST(GraphOf, ACallersEdgeToAMissingVertexIsRefused) {
  TypeParam edges[] = {0, 1, 1, 2};
  EXPECT_THROW(Graph<TypeParam>(QZ::borrowed_edges, edges, 2, 2), std::logic_error);
}

TYPED_TEST(GraphOf, OneVertexWithoutEdgesIsAGraph) {
  const TypeParam matrix[] = {1};
  const Graph<TypeParam> graph(matrix, 1, 0);
  EXPECT_EQ(graph.edges(), 0);
  EXPECT_EQ(graph.num_neighbors(0), 0);
  EXPECT_NE(graph.incidenceStart, nullptr);
}

TYPED_TEST(GraphOf, MemoryFollowsTheCounts) {
  TypeParam edges[] = {0, 1, 1, 2};
  const Graph<TypeParam> graph(QZ::borrowed_edges, edges, 3, 2);
  EXPECT_EQ(graph.mem(), sizeof(TypeParam) * (4 * 2 + 3 + 2) + 8);
}

TYPED_TEST(GraphOf, DimensionIsTheSumOfTheBlocks) {
  TypeParam edges[] = {0, 1, 2, 1};
  const Graph<TypeParam> graph(QZ::borrowed_edges, edges, 3, 2);
  const TypeParam states[] = {2, 3, 5};
  EXPECT_EQ(QZ::calcDim(graph, states), 2 * 3 + 5 * 3);
}

TYPED_TEST(GraphOf, FileHoldsCountsThenEndpoints) {
  TypeParam edges[] = {2, 0, 0, 1};
  const Graph<TypeParam> graph(QZ::borrowed_edges, edges, 4, 2);
  const qz_test::TempFile file;
  graph.store(file.path());
  EXPECT_EQ(file.read(), TestFixture::bytes({4, 2, 2, 0, 0, 1}));
}

TYPED_TEST(GraphOf, FileReadsBackAndMayGoOn) {
  // A model file continues after the edge list.
  const qz_test::TempFile file("", TestFixture::bytes({4, 2, 2, 0, 0, 1, 99, 98}));
  const Graph<TypeParam> graph(file.path());
  EXPECT_EQ(graph.vertices(), 4);
  EXPECT_EQ(edges_of(graph), (EdgeList{{2, 0}, {0, 1}}));
  EXPECT_TRUE(graph.ownsEdges);
  EXPECT_THAT(incidence_of<TypeParam>(graph, 0), ElementsAre(0, 1));
}

TYPED_TEST(GraphOf, ShortFilesAreRefused) {
  const auto reading = [](const std::string& content) {
    const qz_test::TempFile file("", content);
    Graph<TypeParam> graph(file.path());
  };
  const auto short_file = ThrowsMessage<std::logic_error>(HasSubstr("shorter than its own counts"));
  const std::string whole = TestFixture::bytes({3, 2, 0, 1, 1, 2});
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_THAT([&] { reading(whole.substr(0, length)); }, short_file) << length;
  }
  EXPECT_NO_THROW(reading(whole));
  const TypeParam huge = std::numeric_limits<TypeParam>::max();
  EXPECT_THAT([&] { reading(TestFixture::bytes({3, huge, 0, 1})); }, short_file);
}

TYPED_TEST(GraphOf, FilesWithAnEdgeToAMissingVertexAreRefused) {
  const qz_test::TempFile file("", TestFixture::bytes({3, 2, 0, 1, 1, 3}));
  EXPECT_THROW(Graph<TypeParam>{file.path()}, std::logic_error);
}

TYPED_TEST(GraphOf, FilesThatDoNotOpenAreNamed) {
  const qz_test::TempFile file;
  EXPECT_THAT([&] { Graph<TypeParam>{file.path()}; },
              ThrowsMessage<std::logic_error>("cannot read " + file.path()));
  EXPECT_THROW(Graph<TypeParam>{std::filesystem::temp_directory_path().string()}, std::logic_error);
}

TYPED_TEST(GraphOf, StoreSaysWhenItCannotWrite) {
  const TypeParam matrix[] = {0};
  const Graph<TypeParam> graph(matrix, 1, 0);
  EXPECT_THAT([&] { graph.store("/nowhere/graph"); },
              ThrowsMessage<std::logic_error>("cannot write /nowhere/graph"));
}

TEST(Graph, OffsetsWrapInANarrowIndexType) {
  // 130 edges from vertex 0 to vertex 1 make 260 ends: a group of 130 for each.
  std::vector<unsigned char> edges;
  for (int e = 0; e < 130; ++e) edges.insert(edges.end(), {0, 1});
  const Graph<unsigned char> graph(QZ::borrowed_edges, edges.data(), 2, 130);
  EXPECT_EQ(graph.num_neighbors(0), 130);
  EXPECT_EQ(graph.num_neighbors(1), (260 - 130) % 256);
  EXPECT_EQ(graph.in_edge(1, 129), 129);
}

class TwoSets : public QZ::SetGraph<unsigned int> {
 public:
  TwoSets() {
    this->n = 2;
    this->objects = {{3, 1}, {}};
    this->buildNeighborhoods();
  }
};

TEST(SetGraph, ListsTheSetOfAVertexAndChecksTheRange) {
  const TwoSets graph;
  EXPECT_THAT(graph.vertexObjects(0), ElementsAre(1, 3));
  EXPECT_THAT(graph.vertexObjects(1), IsEmpty());
  EXPECT_THROW(graph.vertexObjects(2), std::out_of_range);
}

}  // namespace
