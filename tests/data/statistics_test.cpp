#include "QZ/data/statistics.h"

#include <gtest/gtest.h>

#include "QZ/graph/chain.h"
#include "QZ/graph/complete.h"
#include "QZ/graph/star.h"
#include "support/pair_types.h"
#include "support/plain_table.h"

namespace {

using namespace qz_test;

/// What one call of `sumStats` leaves behind.
template <class idx_t, class val_t>
struct Counted {
  bool done = false;
  idx_t places = 0;
  idx_t length = 0;
  std::vector<idx_t> offsets;
  std::vector<val_t> stats;
};

template <class idx_t, class val_t>
Counted<idx_t, val_t> counted(QZ::CategoricalData& table, const QZ::AbstractGraph<idx_t>& graph,
                              std::vector<idx_t> states, std::mt19937& rng) {
  Counted<idx_t, val_t> result;
  val_t* stats = nullptr;
  idx_t* offsets = nullptr;
  result.done = QZ::sumStats(&table, &graph, states.data(), &rng, stats, offsets, result.places,
                             result.length);
  result.offsets.assign(offsets, offsets + result.places);
  result.stats.assign(stats, stats + result.length);
  delete[] stats;
  delete[] offsets;
  return result;
}

template <class Pair>
class SumStats : public testing::Test {};
TYPED_TEST_SUITE(SumStats, AllPairs);

TYPED_TEST(SumStats, LaysOutVerticesThenEdges) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  const auto table = random_table(120, {2, 3, 4}, 0, 1);
  std::mt19937 rng(1);
  const QZ::Chain<idx_t> graph(3);
  const auto states = states_of<idx_t>(*table);
  const auto result = counted<idx_t, val_t>(*table, graph, states, rng);
  EXPECT_TRUE(result.done);
  EXPECT_EQ(result.offsets, (std::vector<idx_t>{0, 2, 5, 9, 15, 27}));
  EXPECT_EQ(result.length, 27);
  EXPECT_EQ(result.stats, (plain_statistics<val_t>(*table, graph, states)));
  EXPECT_EQ(rng, std::mt19937(1)) << "a complete table draws nothing";
}

template <class Pair>
class SumStatsDeep : public testing::Test {};
using TellingPairs =
    testing::Types<QZ::type_pair<u8, u8>, QZ::type_pair<u32, float>, QZ::type_pair<u64, double>>;
TYPED_TEST_SUITE(SumStatsDeep, TellingPairs);

TYPED_TEST(SumStatsDeep, AgreesWithThePlainCountForOneAndTwoThreads) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  for (const int threads : {1, 2}) {
    omp_set_num_threads(threads);
    for (const unsigned long rows : {1, 64, 1000, 70000}) {
      const auto fast = random_table(rows, {2, 3, 2, 4, 2}, 0.05, 3);
      const auto plain = random_table(rows, {2, 3, 2, 4, 2}, 0.05, 3);
      const auto states = states_of<idx_t>(*fast);
      const QZ::Kn<idx_t> graph(5);
      std::mt19937 fast_rng(11), plain_rng(11);
      const auto result = counted<idx_t, val_t>(*fast, graph, states, fast_rng);
      plain_impute(*plain, 5, states, plain_rng);
      EXPECT_EQ(fast_rng, plain_rng);
      EXPECT_TRUE(std::equal(fast->data, fast->data + 5 * rows, plain->data));
      EXPECT_EQ(result.stats, (plain_statistics<val_t>(*plain, graph, states)));
    }
  }
  omp_set_num_threads(2);
}

TYPED_TEST(SumStatsDeep, KeepsTheOrderOfEndpoints) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  const auto table = random_table(200, {2, 3, 5}, 0, 4);
  const auto states = states_of<idx_t>(*table);
  std::mt19937 rng(1);
  const QZ::Star<idx_t> graph(3, 0);
  const auto result = counted<idx_t, val_t>(*table, graph, states, rng);
  EXPECT_EQ(result.stats, (plain_statistics<val_t>(*table, graph, states)));
}

TYPED_TEST(SumStatsDeep, AnEmptyTableHasZeroStatistics) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  PlainTable table;
  std::mt19937 rng(1);
  const auto result = counted<idx_t, val_t>(table, QZ::Chain<idx_t>(2), {2, 3}, rng);
  EXPECT_TRUE(result.done);
  EXPECT_EQ(result.offsets, (std::vector<idx_t>{0, 2, 5, 11}));
  EXPECT_EQ(result.stats, std::vector<val_t>(11, 0));
}

TEST(Statistics, ImputedCellsStayAndCountAgain) {
  const auto table = random_table(300, {3, 2, 4}, 0.3, 6);
  const auto states = states_of<unsigned int>(*table);
  const QZ::Chain<unsigned int> graph(3);
  std::mt19937 rng(5);
  const auto first = counted<unsigned int, double>(*table, graph, states, rng);
  for (unsigned long i = 0; i < 900; ++i) EXPECT_NE(table->data[i], 65535);
  const std::mt19937 before = rng;
  const auto again = counted<unsigned int, double>(*table, graph, states, rng);
  EXPECT_EQ(first.stats, again.stats);
  EXPECT_EQ(rng, before);
}

