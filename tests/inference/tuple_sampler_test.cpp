#include "QZ/inference/tuple_sampler.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "QZ/inference/sqm.h"
#include "support/pair_types.h"
#include "support/polynomial_model.h"

namespace {

using QZ::SQM;
using QZ::TupleSampler;
using qz_test::PolynomialModel;

template <class idx_t>
using Model = PolynomialModel<idx_t, double>;

template <class idx_t>
std::vector<idx_t> narrow(const std::vector<std::size_t>& wide) {
  return std::vector<idx_t>(wide.begin(), wide.end());
}

/// How many configurations select all parameters of the tuple.
template <class idx_t>
std::size_t selecting(const Model<idx_t>& model, const std::vector<idx_t>& tuple) {
  std::size_t count = 0;
  model.for_each_configuration([&](const std::vector<std::size_t>& selected) {
    const std::set<std::size_t> set(selected.begin(), selected.end());
    bool all = true;
    for (idx_t i : tuple) all = all && set.count(i) == 1;
    count += all;
  });
  return count;
}

TEST(TupleSampler, DrawsEachTupleInProportionToItsConfigurations) {
  Model<unsigned int> model({2, 3, 2}, {{0, 1}, {2, 1}});
  model.fill(-0.6, 0.9, 3);
  SQM<unsigned int, double> engine(&model.graph, model.states.data(), model.weights.data(),
                                   &model.rng, 3);
  engine.init_sqm();
  const int draws = 200000;
  std::map<std::vector<unsigned int>, int> seen;
  std::vector<unsigned int> room(3, 77);
  unsigned int* tuple = room.data();
  for (int i = 0; i < draws; ++i) {
    unsigned int d = 9;
    engine.sample(tuple, d);
    ++seen[std::vector<unsigned int>(room.begin(), room.begin() + d)];
    for (unsigned int p = d; p < 3; ++p) ASSERT_EQ(room[p], 0u);
  }
  double chi_square = 0;
  double covered = 0;
  for (const auto& [drawn, count] : seen) {
    const double probability = std::abs(engine.coefficients[drawn.size()]) *
                               double(selecting(model, drawn)) / engine.mass_total;
    ASSERT_GT(probability, 0);
    covered += probability;
    chi_square += std::pow(count - draws * probability, 2) / (draws * probability);
  }
  EXPECT_NEAR(covered, 1, 1e-2);
  const double cells = double(seen.size());
  EXPECT_LT(chi_square, cells + 5 * std::sqrt(2 * cells));
}

template <class idx_t>
class TupleSamplers : public ::testing::Test {};
using IndexTypes = ::testing::Types<unsigned char, unsigned short, unsigned int, unsigned long>;
TYPED_TEST_SUITE(TupleSamplers, IndexTypes);

TYPED_TEST(TupleSamplers, TuplesAgreeOnTheirVertices) {
  Model<TypeParam> model({2, 2, 3, 2}, {{0, 1}, {1, 2}, {2, 3}, {3, 0}});
  const auto offsets = narrow<TypeParam>(model.offsets);
  TupleSampler<TypeParam> sampler(&model.graph, model.states.data(), offsets.data(), 6);
  sampler.set_length_weights(std::vector<double>(7, 1));
  std::vector<TypeParam> tuple(6);
  std::set<int> lengths;
  for (int i = 0; i < 3000; ++i) {
    TypeParam d = 0;
    sampler.draw(tuple.data(), d, model.rng);
    lengths.insert(d);
    const std::vector<TypeParam> drawn(tuple.begin(), tuple.begin() + d);
    ASSERT_GT(selecting(model, drawn), 0u);
  }
  EXPECT_EQ(lengths, (std::set<int>{0, 1, 2, 3, 4, 5, 6}));
}

TYPED_TEST(TupleSamplers, AllWidthsDrawTheSame) {
  Model<TypeParam> model({2, 2, 3, 2}, {{0, 1}, {1, 2}, {2, 3}, {3, 0}});
  Model<unsigned int> other(std::vector<unsigned int>{2, 2, 3, 2}, model.edges);
  const auto offsets = narrow<TypeParam>(model.offsets);
  const auto other_offsets = narrow<unsigned int>(other.offsets);
  TupleSampler<TypeParam> a(&model.graph, model.states.data(), offsets.data(), 4);
  TupleSampler<unsigned int> b(&other.graph, other.states.data(), other_offsets.data(), 4);
  a.set_length_weights({1, 1, 1, 1, 1});
  b.set_length_weights({1, 1, 1, 1, 1});
  std::vector<TypeParam> tuple(4);
  std::vector<unsigned int> other_tuple(4);
  for (int i = 0; i < 200; ++i) {
    TypeParam d = 0;
    unsigned int other_d = 0;
    a.draw(tuple.data(), d, model.rng);
    b.draw(other_tuple.data(), other_d, other.rng);
    EXPECT_EQ(d, other_d);
    EXPECT_EQ(std::vector<unsigned int>(tuple.begin(), tuple.end()), other_tuple);
  }
}

/// A path of n vertices with `count` states each.
template <class idx_t>
Model<idx_t> path(std::size_t n, idx_t count) {
  typename Model<idx_t>::Edges edges;
  for (unsigned long v = 0; v + 1 < n; ++v) edges.emplace_back(v, v + 1);
  return {std::vector<idx_t>(n, count), edges};
}

/// Binomial coefficient and Stirling number by their recurrences.
unsigned long choose(unsigned long n, unsigned long k) {
  return k == 0 ? 1 : n == 0 ? 0 : choose(n - 1, k - 1) + choose(n - 1, k);
}
unsigned long blocks(unsigned long n, unsigned long k) {
  if (n == k) return 1;
  return k == 0 || k > n ? 0 : k * blocks(n - 1, k) + blocks(n - 1, k - 1);
}

/// One draw with the language's own distributions and plain tables, on a path of binary vertices
/// with m edges.
std::vector<unsigned int> plain_draw(unsigned long m, const std::vector<double>& length_weights,
                                     std::mt19937& rng) {
  const auto uniform = [&](unsigned long low, unsigned long high) {
    return std::uniform_int_distribution<unsigned long>(low, high)(rng);
  };
  std::discrete_distribution<int> length(length_weights.begin(), length_weights.end());
  const unsigned long d = static_cast<unsigned long>(length(rng));
  if (d == 0) return {};

  std::vector<double> distinct;
  unsigned long orders = 1;
  for (unsigned long j = 1; j <= d; ++j) {
    distinct.push_back(double(blocks(d, j) * choose(m, j) * (orders *= j)));
  }
  std::discrete_distribution<int> edges(distinct.begin(), distinct.end());
  const unsigned long j = static_cast<unsigned long>(edges(rng)) + 1;

  // The subset of this rank in lexicographic order.
  unsigned long rank = uniform(1, choose(m, j));
  std::vector<unsigned int> chosen;
  for (unsigned int e = 0; chosen.size() < j; ++e) {
    const unsigned long with_e = choose(m - e - 1, j - chosen.size() - 1);
    if (rank <= with_e) {
      chosen.push_back(e);
    } else {
      rank -= with_e;
    }
  }

  orders = 1;
  for (unsigned long i = 2; i <= j; ++i) orders *= i;
  const unsigned long r = uniform(0, orders * blocks(d, j) - 1);
  const unsigned int* partition = QZ::getUnorderedkPartition<unsigned int>(d, j, r / orders);
  const unsigned int* permutation = QZ::getPermutation<unsigned int>(j, r % orders);

  std::set<unsigned int> vertices;
  for (unsigned int e : chosen) vertices.insert({e, e + 1});
  unsigned long pick = uniform(0, (1ul << vertices.size()) - 1);
  std::map<unsigned int, unsigned int> state;
  for (unsigned int v : vertices) {
    state[v] = pick % 2;
    pick /= 2;
  }

  std::vector<unsigned int> tuple;
  for (unsigned long p = 0; p < d; ++p) {
    const unsigned int e = chosen[permutation[partition[p] - 1] - 1];
    tuple.push_back(4 * e + 2 * state[e] + state[e + 1]);
  }
  return tuple;
}

TEST(TupleSampler, DrawsLengthEdgesArrangementAndStatesInThisOrder) {
  for (unsigned long m : {1ul, 2ul, 5ul, 9ul}) {
    auto model = path<unsigned int>(m + 1, 2);
    const auto offsets = narrow<unsigned int>(model.offsets);
    const std::vector<double> weights{0.5, 1, 2, 1, 3, 2, 1};
    TupleSampler<unsigned int> sampler(&model.graph, model.states.data(), offsets.data(), 6);
    sampler.set_length_weights(weights);
    std::mt19937 rng(21);
    std::mt19937 plain_rng(21);
    for (int i = 0; i < 500; ++i) {
      std::vector<unsigned int> tuple(6);
      unsigned int d = 0;
      sampler.draw(tuple.data(), d, rng);
      tuple.resize(d);
      ASSERT_EQ(tuple, plain_draw(m, weights, plain_rng)) << "draw " << i << " of " << m;
    }
  }
}

TEST(TupleSampler, ReachesAllSetsOfEdgesAlsoWhereTheirNumberIsBeyondTheIndexType) {
  auto model = path<unsigned char>(31, 2);
  const auto offsets = narrow<unsigned char>(model.offsets);
  TupleSampler<unsigned char> sampler(&model.graph, model.states.data(), offsets.data(), 3);
  sampler.set_length_weights({0, 0, 0, 1});
  std::vector<unsigned char> tuple(3);
  std::set<int> edges;
  for (int i = 0; i < 2000; ++i) {
    unsigned char d = 0;
    sampler.draw(tuple.data(), d, model.rng);
    for (int p : tuple) edges.insert(p / 4);
  }
  EXPECT_EQ(edges.size(), 30u);
}

TEST(TupleSampler, DrawsStatesOneByOneWhereTheirNumberIsBeyondAWord) {
  // Ten separate edges with 100 states at each end: 10^40 configurations.
  Model<unsigned long>::Edges edges;
  for (unsigned long e = 0; e < 40; ++e) edges.emplace_back(2 * e, 2 * e + 1);
  Model<unsigned long> model(std::vector<unsigned long>(80, 100), edges);
  TupleSampler<unsigned long> sampler(&model.graph, model.states.data(), model.offsets.data(), 8);
  std::vector<double> weights(9, 0);
  weights[8] = 1;
  sampler.set_length_weights(weights);
  std::vector<unsigned long> tuple(8);
  double mean = 0;
  for (int i = 0; i < 2000; ++i) {
    unsigned long d = 0;
    sampler.draw(tuple.data(), d, model.rng);
    for (unsigned long p : tuple) mean += double(p % 10000) / 16000;
  }
  EXPECT_NEAR(mean, 4999.5, 100);
}

TEST(TupleSampler, WithoutMassDrawsTheEmptyTuple) {
  auto model = path<unsigned int>(3, 2);
  const auto offsets = narrow<unsigned int>(model.offsets);
  TupleSampler<unsigned int> sampler(&model.graph, model.states.data(), offsets.data(), 2);
  const double nan = std::nan("");
  for (const std::vector<double>& weights : {std::vector<double>{nan, nan, nan}, {0, 0, 0}}) {
    sampler.set_length_weights(weights);
    std::vector<unsigned int> tuple = {5, 5};
    unsigned int d = 7;
    sampler.draw(tuple.data(), d, model.rng);
    EXPECT_EQ(d, 0u);
    EXPECT_EQ(tuple, (std::vector<unsigned int>{0, 0}));
  }
}

template <class idx_t>
void draw_of_length(std::size_t length) {
  auto model = path<idx_t>(12, 2);
  const auto offsets = narrow<idx_t>(model.offsets);
  TupleSampler<idx_t> sampler(&model.graph, model.states.data(), offsets.data(), length);
  std::vector<double> weights(length + 1, 0);
  weights[length] = 1;
  sampler.set_length_weights(weights);
  std::vector<idx_t> tuple(length);
  idx_t d = 0;
  sampler.draw(tuple.data(), d, model.rng);
}

TEST(TupleSampler, DrawsUpToEightForAByte) {
  for (std::size_t length = 1; length <= 8; ++length) draw_of_length<unsigned char>(length);
}

TEST(TupleSamplerDeath, LengthsBeyondTheListsOfPartitionsStop) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(draw_of_length<unsigned int>(16), "QZCOMB.*Assertion `false' failed");
  EXPECT_DEATH(draw_of_length<unsigned char>(9), "Assertion `n<=sizeof\\(T\\)\\*8' failed");
}

}  // namespace
