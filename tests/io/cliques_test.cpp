#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <functional>
#include <map>
#include <set>

#include "QZ/comb/sparse_uint.h"
#include "QZ/data/joint_counter.h"
#include "QZ/graph/chain.h"
#include "support/graph_contents.h"
#include "support/learned_model.h"
#include "support/pair_types.h"

namespace {

using namespace qz_test;

using Members = std::vector<unsigned long>;

struct Learned {
  EdgeList edges;
  double score;
};

/// All k-subsets of n vertices, in descending lexicographic order.
std::vector<Members> all_subsets(unsigned long n, unsigned long k) {
  std::vector<Members> list;
  for (unsigned long mask = 0; mask < 1ul << n; ++mask) {
    Members members;
    for (unsigned long v = 0; v < n; ++v) {
      if (mask >> v & 1) members.push_back(v);
    }
    if (members.size() == k) list.push_back(members);
  }
  std::sort(list.rbegin(), list.rend());
  return list;
}

double plain_interaction(const PlainTable& table, const Members& members) {
  double value = 0;
  for (unsigned long mask = 1; mask < 1ul << members.size(); ++mask) {
    Members part;
    for (unsigned long i = 0; i < members.size(); ++i) {
      if (mask >> i & 1) part.push_back(members[i]);
    }
    const double entropy = plain_entropy(table, part);
    value += part.size() % 2 == 1 ? entropy : -entropy;
  }
  return value;
}

/// Unites components by relabelling, clique after clique.
struct PlainUnion {
  explicit PlainUnion(unsigned long n) : label(n, 0) {}
  bool add(const Members& members) {
    std::set<unsigned long> labels;
    for (const auto v : members) labels.insert(label[v]);
    if (labels.size() == 1 && *labels.begin() != 0) return false;
    ++last;
    for (auto& each : label) {
      if (each != 0 && labels.contains(each)) each = last;
    }
    for (const auto v : members) label[v] = last;
    for (const auto a : members) {
      for (const auto b : members) {
        if (a < b) edges.insert({a, b});
      }
    }
    return true;
  }
  bool complete() const {
    return label[0] != 0 &&
           std::count(label.begin(), label.end(), label[0]) == static_cast<long>(label.size());
  }
  std::vector<unsigned long> label;
  unsigned long last = 0;
  std::set<std::pair<unsigned long, unsigned long>> edges;
};

/// The search step by step, with the sparse integers as keys.
Learned plain_cliques(const PlainTable& table, unsigned long k) {
  const auto subsets = all_subsets(table.n, k);
  std::vector<std::pair<QZ::sparse_uint_t, double>> list;
  for (const auto& members : subsets) {
    QZ::sparse_uint_t key;
    for (const auto v : members) key.p2x(v);
    list.emplace_back(key, plain_interaction(table, members));
  }
  std::sort(list.begin(), list.end(), QZ::AbsValOrder<QZ::sparse_uint_t, double, true>());
  PlainUnion cliques(table.n);
  double sum = 0;
  double accepted = 0;
  for (const auto& [key, value] : list) {
    if (cliques.complete()) break;
    const unsigned long mask = key.to_uint64();
    Members members;
    for (unsigned long v = 0; v < table.n; ++v) {
      if (mask >> v & 1) members.push_back(v);
    }
    const auto rank = std::find(subsets.begin(), subsets.end(), members) - subsets.begin();
    if (!cliques.add(members)) continue;
    sum += std::fabs(list[rank].second);
    ++accepted;
  }
  return {{cliques.edges.begin(), cliques.edges.end()}, sum / accepted};
}

template <class I, class V>
OwnedModel<I, V> chain_model(PlainTable& table, I k) {
  return counted_model<I, V>(table, new QZ::Chain<I>(static_cast<I>(table.n)), k);
}

template <class pair_t>
class Cliques : public ::testing::Test {
 public:
  Cliques() { omp_set_num_threads(1); }

