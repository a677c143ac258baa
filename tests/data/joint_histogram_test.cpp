#include "QZ/data/joint_histogram.h"

#include <gtest/gtest.h>

#include "support/pair_types.h"
#include "support/plain_table.h"

namespace {

using namespace qz_test;

template <class idx_t, class val_t>
std::vector<val_t> histogram(QZ::CategoricalData& table, const std::set<idx_t>& vertices,
                             std::vector<idx_t> states, idx_t size) {
  const std::set<idx_t>* pointer = &vertices;
  idx_t* counts = states.data();
  const std::unique_ptr<val_t[]> result(
      QZ::sumStatsOnlineSUI<idx_t, val_t>(&table, static_cast<idx_t>(states.size()), counts,
                                          reinterpret_cast<unsigned long>(&pointer), size));
  return std::vector<val_t>(result.get(), result.get() + size);
}

template <class Pair>
class JointHistogram : public testing::Test {};
TYPED_TEST_SUITE(JointHistogram, AllPairs);

TYPED_TEST(JointHistogram, TheLargestVertexIsTheFastestDigit) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  for (const int threads : {1, 2}) {
    omp_set_num_threads(threads);
    // Few rows are counted into one table, many into one for each thread.
    for (const unsigned long rows : {10, 3000}) {
      const auto table = random_table(rows, {2, 3, 4, 2}, 0, 1);
      const auto states = states_of<idx_t>(*table);
      EXPECT_EQ((histogram<idx_t, val_t>(*table, {0, 2, 3}, states, 16)),
                (plain_block<val_t>(*table, {0, 2, 3}, states)));
      EXPECT_EQ((histogram<idx_t, val_t>(*table, {1}, states, 3)),
                (plain_block<val_t>(*table, {1}, states)));
    }
  }
  omp_set_num_threads(2);
}

TYPED_TEST(JointHistogram, AnEmptySetCountsAllRowsAtEntryZero) {
  using idx_t = typename TypeParam::idx_t;
  using val_t = typename TypeParam::val_t;
  const auto table = random_table(100, {2}, 0, 1);
  EXPECT_EQ((histogram<idx_t, val_t>(*table, {}, {2}, 2)), (std::vector<val_t>{100, 0}));
}

TEST(JointHistogram, AnEmptyTableGivesZeros) {
  PlainTable table;
  EXPECT_EQ((histogram<unsigned int, float>(table, {0, 1}, {2, 2}, 4)), std::vector<float>(4, 0));
}

TEST(JointHistogram, SeesHiddenColumns) {
  const auto table = random_table(50, {2}, 0, 1);
  table->addColumns(1, 3);
  for (unsigned long row = 0; row < 50; ++row) table->set(row % 3, 1, row);
  const std::vector<unsigned long> states{2, 3};
  EXPECT_EQ((histogram<unsigned long, double>(*table, {0, 1}, states, 6)),
            plain_block<double>(*table, {0, 1}, states));
}

TEST(JointHistogram, RefusesMissingCells) {
  const auto table = random_table(50, {2, 2}, 0.5, 1);
  EXPECT_THROW((histogram<unsigned int, double>(*table, {0, 1}, {2, 2}, 4)), std::logic_error);
}

TEST(JointHistogram, RefusesASizeThatIsTooSmall) {
  const auto table = random_table(50, {2, 2}, 0, 1);
  EXPECT_THROW((histogram<unsigned int, double>(*table, {0, 1}, {2, 2}, 3)), std::logic_error);
}

TEST(JointHistogramDeathTest, AVertexWithoutAColumnEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto table = random_table(5, {2, 2}, 0, 1);
  EXPECT_DEATH((histogram<unsigned int, double>(*table, {2}, {2, 2, 2}, 2)),
               "Assertion `col<n\\+H && row<N' failed");
}

}  // namespace
