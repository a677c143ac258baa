#include "QZ/data/joint_counter.h"

#include <gtest/gtest.h>

#include <numeric>

#include "support/pair_types.h"
#include "support/plain_table.h"

namespace {

using namespace qz_test;

/// Bit sets for any state count that tests use, and none at all.
constexpr QZ::BitCounting by_bits{QZ::common_bits_portable, 64};
constexpr QZ::BitCounting by_numbers{QZ::common_bits_portable, 0};

template <class val_t, class idx_t>
std::vector<val_t> histogram(const QZ::JointCounter<idx_t, val_t>& counter,
                             const std::set<idx_t>& vertices, idx_t size) {
  const std::set<idx_t>* pointer = &vertices;
  const std::unique_ptr<val_t[]> counts(counter(reinterpret_cast<unsigned long>(&pointer), size));
  return std::vector<val_t>(counts.get(), counts.get() + size);
}

template <class Pair>
class JointCounter : public testing::Test {};
TYPED_TEST_SUITE(JointCounter, AllPairs);

TYPED_TEST(JointCounter, CountsEverySetAsRowsWould) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  // 1000 rows wrap one-byte counts.
  const auto table = random_table(1000, {2, 3, 4, 1, 2}, 0, 1);
  auto states = states_of<idx_t>(*table);
  for (const QZ::BitCounting& counting : {by_bits, by_numbers, QZ::bit_counting()}) {
    const QZ::JointCounter<idx_t, val_t> counter(*table, 5, states.data(), counting);
    for (unsigned mask = 1; mask < 32; ++mask) {
      std::vector<unsigned long> columns;
      idx_t size = 1;
      for (unsigned c = 0; c < 5; ++c) {
        if ((mask >> c & 1) == 0) continue;
        columns.push_back(c);
        size = static_cast<idx_t>(size * states[c]);
      }
      EXPECT_EQ((histogram<val_t, idx_t>(counter, {columns.begin(), columns.end()}, size)),
                (plain_block<val_t>(*table, columns, states)));
    }
  }
}

TEST(JointCounter, CountsTablesOfSeveralBlocksWithAnyTeam) {
  const auto table = random_table(70001, {3, 2, 5, 40}, 0, 1);
  auto states = states_of<unsigned int>(*table);
  for (const int threads : {1, 2, 4}) {
    omp_set_num_threads(threads);
    const QZ::JointCounter<unsigned int, double> counter(*table, 4, states.data());
    EXPECT_EQ(histogram(counter, {0u, 1u, 2u}, 30u),
              plain_block<double>(*table, {0, 1, 2}, states));
    EXPECT_EQ(histogram(counter, {1u, 2u, 3u}, 400u),
              plain_block<double>(*table, {1, 2, 3}, states));
  }
  omp_set_num_threads(2);
}

TEST(JointCounter, ServesTheThreadsOfATeam) {
  const auto table = random_table(40000, {3, 2, 5}, 0, 1);
  auto states = states_of<unsigned int>(*table);
  const QZ::JointCounter<unsigned int, double> counter(*table, 3, states.data());
  const auto expected = plain_block<double>(*table, {0, 1, 2}, states);
  std::vector<std::vector<double>> seen(16);
#pragma omp parallel for
  for (unsigned i = 0; i < 16; ++i) seen[i] = histogram(counter, {0u, 1u, 2u}, 30u);
  for (const auto& counts : seen) EXPECT_EQ(counts, expected);
}

TEST(JointCounter, SeesHiddenColumns) {
  const auto table = random_table(50, {2}, 0, 1);
  table->addColumns(1, 3);
  for (unsigned long row = 0; row < 50; ++row) table->set(row % 3, 1, row);
  std::vector<unsigned long> states{2, 3};
  const QZ::JointCounter<unsigned long, double> counter(*table, 2, states.data());
  EXPECT_EQ(histogram(counter, {0ul, 1ul}, 6ul), plain_block<double>(*table, {0, 1}, states));
}

TEST(JointCounter, CountsAnEmptySetAndAnEmptyTableAsRowsWould) {
  const auto table = random_table(100, {2}, 0, 1);
  auto states = states_of<unsigned int>(*table);
  const QZ::JointCounter<unsigned int, double> counter(*table, 1, states.data());
  EXPECT_EQ((histogram<double, unsigned int>(counter, {}, 2)), (std::vector<double>{100, 0}));
  PlainTable nothing;
  const QZ::JointCounter<unsigned int, double> of_nothing(nothing, 1, states.data());
  EXPECT_EQ(histogram(of_nothing, {0u}, 2u), (std::vector<double>{0, 0}));
}

TEST(JointCounter, TakesALargerHistogramAndRefusesASmallerOne) {
  const auto table = random_table(50, {2, 2}, 0, 1);
  auto states = states_of<unsigned int>(*table);
  const QZ::JointCounter<unsigned int, double> counter(*table, 2, states.data());
  const auto counts = histogram(counter, {0u, 1u}, 5u);
  EXPECT_EQ(std::accumulate(counts.begin(), counts.end(), 0.0), 50);
  EXPECT_EQ(counts[4], 0);
  EXPECT_THROW(histogram(counter, {0u, 1u}, 3u), std::logic_error);
}

TEST(JointCounter, RefusesMissingCells) {
  const auto table = random_table(50, {2, 2}, 0.5, 1);
  auto states = states_of<unsigned int>(*table);
  EXPECT_THROW((QZ::JointCounter<unsigned int, double>(*table, 2, states.data())),
               std::logic_error);
}

}  // namespace