TEST(Statistics, OneDrawPerMissingCellByRowsThenColumns) {
  PlainTable table;
  table.fill(2, {5, 5}, {65535, 65535, 65535, 1});
  std::mt19937 rng(9), plain(9);
  counted<unsigned int, double>(table, QZ::Chain<unsigned int>(2), {5, 5}, rng);
  std::uniform_int_distribution<unsigned int> uniform(0, 4);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(table.data[i], uniform(plain)) << i;
  EXPECT_EQ(table.data[3], 1);
  EXPECT_EQ(rng, plain);
}

TEST(Statistics, ColumnsBeyondTheGraphAreLeftAlone) {
  PlainTable table;
  table.fill(1, {2, 2, 2}, {1, 0, 65535});
  std::mt19937 rng(9);
  counted<unsigned int, double>(table, QZ::Chain<unsigned int>(2), {2, 2}, rng);
  EXPECT_EQ(table.data[2], 65535);
}

TEST(Statistics, VerticesBeyondTheVisibleColumnsAreHiddenOnes) {
  const auto table = random_table(100, {2, 3}, 0.1, 2);
  table->addColumns(1, 4);
  const auto states = states_of<unsigned long>(*table);
  std::mt19937 rng(3);
  const QZ::Chain<unsigned long> graph(3);
  const auto result = counted<unsigned long, double>(*table, graph, states, rng);
  EXPECT_LT(table->get(2, 99), 4u);
  EXPECT_EQ(result.stats, plain_statistics<double>(*table, graph, states));
}

TEST(Statistics, EdgesThatShareAVertexCountItsStateEach) {
  PlainTable table;
  table.fill(1, {2, 2, 2}, {1, 0, 1});
  std::mt19937 rng(1);
  const auto result =
      counted<unsigned int, unsigned int>(table, QZ::Chain<unsigned int>(3), {2, 2, 2}, rng);
  const std::vector<unsigned int> expected{0, 1, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0};
  EXPECT_EQ(result.stats, expected);
}

TEST(Statistics, NarrowCountsWrap) {
  PlainTable table;
  table.fill(300, {1}, std::vector<unsigned short>(300, 0));
  std::mt19937 rng(1);
  const auto result =
      counted<unsigned char, unsigned char>(table, QZ::Chain<unsigned char>(1), {1}, rng);
  EXPECT_EQ(result.stats[0], 300 - 256);
}

/// Calls `sumStats` for its exception and checks that nothing was handed out.
template <class idx_t>
void refused(QZ::CategoricalData& table, const QZ::AbstractGraph<idx_t>& graph,
             std::vector<idx_t> states) {
  std::mt19937 rng(1);
  double* stats = nullptr;
  idx_t* offsets = nullptr;
  idx_t places = 0, length = 0;
  EXPECT_THROW(QZ::sumStats(&table, &graph, states.data(), &rng, stats, offsets, places, length),
               std::logic_error);
  EXPECT_EQ(stats, nullptr);
  EXPECT_EQ(offsets, nullptr);
}

TEST(Statistics, RefusesAnIndexTypeInWhichOffsetsWrap) {
  const auto table = random_table(10, {20, 20}, 0, 1);
  refused<unsigned char>(*table, QZ::Chain<unsigned char>(2), {20, 20});
  const auto wide = random_table(10, std::vector<unsigned long>(20, 2), 0, 1);
  refused<unsigned char>(*wide, QZ::Kn<unsigned char>(20), std::vector<unsigned char>(20, 2));
}

TEST(Statistics, RefusesAnIndexTypeThatCannotNumberTheBlocks) {
  const auto table = random_table(10, std::vector<unsigned long>(130, 1), 0, 1);
  refused<unsigned char>(*table, QZ::Chain<unsigned char>(130), std::vector<unsigned char>(130, 1));
}

TEST(Statistics, RefusesACellBeyondTheStates) {
  const auto table = random_table(10, {4, 4}, 0, 1);
  table->set(3, 1, 7);
  refused<unsigned int>(*table, QZ::Chain<unsigned int>(2), {4, 3});
}

void count_for_death(QZ::CategoricalData& table, std::vector<unsigned int> states) {
  std::mt19937 rng(1);
  const QZ::Chain<unsigned int> graph(static_cast<unsigned int>(states.size()));
  counted<unsigned int, double>(table, graph, std::move(states), rng);
}

TEST(StatisticsDeathTest, AVertexWithoutAColumnEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto table = random_table(5, {2, 2}, 0, 1);
  EXPECT_DEATH(count_for_death(*table, {2, 2, 2}), "Assertion `col<n\\+H && row<N' failed");
}

TEST(StatisticsDeathTest, AnImputedValuePastTheCategoriesEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  PlainTable table;
  table.fill(50, {2}, std::vector<unsigned short>(50, 65535));
  EXPECT_DEATH(count_for_death(table, {1000}),
               "Assertion `ignore \\|\\| v<categories\\(col\\) \\|\\| v==MIS_VAL' failed");
}

}  // namespace
