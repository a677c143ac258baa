#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <stdexcept>
#include <vector>

#include "QZ/graph/chain.h"
#include "QZ/graph/complete.h"
#include "QZ/graph/grid.h"
#include "QZ/graph/layered.h"
#include "QZ/graph/star.h"
#include "support/graph_contents.h"
#include "support/index_types.h"

namespace {

using qz_test::EdgeList;
using qz_test::edges_of;
using qz_test::incidence_of;
using ::testing::ElementsAre;

template <class idx_t>
class Generated : public ::testing::Test {};
TYPED_TEST_SUITE(Generated, qz_test::IndexTypes);

TYPED_TEST(Generated, ChainJoinsNeighbours) {
  const QZ::Chain<TypeParam> chain(4);
  EXPECT_EQ(chain.vertices(), 4);
  EXPECT_EQ(edges_of(chain), (EdgeList{{0, 1}, {1, 2}, {2, 3}}));
  EXPECT_THAT(incidence_of<TypeParam>(chain, 1), ElementsAre(0, 1));
  EXPECT_TRUE(chain.ownsEdges);
}

TYPED_TEST(Generated, ChainOfOneHasNoEdge) {
  const QZ::Chain<TypeParam> chain(1);
  EXPECT_EQ(chain.vertices(), 1);
  EXPECT_EQ(chain.edges(), 0);
}

TYPED_TEST(Generated, EmptyChainAndGridAreEmpty) {
  EXPECT_EQ(QZ::Chain<TypeParam>(0).edges(), 0);
  EXPECT_EQ(QZ::Grid<TypeParam>(0).edges(), 0);
  EXPECT_EQ(QZ::Kn<TypeParam>(0).edges(), 0);
  EXPECT_EQ(QZ::RBMGraph<TypeParam>({}).edges(), 0);
}

TYPED_TEST(Generated, GridNumbersDownwardBeforeRightward) {
  EXPECT_EQ(QZ::Grid<TypeParam>(1).vertices(), 1);
  EXPECT_EQ(QZ::Grid<TypeParam>(1).edges(), 0);
  EXPECT_EQ(edges_of(QZ::Grid<TypeParam>(2)), (EdgeList{{0, 2}, {0, 1}, {1, 3}, {2, 3}}));
  EXPECT_EQ(edges_of(QZ::Grid<TypeParam>(3)), (EdgeList{{0, 3},
                                                        {0, 1},
                                                        {1, 4},
                                                        {1, 2},
                                                        {2, 5},
                                                        {3, 6},
                                                        {3, 4},
                                                        {4, 7},
                                                        {4, 5},
                                                        {5, 8},
                                                        {6, 7},
                                                        {7, 8}}));
}

TEST(Grid, TooLargeForTheIndexTypeIsRefused) {
  EXPECT_EQ(QZ::Grid<unsigned char>(11).edges(), 220);
  EXPECT_THROW(QZ::Grid<unsigned char>(12), std::logic_error);
  EXPECT_THROW(QZ::Grid<unsigned char>(16), std::logic_error);
  EXPECT_THROW(QZ::Grid<unsigned int>(70000), std::logic_error);
  EXPECT_THROW(QZ::Grid<unsigned long>(~0ul), std::logic_error);
}

TYPED_TEST(Generated, StarPutsTheCentreSecond) {
  EXPECT_EQ(edges_of(QZ::Star<TypeParam>(4, 1)), (EdgeList{{0, 1}, {2, 1}, {3, 1}}));
  EXPECT_EQ(QZ::Star<TypeParam>(1, 0).edges(), 0);
}

TEST(StarDeathTest, TheCentreIsAVertex) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const char* failure = "QZGRAPH:[0-9]+:.*Assertion `_c>=0 && _c<_n' failed";
  EXPECT_DEATH(QZ::Star<unsigned int>(3, 3), failure);
  EXPECT_DEATH(QZ::Star<unsigned int>(0, 0), failure);
}

TYPED_TEST(Generated, CompleteGraphNumbersPairsDownward) {
  EXPECT_EQ(edges_of(QZ::Kn<TypeParam>(2)), (EdgeList{{0, 1}}));
  EXPECT_EQ(edges_of(QZ::Kn<TypeParam>(4)),
            (EdgeList{{2, 3}, {1, 3}, {1, 2}, {0, 3}, {0, 2}, {0, 1}}));
  EXPECT_EQ(QZ::Kn<TypeParam>(1).edges(), 0);
}

TYPED_TEST(Generated, CompleteGraphDoesNotDependOnTheThreads) {
  EdgeList expected;
  for (unsigned long a = 0; a < 20; ++a) {
    for (unsigned long b = a + 1; b < 20; ++b) expected.insert(expected.begin(), {a, b});
  }
  const int before = omp_get_max_threads();
  for (int threads : {1, 2, 3, 7}) {
    omp_set_num_threads(threads);
    EXPECT_EQ(edges_of(QZ::Kn<TypeParam>(20)), expected);
  }
  omp_set_num_threads(before);
}

TEST(Kn, TooLargeForTheIndexTypeIsRefused) {
  EXPECT_EQ(QZ::Kn<unsigned char>(23).edges(), 253);
  EXPECT_THROW(QZ::Kn<unsigned char>(24), std::logic_error);
}

struct Report {
  std::size_t done, total;
  std::string tag;
};
std::vector<Report> reports;

void record(std::size_t done, std::size_t total, const char* tag) {
  reports.push_back({done, total, tag});
}

TEST(Kn, ReportsBeforeEachEdgeOfTheFirstThread) {
  const int before = omp_get_max_threads();
  for (int threads : {1, 2}) {
    omp_set_num_threads(threads);
    reports.clear();
    const QZ::Kn<unsigned int> graph(6, record);
    ASSERT_EQ(reports.size(), threads == 1 ? 15u : 8u);
    std::size_t least = 0;
    for (const Report& report : reports) {
      EXPECT_EQ(report.total, 14u);
      EXPECT_EQ(report.tag, "GRAPH");
      EXPECT_GE(report.done, least++);
    }
    if (threads == 1) {
      EXPECT_EQ(reports.back().done, 14u);
    }
  }
  omp_set_num_threads(before);
}

TYPED_TEST(Generated, LayersJoinTheirNeighboursOnly) {
  const QZ::RBMGraph<TypeParam> two({2, 3});
  EXPECT_EQ(two.vertices(), 5);
  EXPECT_EQ(edges_of(two), (EdgeList{{0, 2}, {0, 3}, {0, 4}, {1, 2}, {1, 3}, {1, 4}}));
  const QZ::RBMGraph<TypeParam> three({2, 1, 2});
  EXPECT_EQ(three.vertices(), 5);
  EXPECT_EQ(edges_of(three), (EdgeList{{0, 2}, {1, 2}, {2, 3}, {2, 4}}));
  EXPECT_EQ(QZ::RBMGraph<TypeParam>({3}).edges(), 0);
}

TEST(RBMGraph, TooLargeForTheIndexTypeIsRefused) {
  EXPECT_THROW(QZ::RBMGraph<unsigned char>({200, 100}), std::logic_error);
  EXPECT_THROW(QZ::RBMGraph<unsigned char>({20, 20}), std::logic_error);
  EXPECT_THROW(QZ::RBMGraph<unsigned long>({~0ul, ~0ul}), std::logic_error);
}

TYPED_TEST(Generated, MemoryFollowsTheCounts) {
  EXPECT_EQ(QZ::Grid<TypeParam>(3).mem(), sizeof(TypeParam) * (4 * 12 + 9 + 2) + 8);
}

}  // namespace