  using I = typename pair_t::idx_t;
  using V = typename pair_t::val_t;
};
TYPED_TEST_SUITE(Cliques, AllPairs);

TYPED_TEST(Cliques, FollowThePlainSteps) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  for (unsigned seed = 0; seed < 6; ++seed) {
    const auto table = random_table(100, {2, 3, 2, 2, 2, 3}, 0, seed);
    for (const I k : {2, 3, 4}) {
      const auto model = chain_model<I, V>(*table, k);
      const double score = model->buildCliques(0, k, nullptr, joint_counts(*table, *model));
      const Learned expected = plain_cliques(*table, k);
      EXPECT_EQ(edges_of(*model->graph), expected.edges) << seed << ' ' << int(k);
      EXPECT_NEAR(score, expected.score, 1e-12);
      EXPECT_EQ(model->graphType, k == 2 ? 6 : 12);
    }
  }
}

// What MODEL hands them instead of counting row by row.
TYPED_TEST(Cliques, AreTheSameFromACounterOfManyHistograms) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  const auto table = random_table(120, {2, 3, 2, 4, 2, 3}, 0, 21);
  const auto by_rows = chain_model<I, V>(*table, 3);
  const double score = by_rows->buildCliques(0, 3, nullptr, joint_counts(*table, *by_rows));
  const auto counted = chain_model<I, V>(*table, 3);
  const QZ::JointCounter<I, V> counter(*table, table->n, counted->states);
  EXPECT_EQ(counted->buildCliques(0, 3, nullptr, std::cref(counter)), score);
  EXPECT_EQ(edges_of(*counted->graph), edges_of(*by_rows->graph));
  EXPECT_EQ(copy_of(counted->stats, counted->statsLength),
            copy_of(by_rows->stats, by_rows->statsLength));
}

TYPED_TEST(Cliques, CountTheirEdgesAfresh) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  const auto table = random_table(100, {2, 2, 2, 2, 2}, 0, 9);
  const auto model = chain_model<I, V>(*table, 3);
  model->buildCliques(0, 3, nullptr, joint_counts(*table, *model));
  const auto expected = plain_statistics<V>(*table, *model->graph, states_of<I>(*table));
  ASSERT_EQ(model->statsLength, expected.size());
  for (std::size_t i = model->offsets[5]; i < expected.size(); ++i) {
    EXPECT_EQ(model->stats[i], expected[i]);
  }
  EXPECT_EQ(copy_of(model->weights, model->dim), std::vector<V>(model->dim, 0));
  EXPECT_NO_THROW(model->require_matching_arrays());
}

// Single vertices are numbered like all subsets, the last one first, and nothing reorders them.
TYPED_TEST(Cliques, LeaveTheVertexBlocksInTheOrderOfSubsets) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  const auto table = random_table(100, {2, 3, 4}, 0, 9);
  const auto model = chain_model<I, V>(*table, 2);
  model->buildCliques(0, 2, nullptr, joint_counts(*table, *model));
  EXPECT_EQ(copy_of(model->offsets, 4), (std::vector<I>{0, 4, 7, 9}));
  const auto last = plain_block<V>(*table, {2}, states_of<I>(*table));
  EXPECT_EQ(copy_of(model->stats, 4), last);
}

TYPED_TEST(Cliques, OfOrderTwoAreASpanningTree) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  const auto table = random_table(100, {2, 2, 2, 2, 2, 2}, 0, 4);
  const auto model = chain_model<I, V>(*table, 2);
  model->buildCliques(0, 2, nullptr, joint_counts(*table, *model));
  EXPECT_EQ(model->graph->edges(), 5);
}

