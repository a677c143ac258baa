#include "QZ/machine/operations/score.h"

#include <gtest/gtest.h>

#include <cmath>

#include "support/pair_types.h"
#include "support/plain_table.h"
#include "support/small_model.h"

namespace {

template <class idx_t, class val_t>
class Silent : public QZ::InferenceAlgorithm<idx_t, val_t> {
 public:
  using QZ::InferenceAlgorithm<idx_t, val_t>::InferenceAlgorithm;
  void infer(const idx_t&) override {}
  void vertex_marginal(const idx_t&, const idx_t&, val_t&, val_t&) const override {}
  void edge_marginal(const idx_t&, const idx_t&, const idx_t&, val_t&, val_t&) const override {}
};

template <class Pair>
class RowScorer : public ::testing::Test {};
TYPED_TEST_SUITE(RowScorer, qz_test::AllPairs);

TYPED_TEST(RowScorer, AddsTheWeightsThatARowSelects) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  // Blocks of 6, 6 and 9 weights, which hold their own numbers.
  const auto container = qz_test::numbered_model<idx_t, val_t>(
      qz_test::listed_graph<idx_t>(3, {{0, 1}, {2, 0}, {1, 2}}), {2, 3, 3});
  Silent<idx_t, val_t> engine(container->graph, container->states, container->weights, nullptr);
  qz_test::PlainTable table;
  table.fill(2, {2, 3, 3}, {1, 2, 0, 0, 1, 2});
  std::mt19937 rng;
  QZ::RowScorer<idx_t, val_t> score(engine, table, rng);
  EXPECT_EQ(score(0), (1 * 3 + 2) + (6 + 0 * 2 + 1) + (12 + 2 * 3 + 0));
  EXPECT_EQ(score(1), (0 * 3 + 1) + (6 + 2 * 2 + 0) + (12 + 1 * 3 + 2));
}

TEST(RowScorerOfBytes, Wraps) {
  const auto container = qz_test::numbered_model<unsigned char, unsigned char>(
      qz_test::listed_graph<unsigned char>(3, {{0, 1}, {1, 2}}), {2, 2, 2});
  Silent<unsigned char, unsigned char> engine(container->graph, container->states,
                                              container->weights, nullptr);
  container->weights[3] = 200;
  container->weights[7] = 100;
  qz_test::PlainTable table;
  table.fill(1, {2, 2, 2}, {1, 1, 1});
  std::mt19937 rng;
  QZ::RowScorer<unsigned char, unsigned char> score(engine, table, rng);
  EXPECT_EQ(score(0), 44);
}

TEST(RowScorerOfBytes, RefusesANumberThatWouldWrapIntoAState) {
  const auto container = qz_test::numbered_model<unsigned char, unsigned char>(
      qz_test::listed_graph<unsigned char>(2, {{0, 1}}), {2, 2});
  Silent<unsigned char, unsigned char> engine(container->graph, container->states,
                                              container->weights, nullptr);
  qz_test::PlainTable table;
  table.fill(1, {2, 2}, {0, 257});
  std::mt19937 rng;
  QZ::RowScorer<unsigned char, unsigned char> score(engine, table, rng);
  EXPECT_THROW(score(0), std::logic_error);
}

TEST(MeanOverRows, DividesIntegersDownAndGivesThemZeroWithoutRows) {
  EXPECT_EQ(QZ::mean_over_rows<unsigned char>(255, 4), 63);
  EXPECT_EQ(QZ::mean_over_rows<unsigned char>(255, 300), 0);
  EXPECT_EQ(QZ::mean_over_rows<unsigned char>(255, 256), 0);
  EXPECT_EQ(QZ::mean_over_rows<unsigned long>(9, 0), 0u);
}

TEST(MeanOverRows, IsNotANumberForFloatsWithoutRows) {
  EXPECT_TRUE(std::isnan(QZ::mean_over_rows<float>(0, 0)));
  EXPECT_EQ(QZ::mean_over_rows<double>(-9, 4), -2.25);
}

}  // namespace
