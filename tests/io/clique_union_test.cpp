#include "QZ/io/clique_union.h"

#include <gtest/gtest.h>

#include <numeric>

#include "support/index_types.h"

namespace {

template <class idx_t>
class CliqueUnion : public ::testing::Test {
 public:
  using Set = std::vector<idx_t>;
  QZ::CliqueUnion<idx_t> cliques{5};

  int edges() { return std::accumulate(cliques.adjacency(), cliques.adjacency() + 25, 0) / 2; }
};
TYPED_TEST_SUITE(CliqueUnion, qz_test::IndexTypes);

TYPED_TEST(CliqueUnion, StartsWithoutComponents) {
  for (int v = 0; v < 5; ++v) EXPECT_FALSE(this->cliques.connected(v));
  EXPECT_EQ(this->cliques.reached(), 0);
}

TYPED_TEST(CliqueUnion, JoinsAllPairsBothWays) {
  EXPECT_TRUE(this->cliques.process({0, 2, 3}));
  EXPECT_EQ(this->edges(), 3);
  for (const auto& [a, b] : {std::pair(0, 2), std::pair(0, 3), std::pair(2, 3)}) {
    EXPECT_EQ(this->cliques.adjacency()[a * 5 + b], 1);
    EXPECT_EQ(this->cliques.adjacency()[b * 5 + a], 1);
  }
  EXPECT_EQ(this->cliques.component_members(2), (typename TestFixture::Set{0, 2, 3}));
  EXPECT_EQ(this->cliques.reached(), 3);
}

TYPED_TEST(CliqueUnion, RefusesACliqueInsideAComponent) {
  this->cliques.process({0, 1, 2});
  this->cliques.process({2, 3});
  EXPECT_FALSE(this->cliques.process({0, 3}));
  EXPECT_EQ(this->edges(), 4);
  EXPECT_EQ(this->cliques.adjacency()[3], 0);
}

TYPED_TEST(CliqueUnion, AddsPairsInsideAComponentWithANewVertex) {
  this->cliques.process({0, 1});
  this->cliques.process({1, 2});
  EXPECT_TRUE(this->cliques.process({0, 2, 3}));
  EXPECT_EQ(this->edges(), 5);
}

TYPED_TEST(CliqueUnion, MergesComponents) {
  this->cliques.process({0, 4});
  this->cliques.process({1, 3});
  EXPECT_NE(this->cliques.component(0), this->cliques.component(1));
  EXPECT_TRUE(this->cliques.process({3, 4}));
  for (int v : {0, 1, 3, 4}) EXPECT_EQ(this->cliques.component(v), this->cliques.component(0));
  EXPECT_EQ(this->cliques.component_members(0), (typename TestFixture::Set{0, 1, 3, 4}));
  EXPECT_FALSE(this->cliques.connected(2));
}

}  // namespace
