#include "QZ/data/configure_statistics.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "QZ/graph/chain.h"
#include "QZ/graph/complete.h"
#include "support/pair_types.h"
#include "support/plain_table.h"

namespace {

using namespace qz_test;

template <class idx_t, class val_t>
struct Configured {
  bool done = false;
  idx_t places = 0;
  idx_t length = 0;
  std::vector<idx_t> offsets;
  std::vector<val_t> stats;
};

template <class idx_t, class val_t>
Configured<idx_t, val_t> configured(QZ::CategoricalData& table,
                                    const QZ::AbstractGraph<idx_t>& graph,
                                    std::vector<idx_t> states, idx_t k, std::mt19937& rng,
                                    QZ::ProgressCallback progress = nullptr) {
  Configured<idx_t, val_t> result;
  val_t* stats = nullptr;
  idx_t* offsets = nullptr;
  result.done = QZ::configureStats(&table, &graph, states.data(), &rng, k, stats, offsets,
                                   result.places, result.length, progress);
  result.offsets.assign(offsets, offsets + result.places);
  result.stats.assign(stats, stats + result.length);
  delete[] stats;
  delete[] offsets;
  return result;
}

template <class Pair>
class ConfigureStats : public testing::Test {};
TYPED_TEST_SUITE(ConfigureStats, AllPairs);

/// Single vertices from the last to the first, then the pairs of the complete graph.
template <class val_t, class idx_t>
std::vector<val_t> plain_configured(const QZ::CategoricalData& table,
                                    const std::vector<idx_t>& states) {
  const QZ::Kn<idx_t> graph(static_cast<idx_t>(states.size()));
  std::vector<val_t> all;
  for (auto v = states.size(); v-- > 0;) {
    for (const val_t count : plain_block<val_t>(table, {v}, states)) all.push_back(count);
  }
  const auto ascending = plain_statistics<val_t>(table, graph, states);
  all.insert(all.end(), ascending.begin() + static_cast<std::ptrdiff_t>(all.size()),
             ascending.end());
  return all;
}

TYPED_TEST(ConfigureStats, CountsTheVerticesAndThePairsOfTheCompleteGraph) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  const std::vector<unsigned long> counts{2, 3, 2, 4};
  for (const int threads : {1, 2}) {
    omp_set_num_threads(threads);
    const auto table = random_table(700, counts, 0.1, 3);
    const auto plain = random_table(700, counts, 0.1, 3);
    const auto states = states_of<idx_t>(*table);
    std::mt19937 rng(8), plain_rng(8);
    // The graph only tells the number of vertices.
    const auto result =
        configured<idx_t, val_t>(*table, QZ::Chain<idx_t>(4), states, idx_t(2), rng);
    plain_impute(*plain, 4, states, plain_rng);
    EXPECT_TRUE(result.done);
    EXPECT_EQ(result.places, 1 + 4 + 6);
    EXPECT_EQ(result.offsets.back(), result.length);
    EXPECT_EQ(result.stats, (plain_configured<val_t>(*plain, states)));
    EXPECT_EQ(rng, plain_rng);
    EXPECT_TRUE(std::equal(table->data, table->data + 2800, plain->data));
  }
  omp_set_num_threads(2);
}

TEST(ConfigureStats, TheLastVertexComesFirst) {
  PlainTable table;
  table.fill(1, {2, 3}, {1, 2});
  std::mt19937 rng(8);
  const auto result =
      configured<unsigned int, double>(table, QZ::Chain<unsigned int>(2), {2, 3}, 2u, rng);
  EXPECT_EQ(result.offsets, (std::vector<unsigned int>{0, 3, 5, 11}));
  EXPECT_EQ(result.stats, (std::vector<double>{0, 0, 1, 0, 1, 0, 0, 0, 0, 0, 1}));
}

TEST(ConfigureStats, OffsetsCoverEverySubsetUpToTheOrder) {
  const auto table = random_table(20, {2, 3, 5, 7}, 0, 3);
  std::mt19937 rng(8);
  const auto result =
      configured<unsigned int, double>(*table, QZ::Chain<unsigned int>(4), {2, 3, 5, 7}, 3u, rng);
  // 3, 2, 1, 0, then (2,3) (1,3) (1,2) (0,3) (0,2) (0,1), then 123, 023, 013, 012.
  EXPECT_EQ(result.offsets, (std::vector<unsigned int>{0, 7, 12, 15, 17, 52, 73, 88, 102, 112, 118,
                                                       223, 293, 335, 365}));
  EXPECT_EQ(result.length, 118u);
}

