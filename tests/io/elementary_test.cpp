#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>

#include "QZ/graph/complete.h"
#include "support/graph_contents.h"
#include "support/learned_model.h"
#include "support/pair_types.h"

namespace {

using namespace qz_test;

/// The thinning step by step, on counts taken row by row.
template <class idx_t>
EdgeList plain_thinning(const PlainTable& table, const QZ::AbstractGraph<idx_t>& graph, double t) {
  const auto states = states_of<unsigned long>(table);
  const double n = static_cast<double>(table.n);
  const double N = static_cast<double>(table.N);
  const auto edges = edges_of(graph);
  std::vector<double> score;
  std::vector<unsigned long> owner;
  std::vector<unsigned long> start;
  for (unsigned long e = 0; e < edges.size(); ++e) {
    const auto [a, b] = edges[e];
    const auto pair = plain_block<double>(table, {a, b}, states);
    const auto single_a = plain_block<double>(table, {a}, states);
    const auto single_b = plain_block<double>(table, {b}, states);
    start.push_back(score.size());
    for (unsigned long i = 0; i < pair.size(); ++i) {
      const double cs = single_a[i / states[b]];
      const double ct = single_b[i % states[b]];
      const bool counts = pair[i] > 0 && cs > 0 && ct > 0;
      score.push_back(counts ? std::log(pair[i] / ((cs * ct) / N)) * (2.0 / n) : 0.0);
      owner.push_back(e);
    }
  }
  start.push_back(score.size());
  std::vector<std::pair<idx_t, double>> list;
  for (unsigned long j = 0; j < score.size(); ++j) {
    list.emplace_back(static_cast<idx_t>(owner[j]), std::fabs(score[j]));
  }
  std::sort(list.begin(), list.end(),
            [](const auto& a, const auto& b) { return a.second < b.second; });
  const unsigned long last = list.size() - 1;
  const double threshold =
      list[last - static_cast<unsigned long>(std::floor(static_cast<double>(last) * t))].second;
  std::set<std::pair<unsigned long, unsigned long>> kept;
  for (const auto& [e, weakest] : list) {
    const auto [a, b] = edges[e];
    const auto key = std::minmax(a, b);
    if (kept.contains(key)) continue;
    if (!(static_cast<double>(kept.size()) < static_cast<double>(edges.size()) * t)) continue;
    for (unsigned long j = start[e]; j < start[e + 1]; ++j) {
      if (std::fabs(score[j]) >= threshold) {
        kept.insert(key);
        break;
      }
    }
  }
  return {kept.begin(), kept.end()};
}

template <class pair_t>
class Elementary : public ::testing::Test {
 public:
  using I = typename pair_t::idx_t;
  using V = typename pair_t::val_t;