TEST(CliqueSearch, DoesNotDependOnTheThreads) {
  const auto table = random_table(200, {2, 3, 2, 2, 3, 2, 2}, 0, 12);
  std::vector<EdgeList> found;
  std::vector<double> scores;
  for (const int threads : {1, 2}) {
    omp_set_num_threads(threads);
    const auto model = chain_model<u32, float>(*table, 3);
    scores.push_back(model->buildCliques(0, 3, nullptr, joint_counts(*table, *model)));
    found.push_back(edges_of(*model->graph));
  }
  EXPECT_EQ(found[0], found[1]);
  EXPECT_EQ(scores[0], scores[1]);
}

TEST(CliqueSearch, StopsWhenAllVerticesHangTogether) {
  const auto table = random_table(100, {2, 2, 2, 2}, 0, 3);
  const auto model = chain_model<u32, double>(*table, 4);
  Reports::list.clear();
  omp_set_num_threads(1);
  model->buildCliques(0, 4, &Reports::note, joint_counts(*table, *model));
  EXPECT_EQ(model->graph->edges(), 6);
}

TEST(CliqueSearch, ReportsItsFourSteps) {
  const auto table = random_table(100, {2, 2, 2}, 0, 3);
  const auto model = chain_model<u32, double>(*table, 2);
  ASSERT_EQ(model->numOffsets, 7);
  Reports::list.clear();
  omp_set_num_threads(1);
  model->buildCliques(0, 2, &Reports::note, joint_counts(*table, *model));
  std::vector<Reports::Report> expected;
  for (std::size_t i = 0; i < 6; ++i) expected.emplace_back(i, 6, "ENT  ");
  for (std::size_t i = 1; i <= 3; ++i) expected.emplace_back(i, 3, "MI   ");
  expected.emplace_back(1, 1, "SORT ");
  const std::vector<Reports::Report> head(Reports::list.begin(), Reports::list.begin() + 10);
  EXPECT_EQ(head, expected);
  for (std::size_t i = 10; i < Reports::list.size(); ++i) {
    EXPECT_EQ(std::get<1>(Reports::list[i]), 3);
    EXPECT_EQ(std::get<2>(Reports::list[i]), "CLIQS");
    EXPECT_EQ(std::get<0>(Reports::list[i]), i + 1 == Reports::list.size() ? 3 : 2);
  }
}

TEST(CliqueSearch, WithoutAnyCliqueHasNoScore) {
  const auto table = random_table(100, {2, 2, 2}, 0, 3);
  const auto model = chain_model<u32, double>(*table, 4);
  EXPECT_TRUE(std::isnan(model->buildCliques(0, 4, nullptr, joint_counts(*table, *model))));
  EXPECT_EQ(model->graph->edges(), 0);
  EXPECT_EQ(model->graphType, 12);
}

TEST(CliqueSearch, NeedsPairs) {
  const auto table = random_table(100, {2, 2, 2}, 0, 3);
  const auto model = chain_model<u32, double>(*table, 2);
  for (const u32 k : {0, 1}) {
    EXPECT_THROW(model->buildCliques(0, k, nullptr, joint_counts(*table, *model)),
                 std::logic_error);
  }
}

TEST(CliqueSearch, PassesOnWhatAThreadThrows) {
  const auto table = random_table(100, {2, 2, 2, 2}, 0, 3);
  const auto model = chain_model<u32, double>(*table, 3);
  const QZ::StatFunction<u32, double> fail = [](unsigned long, const u32&) -> double* {
    throw std::logic_error("no counts");
  };
  for (const int threads : {1, 2}) {
    omp_set_num_threads(threads);
    EXPECT_THROW(model->buildCliques(0, 3, nullptr, fail), std::logic_error);
  }
}

TEST(AbsValOrder, ComparesMagnitudes) {
  const QZ::AbsValOrder<int, double, true> descending;
  const QZ::AbsValOrder<int, double, false> ascending;
  EXPECT_TRUE(descending({0, -3.0}, {1, 2.0}));
  EXPECT_FALSE(descending({0, -3.0}, {1, 3.0}));
  EXPECT_TRUE(ascending({0, 1.0}, {1, -2.0}));
}

}  // namespace
