#include "QZ/bp/pairwise_bp.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "QZ/bp/lbp.h"
#include "support/pair_types.h"
#include "support/run_lbp.h"

namespace {

using qz_test::TestModel;

/// The smallest arithmetic that the loop can run on: counting. The "sum" of terms is the last term
/// plus their number, and nothing is normalised.
template <class idx_t, class val_t>
class Counting : public QZ::PairwiseBP<idx_t, val_t> {
 public:
  explicit Counting(TestModel<idx_t, val_t>& model)
      : QZ::PairwiseBP<idx_t, val_t>(model.graph.get(), model.states.data(), model.weights.data(),
                                     nullptr, 7) {
    this->epsilon = 0;
  }
  void vertex_marginal(const idx_t&, const idx_t&, val_t&, val_t&) const override {}
  void edge_marginal(const idx_t&, const idx_t&, const idx_t&, val_t&, val_t&) const override {}
  void compute_edge_normalization() override {
#pragma omp single
    ++normalized;
  }
  void post_process() override {
#pragma omp single
    ++processed;
  }
  val_t A_local() const override { return 42; }
  val_t map_logarithm(const val_t& x) const override { return x; }
  val_t map_exponential(const val_t& x) const override { return x; }
  val_t map_other(const val_t& a, const val_t& first) const override {
    firsts += first != 0;
    return static_cast<val_t>(a + 1);
  }
  int normalized = 0;
  int processed = 0;
  mutable int firsts = 0;
};

template <class P>
class PairwiseBpAllPairs : public testing::Test {};
TYPED_TEST_SUITE(PairwiseBpAllPairs, qz_test::AllPairs);

TYPED_TEST(PairwiseBpAllPairs, LaysOutMessagesByEdgeAndBeliefsByVertex) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  TestModel<idx_t, val_t> model(3, {{0, 1}, {2, 1}}, {2, 3, 4});
  Counting<idx_t, val_t> engine(model);
  EXPECT_EQ(engine.message_count, 3 + 2 + 3 + 4);
  EXPECT_EQ(engine.message_storage, 24);
  const std::vector<int> offsets{0, 3, 5, 8};
  for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(engine.message_offsets[i], offsets[i]);
  EXPECT_EQ(engine.belief_count, 9);
  EXPECT_EQ(engine.belief_offsets[2], 5);
  EXPECT_EQ(engine.tree_flag, 7);
  for (std::size_t v = 0; v < 3; ++v) EXPECT_EQ(engine.vertex_partition[v], static_cast<val_t>(-1));
}

TYPED_TEST(PairwiseBpAllPairs, ConvergenceIsTestedAtOneMillionthAtFirst) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  TestModel<idx_t, val_t> model(2, {{0, 1}}, {2, 2});
  if constexpr (std::is_floating_point_v<val_t>) {
    QZ::LBP<idx_t, val_t> engine(model.graph.get(), model.states.data(), model.weights.data(),
                                 nullptr);
    EXPECT_EQ(engine.epsilon, static_cast<val_t>(1e-6));
  } else {
    Counting<idx_t, val_t> engine(model);
    EXPECT_EQ(engine.epsilon, 0);
  }
}

TYPED_TEST(PairwiseBpAllPairs, RunsThroughTheOperationsOfTheDerivedClass) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  TestModel<idx_t, val_t> model(2, {{0, 1}}, {2, 3});
  for (int threads : {1, 2}) {
    qz_test::ThreadCount team(threads);
    Counting<idx_t, val_t> engine(model);
    engine.max_iterations = 3;
    engine.infer(0);
    EXPECT_EQ(engine.normalized, 1);
    EXPECT_GE(engine.processed, 1);
    EXPECT_EQ(engine.log_partition, 42);
    engine.infer_continue(5);
    EXPECT_EQ(engine.normalized, 2);
  }
}

