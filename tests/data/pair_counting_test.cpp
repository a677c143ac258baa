#include "QZ/data/pair_counting.h"

#include <gtest/gtest.h>

#include <numeric>

#include "support/plain_table.h"

namespace {

using QZ::ColumnBlock;
using qz_test::plain_block;
using qz_test::random_table;
using qz_test::states_of;

TEST(AddOnes, WrapsAtTheWidthOfAnInteger) {
  unsigned char narrow = 250;
  QZ::add_ones(narrow, 10);
  EXPECT_EQ(narrow, 4);
  QZ::add_ones(narrow, 256 * 3);
  EXPECT_EQ(narrow, 4);
  unsigned long wide = ~0ul;
  QZ::add_ones(wide, 2);
  EXPECT_EQ(wide, 1u);
}

TEST(AddOnes, AFloatStopsWhereOneMoreChangesNothing) {
  float value = 0x1p24f - 3;
  QZ::add_ones(value, 2);
  EXPECT_EQ(value, 0x1p24f - 1);
  QZ::add_ones(value, 1000);
  EXPECT_EQ(value, 0x1p24f);
  QZ::add_ones(value, 1);
  EXPECT_EQ(value, value + 1.0f);
}

TEST(AddOnes, ADoubleGoesOn) {
  double value = 0x1p24;
  QZ::add_ones(value, 5);
  EXPECT_EQ(value, 0x1p24 + 5);
}

/// All pairs and states of a table, counted block by block, against the plain count.
void expect_plain_counts(const qz_test::PlainTable& table, QZ::BitCounting counting) {
  const auto states = states_of<unsigned long>(table);
  ColumnBlock block(table, table.n, states.data(), counting);
  std::vector<std::vector<unsigned int>> singles(table.n), pairs(table.n * table.n);
  for (unsigned long s = 0; s < table.n; ++s) {
    singles[s].resize(states[s]);
    for (unsigned long t = 0; t < table.n; ++t) {
      pairs[s * table.n + t].resize(states[s] * states[t]);
    }
  }
  for (unsigned long begin = 0; begin < table.N; begin += block.capacity()) {
    block.load(begin, std::min(table.N, begin + block.capacity()));
    for (unsigned long s = 0; s < table.n; ++s) {
      QZ::add_state_counts(block, s, singles[s].data());
      for (unsigned long t = 0; t < table.n; ++t) {
        QZ::add_pair_counts(block, s, t, pairs[s * table.n + t].data());
      }
    }
  }
  for (unsigned long s = 0; s < table.n; ++s) {
    EXPECT_EQ(singles[s], plain_block<unsigned int>(table, {s}, states)) << s;
    for (unsigned long t = 0; t < table.n; ++t) {
      EXPECT_EQ(pairs[s * table.n + t], plain_block<unsigned int>(table, {s, t}, states))
          << s << " " << t;
    }
  }
}

TEST(PairCounting, AgreesWithThePlainCountForEveryFormOfColumns) {
  const QZ::BitCounting best = QZ::bit_counting();
  for (const unsigned long rows : {1, 63, 64, 65, 1000, 40000}) {
    const auto table = random_table(rows, {1, 2, 3, 4, 5, 8, 9, 17, 100}, 0, 5);
    for (const unsigned long most : {0ul, 1ul, 4ul, 24ul}) {
      expect_plain_counts(*table, {best.common, most});
    }
  }
}

TEST(PairCounting, CountsColumnsOfManyStates) {
  expect_plain_counts(*random_table(3000, {2, 300, 1000}, 0, 6), QZ::bit_counting());
}

TEST(PairCounting, CountsHiddenColumns) {
  const auto table = random_table(500, {3, 2}, 0, 8);
  table->addColumns(2, 4);
  for (unsigned long row = 0; row < table->N; ++row) {
    table->set(row % 4, 2, row);
    table->set(row / 7 % 4, 3, row);
  }
  const auto states = states_of<unsigned char>(*table);
  ColumnBlock block(*table, 4, states.data());
  block.load(0, 500);
  std::vector<double> counts(16);
  QZ::add_pair_counts(block, 2, 3, counts.data());
  EXPECT_EQ(counts, plain_block<double>(*table, {2, 3}, states));
}

TEST(PairCounting, ManyColumnsMakeShorterBlocks) {
  const auto table = random_table(3000, std::vector<unsigned long>(9000, 20), 0, 9);
  const auto states = states_of<unsigned long>(*table);
  ColumnBlock block(*table, table->n, states.data(), {QZ::common_bits_portable, 24});
  EXPECT_LT(block.capacity(), 3000u);
  block.load(1000, 1000 + block.capacity());
  EXPECT_EQ(std::accumulate(block.counts(5), block.counts(5) + 20, 0ul), block.rows());
}

TEST(PairCounting, RefusesACellBeyondTheStates) {
  const auto table = random_table(100, {3, 3}, 0, 10);
  table->set(3, 1, 70, true);
  const auto states = states_of<unsigned long>(*table);
  for (const unsigned long most : {0ul, 24ul}) {
    ColumnBlock block(*table, 2, states.data(), {QZ::common_bits_portable, most});
    block.load(0, 70);
    EXPECT_THROW(block.load(0, 100), std::logic_error);
  }
}

}  // namespace
