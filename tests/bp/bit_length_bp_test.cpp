#include "QZ/bp/bit_length_bp.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <random>
#include <vector>

#include "support/pairwise_models.h"
#include "support/plain_bit_length.h"

namespace {

using qz_test::PlainBitLength;
using qz_test::TestModel;

template <class T>
struct Engine : QZ::BitLengthBP<T> {
  Engine(TestModel<T, T>& model, std::size_t iterations = 50)
      : QZ::BitLengthBP<T>(model.graph.get(), model.states.data(), model.weights.data(), nullptr) {
    this->max_iterations = static_cast<T>(iterations);
  }
  std::vector<T> message(std::size_t e, int direction, std::size_t count) const {
    const T* begin = this->messages + this->message_offsets[2 * e + direction];
    return {begin, begin + count};
  }
};

/// Compares everything that an engine shows with the plain rule.
template <class T>
void expect_plain(TestModel<T, T>& model, const std::vector<T>& observed, T mode,
                  std::size_t iterations) {
  PlainBitLength<T> plain(model, observed);
  plain.run(mode == 1, iterations);
  Engine<T> engine(model, iterations);
  for (std::size_t v = 0; v < observed.size(); ++v) engine.observe(static_cast<T>(v), observed[v]);
  engine.infer(mode);
  EXPECT_EQ(engine.log_partition, plain.log_partition());
  for (std::size_t e = 0; e < model.edges(); ++e) {
    for (int d : {0, 1}) {
      EXPECT_EQ(engine.message(e, d, plain.fresh[e][d].size()), plain.fresh[e][d]);
    }
    const auto [s, t] = model.ends(e);
    std::vector<T> all_q(std::size_t{model.states[s]} * model.states[t]);
    std::vector<T> all_Z(all_q.size());
    engine.edge_marginals(static_cast<T>(e), all_q.data(), all_Z.data());
    std::size_t pair = 0;
    for (T xs = 0; xs < model.states[s]; ++xs) {
      for (T xt = 0; xt < model.states[t]; ++xt, ++pair) {
        T q = 0, Z = 0;
        engine.edge_marginal(static_cast<T>(e), xs, xt, q, Z);
        const auto expected = plain.edge_marginal(e, xs, xt);
        EXPECT_EQ(q, expected.q);
        EXPECT_EQ(Z, expected.Z);
        EXPECT_EQ(all_q[pair], expected.q);
        EXPECT_EQ(all_Z[pair], expected.Z);
      }
    }
  }
  for (std::size_t v = 0; v < model.vertices(); ++v) {
    for (T x = 0; x < model.states[v]; ++x) {
      T q = 0, Z = 0;
      engine.vertex_marginal(static_cast<T>(v), x, q, Z);
      const auto expected = plain.vertex_marginal(v, x);
      EXPECT_EQ(q, expected.q);
      EXPECT_EQ(Z, expected.Z);
    }
  }
}

template <class T>
class BitLength : public testing::Test {};
using Widths = testing::Types<unsigned char, unsigned short, unsigned int, unsigned long>;
TYPED_TEST_SUITE(BitLength, Widths);

TYPED_TEST(BitLength, OneTermHasItsExponentPlusOne) {
  TestModel<TypeParam, TypeParam> model(2, {{0, 1}}, {2, 2});
  const Engine<TypeParam> engine(model);
  EXPECT_EQ(engine.map_other(5, true), 6);
}

TYPED_TEST(BitLength, TwoEqualTermsReachOneBitFurther) {
  TestModel<TypeParam, TypeParam> model(2, {{0, 1}}, {2, 2});
  const Engine<TypeParam> engine(model);
  engine.map_other(5, true);
  EXPECT_EQ(engine.map_other(5, false), 7);
  EXPECT_EQ(engine.map_other(0, true), 1) << "the first term empties the sum";
}

TYPED_TEST(BitLength, ZeroParametersGiveZeroMessages) {
  TestModel<TypeParam, TypeParam> model(2, {{0, 1}}, {2, 2});
  Engine<TypeParam> engine(model);
  engine.infer(0);
  // Every entry is the bit length of 1 + 1, and then the smallest one is taken away.
  EXPECT_EQ(engine.message(0, 0, 2), (std::vector<TypeParam>{0, 0}));
  EXPECT_EQ(engine.log_partition, 2);
}

TYPED_TEST(BitLength, AnEdgeByHand) {
  TestModel<TypeParam, TypeParam> model(2, {{0, 1}}, {2, 2});
  model.weights = {0, 1, 2, 3};
  Engine<TypeParam> engine(model);
  engine.infer(0);
  // To the second vertex: 1 + 4 = 5 has 3 bits, 2 + 8 = 10 has 4. To the first: 3 has 2, 12 has 4.
  EXPECT_EQ(engine.message(0, 0, 2), (std::vector<TypeParam>{0, 1}));
  EXPECT_EQ(engine.message(0, 1, 2), (std::vector<TypeParam>{0, 2}));
  TypeParam q = 0, Z = 0;
  engine.vertex_marginal(0, 1, q, Z);
  EXPECT_EQ(q, sizeof(TypeParam) == 1 ? 1 : 4);
  EXPECT_EQ(Z, sizeof(TypeParam) == 1 ? 1 : 5);
}

TYPED_TEST(BitLength, WithoutIterationsNothingMoves) {
  TestModel<TypeParam, TypeParam> model(2, {{0, 1}}, {2, 2});
  model.weights = {0, 1, 2, 3};
  Engine<TypeParam> engine(model, 0);
  engine.infer(0);
  EXPECT_EQ(engine.message(0, 0, 2), (std::vector<TypeParam>{0, 0}));
  EXPECT_EQ(engine.log_partition, 2);
}

TYPED_TEST(BitLength, AVertexWithOneStateIsCertain) {
  TestModel<TypeParam, TypeParam> model(2, {{0, 1}}, {1, 1});
  model.weights = {9};
  Engine<TypeParam> engine(model);
  engine.infer(0);
  TypeParam q = 0, Z = 0;
  engine.vertex_marginal(0, 0, q, Z);
  EXPECT_EQ(q, 1);
  EXPECT_EQ(Z, 1);
  q = Z = 0;
  engine.edge_marginal(0, 0, 0, q, Z);
  EXPECT_EQ(q, 1);
  EXPECT_EQ(Z, 1);
}

TYPED_TEST(BitLength, ACavityBelowZeroWrapsAtTheWidth) {
  TestModel<TypeParam, TypeParam> model(2, {{0, 1}}, {2, 2});
  Engine<TypeParam> engine(model);
  engine.infer(0);
  engine.beliefs[engine.belief_offsets[0]] = 3;
  engine.messages[engine.message_offsets[1]] = 5;
  EXPECT_EQ(engine.get_log_prod(0, 0, 1, 0), static_cast<TypeParam>(-2));
}

TYPED_TEST(BitLength, MeetsThePlainRuleOnRandomModels) {
  std::mt19937 rng(11);
  for (int round = 0; round < 60; ++round) {
    const std::size_t n = 2 + rng() % 5;
    const auto edges =
        round % 3 == 0 ? qz_test::complete_edges(std::min<std::size_t>(n, 4))
                       : (round % 3 == 1 ? qz_test::tree_edges(n, rng) : qz_test::chain_edges(n));
    const std::size_t vertices = round % 3 == 0 ? std::min<std::size_t>(n, 4) : n;
    TestModel<TypeParam, TypeParam> model(vertices, edges,
                                          qz_test::random_counts(vertices, 1, 3, rng));
    // Small exponents share a word; large ones need numbers of any size, and wrap.
    const unsigned long bound = round % 2 == 0 ? 8 : 70000;
    for (TypeParam& w : model.weights) w = static_cast<TypeParam>(rng() % bound);
    std::vector<TypeParam> observed(vertices, QZ::all_ones<TypeParam>);
    if (round % 4 == 0) observed[rng() % vertices] = 0;
    omp_set_num_threads(1 + round % 2);
    expect_plain<TypeParam>(model, observed, round % 5 == 0 ? 1 : 0, rng() % 12);
  }
}

/// Models whose vertices all have the same number of states go through loops of their own.
TYPED_TEST(BitLength, MeetsThePlainRuleForEveryUniformStateCount) {
  std::mt19937 rng(12);
  for (const std::size_t count : {1, 2, 3, 4, 5, 8}) {
    for (const unsigned long bound : {6ul, 200ul, 300ul, 1ul << 40}) {
      TestModel<TypeParam, TypeParam> model(3, {{0, 1}, {2, 1}}, {count, count, count});
      for (TypeParam& w : model.weights) w = static_cast<TypeParam>(rng() * rng() % bound);
      const std::vector<TypeParam> observed(3, QZ::all_ones<TypeParam>);
      expect_plain<TypeParam>(model, observed, 0, 5);
      expect_plain<TypeParam>(model, observed, 1, 5);
    }
  }
}

TYPED_TEST(BitLength, MeetsThePlainRuleWithObservations) {
  std::mt19937 rng(13);
  for (const std::size_t count : {2, 3, 4}) {
    TestModel<TypeParam, TypeParam> model(4, qz_test::chain_edges(4),
                                          std::vector<std::size_t>(4, count));
    for (TypeParam& w : model.weights) w = static_cast<TypeParam>(rng() % 7);
    std::vector<TypeParam> observed(4, QZ::all_ones<TypeParam>);
    observed[1] = 1;
    for (const std::size_t iterations : {0, 1, 2, 30}) {
      expect_plain<TypeParam>(model, observed, 0, iterations);
    }
    observed[3] = 0;
    expect_plain<TypeParam>(model, observed, 1, 30);
  }
}

TYPED_TEST(BitLength, FollowsItsWeightsFromRunToRun) {
  TestModel<TypeParam, TypeParam> model(2, {{0, 1}}, {2, 2});
  const std::vector<TypeParam> observed(2, QZ::all_ones<TypeParam>);
  Engine<TypeParam> engine(model);
  for (const unsigned long largest : {3ul, 255ul, 256ul, ~0ul, 2ul}) {
    model.weights = {0, 1, 2, static_cast<TypeParam>(largest)};
    engine.infer(0);
    PlainBitLength<TypeParam> plain(model, observed);
    plain.run(false, 50);
    EXPECT_EQ(engine.message(0, 0, 2), plain.fresh[0][0]) << largest;
    EXPECT_EQ(engine.message(0, 1, 2), plain.fresh[0][1]) << largest;
  }
}

TYPED_TEST(BitLength, TellsHowFarItHasCome) {
  TestModel<TypeParam, TypeParam> model(3, {{0, 1}, {1, 2}}, {2, 2, 2});
  model.weights = {0, 1, 2, 3, 4, 0, 0, 1};
  Engine<TypeParam> settled(model);
  settled.infer(0);
  EXPECT_EQ(settled.delta, 0);
  EXPECT_EQ(settled.iterations, 3);
  Engine<TypeParam> stopped(model, 1);
  stopped.infer(0);
  EXPECT_GT(stopped.delta, 0);
  EXPECT_EQ(stopped.iterations, 1);
  EXPECT_EQ(stopped.vertex_partition[2], QZ::all_ones<TypeParam>);
}

/// Going on from empty messages is the rule edge by edge, and the two share all that they leave.
TYPED_TEST(BitLength, LeavesWhatTheRuleEdgeByEdgeLeaves) {
  std::mt19937 rng(14);
  for (int round = 0; round < 40; ++round) {
    const std::size_t n = 2 + rng() % 4;
    TestModel<TypeParam, TypeParam> model(n, qz_test::tree_edges(n, rng),
                                          qz_test::random_counts(n, 1, 4, rng));
    for (TypeParam& w : model.weights) w = static_cast<TypeParam>(rng() % (round < 20 ? 9 : 1000));
    omp_set_num_threads(1 + round % 3);
    Engine<TypeParam> arranged(model, round % 4);
    Engine<TypeParam> by_edge(model, round % 4);
    arranged.infer(round % 2);
    by_edge.infer_continue(round % 2);
    const auto same = [&](const TypeParam* a, const TypeParam* b, std::size_t count) {
      return std::vector<TypeParam>(a, a + count) == std::vector<TypeParam>(b, b + count);
    };
    EXPECT_TRUE(same(arranged.messages, by_edge.messages, arranged.message_storage));
    EXPECT_TRUE(same(arranged.beliefs, by_edge.beliefs, arranged.belief_count));
    EXPECT_EQ(arranged.iterations, by_edge.iterations);
    EXPECT_EQ(arranged.delta, by_edge.delta);
    EXPECT_EQ(arranged.log_partition, by_edge.log_partition);
  }
  omp_set_num_threads(2);
}

TYPED_TEST(BitLength, GoesOnFromTheMessagesOfTheLastRun) {
  std::mt19937 rng(3);
  TestModel<TypeParam, TypeParam> model(4, qz_test::chain_edges(4), {2, 3, 2, 2});
  for (TypeParam& w : model.weights) w = static_cast<TypeParam>(rng() % 6);
  Engine<TypeParam> whole(model, 40);
  whole.infer(0);
  Engine<TypeParam> parts(model, 40);
  parts.infer(0);
  parts.infer_continue(0);
  for (std::size_t e = 0; e < 3; ++e) {
    const auto [s, t] = model.ends(e);
    EXPECT_EQ(whole.message(e, 0, model.states[t]), parts.message(e, 0, model.states[t]));
    EXPECT_EQ(whole.message(e, 1, model.states[s]), parts.message(e, 1, model.states[s]));
  }
}

TYPED_TEST(BitLength, TheExhaustiveModeCutsAndWraps) {
  TestModel<TypeParam, TypeParam> model(2, {{0, 1}}, {2, 2});
  model.weights = {0, 1, 2, 0};
  Engine<TypeParam> engine(model);
  engine.infer(10);
  // exp cuts to 1, 2, 7 and 1; the sum is 11, and its logarithm cuts to 2.
  EXPECT_EQ(engine.log_partition, 2);
  EXPECT_EQ((std::vector<TypeParam>(engine.moment_sums, engine.moment_sums + 4)),
            (std::vector<TypeParam>{1, 2, 7, 1}));
}

/// 45 states whose powers of two sum up to one below the next power, or to that power: more ones in
/// a row than a word of 32 bits takes.
TEST(BitLengthOfManyStates, DecidesByTheSmallestTerms) {
  for (const bool whole : {false, true}) {
    TestModel<unsigned int, unsigned int> model(2, {{0, 1}}, {45, 3});
    for (unsigned x = 0; x < 45; ++x) {
      const unsigned step = whole && x == 44 ? 43 : x;
      for (unsigned y = 0; y < 3; ++y) model.weights[3 * x + y] = 100 - step + (y == 2 ? 50 : 0);
    }
    expect_plain<unsigned int>(model, std::vector<unsigned int>(2, ~0u), 0, 5);
  }
}

TEST(BitLengthOfManyStates, TakesAnyNumberOfNeighbours) {
  std::mt19937 rng(15);
  std::vector<std::pair<std::size_t, std::size_t>> edges;
  for (std::size_t v = 1; v < 60; ++v) edges.emplace_back(v % 2 == 0 ? 0 : v, v % 2 == 0 ? v : 0);
  TestModel<unsigned long, unsigned long> model(60, edges, qz_test::random_counts(60, 1, 12, rng));
  for (const unsigned long bound : {10ul, 100000ul, ~0ul}) {
    for (unsigned long& w : model.weights) w = (rng() * 4294967296ul + rng()) % bound;
    expect_plain<unsigned long>(model, std::vector<unsigned long>(60, ~0ul), 0, 4);
  }
}

TEST(NarrowPowerSum, SaysWhenExponentsLieTooFarApart) {
  const unsigned long near[] = {100, 101, 103};
  const unsigned long far[] = {0, 200};
  const QZ::NarrowPowerSum held(3, [&](std::size_t x) { return near[x]; });
  ASSERT_TRUE(held.exact());
  EXPECT_EQ(held.bit_length(), 104u);
  EXPECT_EQ(held.shifted(98), 44u);
  EXPECT_EQ(held.shifted(100), 11u);
  EXPECT_EQ(held.shifted(102), 2u);
  EXPECT_EQ(held.shifted(300), 0u);
  EXPECT_FALSE(QZ::NarrowPowerSum(2, [&](std::size_t x) { return far[x]; }).exact());
  const unsigned long wrapped[] = {0, ~0ul - 1};
  EXPECT_FALSE(QZ::NarrowPowerSum(2, [&](std::size_t x) { return wrapped[x]; }).exact());
  EXPECT_FALSE(QZ::NarrowPowerSum(0, [&](std::size_t) { return 0ul; }).exact());
}

}  // namespace