  static OwnedModel<I, V> complete(PlainTable& table) {
    return counted_model<I, V>(table, new QZ::Kn<I>(static_cast<I>(table.n), nullptr));
  }
};
TYPED_TEST_SUITE(Elementary, AllPairs);

TYPED_TEST(Elementary, FollowsThePlainSteps) {
  using V = typename TestFixture::V;
  for (unsigned seed = 0; seed < 20; ++seed) {
    const auto table = random_table(70, {2, 3, 2, 2, 2}, 0, seed);
    for (const double t : {0.0, 0.25, 0.5, 0.75, 1.0}) {
      if (std::is_integral_v<V> && t != std::floor(t)) continue;
      const auto model = TestFixture::complete(*table);
      const auto expected = plain_thinning(*table, *model->graph, t);
      model->buildElemGM(static_cast<V>(t), nullptr);
      EXPECT_EQ(edges_of(*model->graph), expected) << seed << ' ' << t;
    }
  }
}

TYPED_TEST(Elementary, OfShareOneKeepsAllEdges) {
  const auto table = random_table(50, {2, 2, 3}, 0, 2);
  const auto model = TestFixture::complete(*table);
  model->buildElemGM(1, nullptr);
  EXPECT_EQ(edges_of(*model->graph), (EdgeList{{0, 1}, {0, 2}, {1, 2}}));
  EXPECT_EQ(model->graphType, 7);
}

TYPED_TEST(Elementary, OfShareZeroKeepsNone) {
  using V = typename TestFixture::V;
  const auto table = random_table(50, {2, 2, 3}, 0, 2);
  const auto model = TestFixture::complete(*table);
  model->buildElemGM(0, nullptr);
  EXPECT_EQ(model->graph->edges(), 0);
  EXPECT_EQ(model->dim, 0);
  const auto states = states_of<typename TestFixture::I>(*table);
  EXPECT_EQ(copy_of(model->stats, 7), plain_statistics<V>(*table, *model->graph, states));
}

TYPED_TEST(Elementary, CopiesTheCountsOfItsEdges) {
  using I = typename TestFixture::I;
  using V = typename TestFixture::V;
  const auto table = random_table(50, {2, 2, 3}, 0, 4);
  const auto model = TestFixture::complete(*table);
  model->buildElemGM(1, nullptr);
  EXPECT_EQ(copy_of(model->stats, model->statsLength),
            (plain_statistics<V>(*table, *model->graph, states_of<I>(*table))));
  EXPECT_NO_THROW(model->require_matching_arrays());
}

TYPED_TEST(Elementary, ReportsEdgesThenEntries) {
  PlainTable table;
  table.fill(3, {2, 2}, {0, 0, 1, 1, 0, 1});
  const auto model = TestFixture::complete(table);
  Reports::list.clear();
  model->buildElemGM(1, &Reports::note);
  EXPECT_EQ(
      Reports::list,
      (std::vector<Reports::Report>{
          {1, 1, "EGM  "}, {1, 4, "EGM E"}, {2, 4, "EGM E"}, {3, 4, "EGM E"}, {4, 4, "EGM E"}}));
}

TYPED_TEST(Elementary, OfOneColumnHasNoEdge) {
  PlainTable table;
  table.fill(2, {2}, {0, 1});
  const auto model = TestFixture::complete(table);
  model->buildElemGM(1, nullptr);
  EXPECT_EQ(model->graph->edges(), 0);
}

TEST(StateAssociations, OfPairsThatNeverOccurAreZero) {
  PlainTable table;
  table.fill(4, {2, 3}, {0, 0, 0, 0, 1, 1, 1, 0});
  const auto model = counted_model<u64, double>(table, new QZ::Kn<u64>(2, nullptr));
  const auto scores = QZ::state_associations(*model, {});
  ASSERT_EQ(scores.size(), 6);
  EXPECT_DOUBLE_EQ(scores[0].second, std::log(2 / (2 * 3 / 4.0)));
  EXPECT_EQ(scores[1].second, 0);
  EXPECT_EQ(scores[2].second, 0);
  EXPECT_DOUBLE_EQ(scores[3].second, -std::log(1 / (2 * 3 / 4.0)));
  EXPECT_DOUBLE_EQ(scores[4].second, std::log(1 / (2 * 1 / 4.0)));
  EXPECT_EQ(scores[5].second, 0);
}

// Two of six edges fit the limit of 2.4, and a third one starts below it.
TEST(ElementaryLimit, TakesEdgesInTheOrderOfTheirWeakestEntries) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    const auto table = random_table(60, {2, 2, 2, 2}, 0, seed);
    const auto model = counted_model<u32, double>(*table, new QZ::Kn<u32>(4, nullptr));
    const auto kept = plain_thinning(*table, *model->graph, 0.4);
    model->buildElemGM(0.4, nullptr);
    EXPECT_EQ(edges_of(*model->graph), kept);
    EXPECT_LE(kept.size(), 3);
  }
}

TEST(ElementaryShare, OutsideItsRangeIsRefused) {
  const auto table = random_table(20, {2, 2, 2}, 0, 1);
  for (const double t : {-0.1, 1.5, std::numeric_limits<double>::quiet_NaN()}) {
    const auto model = counted_model<u32, double>(*table, new QZ::Kn<u32>(3, nullptr));
    EXPECT_THROW(model->buildElemGM(t, nullptr), std::logic_error);
  }
}

}  // namespace