TEST(PairwiseBp, IntegerMessagesAreTheLastAccumulatedLength) {
  TestModel<unsigned int, unsigned int> model(2, {{0, 1}}, {2, 3});
  model.weights = {1, 2, 3, 4, 5, 6};
  Counting<unsigned int, unsigned int> engine(model);
  engine.lbp<false>();
  // The last row plus one towards the second vertex, the last column plus one towards the first.
  const std::vector<unsigned> expected{5, 6, 7, 4, 7};
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(engine.messages[i], expected[i]);
  EXPECT_EQ(engine.firsts, 5);
}

TEST(PairwiseBp, IntegerMaximaStartFromZeroAndCompareUnsigned) {
  TestModel<unsigned char, unsigned char> model(2, {{0, 1}}, {2, 2});
  model.weights = {1, 2, 250, 4};
  Counting<unsigned char, unsigned char> engine(model);
  engine.lbp<true>();
  EXPECT_EQ(engine.messages[0], 250);
  EXPECT_EQ(engine.messages[1], 4);
  EXPECT_EQ(engine.messages[2], 2);
  EXPECT_EQ(engine.messages[3], 250);
}

TEST(PairwiseBp, IntegerCavitiesWrap) {
  TestModel<unsigned char, unsigned char> model(2, {{0, 1}}, {1, 1});
  Counting<unsigned char, unsigned char> engine(model);
  engine.beliefs[0] = 3;
  engine.messages[engine.message_offsets[1]] = 5;
  EXPECT_EQ(engine.get_log_prod(0, 0, 1, 0), 254);
}

TEST(PairwiseBp, IntegerVerticesAreClampedByEveryStateBelowTheirCount) {
  TestModel<unsigned int, unsigned int> model(2, {{0, 1}}, {2, 2});
  model.weights = {1, 2, 3, 4};
  Counting<unsigned int, unsigned int> engine(model);
  engine.observed[0] = 1;
  engine.lbp<false>();
  EXPECT_EQ(engine.messages[0], 3u);
  EXPECT_EQ(engine.messages[1], 4u);
}

TEST(PairwiseBp, IntegerBeliefsAreNotCentred) {
  TestModel<unsigned int, unsigned int> model(2, {{0, 1}}, {2, 2});
  model.weights = {1, 2, 3, 4};
  Counting<unsigned int, unsigned int> engine(model);
  engine.max_iterations = 1;
  engine.infer(1);
  EXPECT_EQ(engine.beliefs[engine.belief_offsets[1]], 3u);
  EXPECT_EQ(engine.beliefs[engine.belief_offsets[1] + 1], 4u);
}

TEST(PairwiseBp, NoLoopIsEnteredWithoutIterations) {
  TestModel<unsigned int, unsigned int> model(2, {{0, 1}}, {2, 2});
  Counting<unsigned int, unsigned int> engine(model);
  engine.infer(0);
  EXPECT_EQ(engine.processed, 0);
  EXPECT_EQ(engine.normalized, 1);
}

TEST(PairwiseBp, RefusesAModelWhoseMessagesItsIndexTypeCannotNumber) {
  // 31 edges between vertices of two states have 124 entries of messages in a generation, and 248
  // in both. One edge more makes 256, though the 128 parameters would still fit.
  std::vector<std::pair<std::size_t, std::size_t>> star;
  for (std::size_t v = 1; v <= 31; ++v) star.emplace_back(0, v);
  TestModel<unsigned char, float> fits(32, star, std::vector<std::size_t>(32, 2));
  EXPECT_EQ((QZ::LBP<unsigned char, float>(fits.graph.get(), fits.states.data(), nullptr, nullptr)
                 .message_storage),
            248);
  star.emplace_back(0, 32);
  TestModel<unsigned char, float> wide(33, star, std::vector<std::size_t>(33, 2));
  try {
    QZ::LBP<unsigned char, float> engine(wide.graph.get(), wide.states.data(), nullptr, nullptr);
    FAIL();
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "the index type is too narrow for the model");
  }
}

}  // namespace