TEST(ConfigureStats, AnOrderAboveTheVerticesAddsNothing) {
  const auto table = random_table(20, {2, 3}, 0, 3);
  std::mt19937 rng(8);
  const auto result =
      configured<unsigned int, double>(*table, QZ::Chain<unsigned int>(2), {2, 3}, 9u, rng);
  EXPECT_EQ(result.places, 4u);
}

TEST(ConfigureStats, OrderOneHasNoRoomForPairs) {
  const auto table = random_table(20, {2, 3}, 0, 3);
  std::mt19937 rng(8);
  const std::vector<unsigned int> states{2, 3};
  const auto result =
      configured<unsigned int, double>(*table, QZ::Chain<unsigned int>(2), states, 1u, rng);
  EXPECT_EQ(result.offsets, (std::vector<unsigned int>{0, 3, 5}));
  auto expected = plain_block<double>(*table, {1}, states);
  for (const double count : plain_block<double>(*table, {0}, states)) expected.push_back(count);
  EXPECT_EQ(result.stats, expected);
}

TEST(ConfigureStats, AnEmptyTableHasZeroStatistics) {
  PlainTable table;
  std::mt19937 rng(8);
  const auto result = configured<unsigned char, unsigned char>(
      table, QZ::Chain<unsigned char>(2), {2, 3}, static_cast<unsigned char>(2), rng);
  EXPECT_TRUE(result.done);
  EXPECT_EQ(result.stats, std::vector<unsigned char>(11, 0));
}

struct Report {
  std::size_t done;
  std::size_t total;
};
std::map<std::string, std::vector<Report>> reports;

void note(std::size_t done, std::size_t total, const char* tag) {
  reports[tag].push_back({done, total});
}

TEST(ConfigureStats, ReportsStatesThenOffsetsThenRows) {
  reports.clear();
  omp_set_num_threads(1);
  const auto table = random_table(30, {2, 2, 2}, 0, 3);
  std::mt19937 rng(8);
  configured<unsigned int, double>(*table, QZ::Chain<unsigned int>(3), {2, 2, 2}, 3u, rng, note);
  omp_set_num_threads(2);
  ASSERT_EQ(reports.size(), 3u);
  for (const char* tag : {"STATE", "IDX  "}) {
    ASSERT_EQ(reports[tag].size(), 7u);
    for (std::size_t i = 0; i < 7; ++i) {
      EXPECT_EQ(reports[tag][i].done, i + 1) << tag;
      EXPECT_EQ(reports[tag][i].total, 7u) << tag;
    }
  }
  ASSERT_EQ(reports["STATS"].size(), 30u);
  for (std::size_t i = 0; i < 30; ++i) {
    EXPECT_EQ(reports["STATS"][i].done, i);
    EXPECT_EQ(reports["STATS"][i].total, 29u);
  }
}

TEST(ConfigureStats, RunsOutOfMemoryWithFalse) {
  PlainTable table;
  std::mt19937 rng(8);
  const QZ::Chain<unsigned long> graph(1);
  unsigned long states = 1ul << 61;
  unsigned long k = 2, places = 0, length = 0;
  double* stats = nullptr;
  unsigned long* offsets = nullptr;
  EXPECT_FALSE(QZ::configureStats(&table, &graph, &states, &rng, k, stats, offsets, places, length,
                                  nullptr));
  EXPECT_EQ(stats, nullptr);
  delete[] offsets;
}

TEST(ConfigureStats, RefusesANarrowIndexType) {
  const auto table = random_table(20, std::vector<unsigned long>(30, 2), 0, 3);
  std::mt19937 rng(8);
  const std::vector<unsigned char> states(30, 2);
  const QZ::Chain<u8> graph(30);
  EXPECT_THROW((configured<u8, double>(*table, graph, states, u8(2), rng)), std::logic_error);
  const QZ::Chain<u8> small(15);
  EXPECT_THROW((configured<u8, double>(*table, small, states, u8(2), rng)), std::logic_error);
}

void configure_for_death(QZ::CategoricalData& table, std::vector<unsigned int> states) {
  std::mt19937 rng(1);
  const QZ::Chain<unsigned int> graph(static_cast<unsigned int>(states.size()));
  configured<unsigned int, double>(table, graph, std::move(states), 2u, rng);
}

TEST(ConfigureStatsDeathTest, AccessOutsideTheTableEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto table = random_table(5, {2, 2}, 0, 1);
  EXPECT_DEATH(configure_for_death(*table, {2, 2, 2}), "Assertion `col<n\\+H && row<N' failed");
  PlainTable missing;
  missing.fill(50, {2}, std::vector<unsigned short>(50, 65535));
  EXPECT_DEATH(configure_for_death(missing, {1000}),
               "Assertion `ignore \\|\\| v<categories\\(col\\) \\|\\| v==MIS_VAL' failed");
}

}  // namespace
