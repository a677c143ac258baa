#include "QZ/data/categorical_data.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <type_traits>

#include "support/plain_table.h"
#include "support/temp_file.h"

namespace {

using QZ::CategoricalData;
using testing::ElementsAre;
using Lists = std::vector<std::vector<std::string>*>;

using PlainData = qz_test::PlainTable;

std::unique_ptr<PlainData> two_by_two(bool header = false, bool shared = false) {
  auto table = std::make_unique<PlainData>(header, shared);
  table->fill(2, {3, 3}, {0, 1, 2, 65535});
  if (header) table->columnHeaders = {"a", "b"};
  return table;
}

std::vector<std::string> names_of(const CategoricalData& table) {
  const std::unique_ptr<std::vector<std::string>> names(table.columnNames());
  return *names;
}

TEST(CategoricalData, StartsEmpty) {
  const PlainData table(true, '*', true, nullptr);
  EXPECT_EQ(table.data, nullptr);
  EXPECT_EQ(table.hidden, nullptr);
  EXPECT_EQ(table.N + table.n + table.H, 0u);
  EXPECT_TRUE(table.headerFlag);
  EXPECT_TRUE(table.sharedCategories);
  EXPECT_FALSE(table.fixedCategories);
  EXPECT_TRUE(table.ownsData);
  EXPECT_EQ(table.missingName, "*");
  EXPECT_EQ(CategoricalData::MIS_VAL, 65535);
  static_assert(std::is_abstract_v<CategoricalData>);
}

TEST(CategoricalData, GivenCategoriesFixTheTableEvenWhenThereAreNone) {
  Lists none;
  const PlainData table(false, '?', false, &none);
  EXPECT_TRUE(table.fixedCategories);
  EXPECT_TRUE(table.categoryMaps.empty());
}

TEST(CategoricalData, GivenCategoriesAreCopied) {
  std::vector<std::string> names{"x", "y"};
  Lists lists{&names};
  const PlainData table(false, '?', false, &lists);
  names[0] = "changed";
  EXPECT_THAT(*table.categoryLists[0], ElementsAre("x", "y"));
  EXPECT_EQ(table.categoryMaps[0]->at("y"), 1u);
}

TEST(CategoricalData, ARepeatedNameMeansItsLaterPlace) {
  std::vector<std::string> names{"x", "y", "x"};
  Lists lists{&names};
  PlainData table(false, '?', false, &lists);
  table.fill(1, {0}, {0});
  EXPECT_EQ(table.categoryMaps[0]->at("x"), 2u);
  EXPECT_EQ(table.categoryLists[0]->size(), 3u);
  EXPECT_EQ(table.categories(0), 2u);
}

TEST(CategoricalData, ReadsVisibleCellsByRow) {
  const auto table = two_by_two();
  EXPECT_EQ(table->get(0, 0), 0u);
  EXPECT_EQ(table->get(1, 0), 1u);
  EXPECT_EQ(table->get(0, 1), 2u);
  EXPECT_EQ(table->get(1, 1), 65535u);
}

TEST(CategoricalData, ColumnAtTheVisibleCountIsTheFirstHiddenOne) {
  const auto table = two_by_two();
  table->addColumns(2, 4);
  EXPECT_EQ(table->get(2, 0), 65535u);
  table->set(3, 2, 1);
  table->set(1, 3, 1);
  EXPECT_EQ(table->hidden[2], 3);
  EXPECT_EQ(table->get(2, 1), 3u);
  EXPECT_EQ(table->get(3, 1), 1u);
  EXPECT_EQ(table->get(0, 1), 2u);
}

TEST(CategoricalData, AddColumnsKeepsTheOldHiddenCells) {
  const auto table = two_by_two();
  table->addColumns(1, 2);
  table->set(1, 2, 0);
  table->set(0, 2, 1);
  table->addColumns(2, 5);
  EXPECT_EQ(table->H, 3u);
  EXPECT_EQ(table->get(2, 0), 1u);
  EXPECT_EQ(table->get(2, 1), 0u);
  EXPECT_EQ(table->get(4, 1), 65535u);
  EXPECT_EQ(table->categories(2), 2u);
  EXPECT_EQ(table->categories(4), 5u);
  EXPECT_EQ(table->categoryName(3, 4), "4");
  EXPECT_EQ(table->added, (std::vector<bool>{false, false, true, true, true}));
}

TEST(CategoricalData, AddingNoColumnsStillMakesAnEmptyHiddenTable) {
  const auto table = two_by_two();
  table->addColumns(0, 7);
  EXPECT_NE(table->hidden, nullptr);
  EXPECT_EQ(table->H, 0u);
  EXPECT_EQ(table->added.size(), 2u);
  EXPECT_EQ(table->categoryMaps.size(), 2u);
}

TEST(CategoricalData, FixedCategoriesCoverHiddenColumnsToo) {
  std::vector<std::string> visible{"x"}, latent{"Y0", "Y1"};
  Lists lists{&visible, &latent};
  PlainData table(false, '?', false, &lists);
  table.fill(1, {0}, {0});
  table.addColumns(1, 9);
  EXPECT_EQ(table.categoryMaps.size(), 2u);
  EXPECT_EQ(table.categories(1), 2u);
  EXPECT_EQ(table.categoryName(1, 1), "Y1");
}

TEST(CategoricalData, SharedCategoriesServeEveryColumn) {
  const auto table = two_by_two(false, true);
  EXPECT_EQ(table->categoryMaps.size(), 1u);
  EXPECT_EQ(table->categories(1), 3u);
  EXPECT_EQ(table->categoryNames(1), table->categoryLists[0]);
  EXPECT_EQ(table->categoryName(1, 2), "2");
}

TEST(CategoricalData, MissingHasANameInAColumnWithoutCategories) {
  PlainData table(false, '!', false, nullptr);
  table.fill(1, {0}, {65535});
  EXPECT_EQ(table.categoryName(0, 65535), "!");
  EXPECT_EQ(table.getString(0, 0), "!");
}

TEST(CategoricalData, ANamePastTheListIsARangeError) {
  const auto table = two_by_two();
  table->categoryLists[0]->resize(1);
  EXPECT_THROW(table->categoryName(0, 2), std::out_of_range);
}

TEST(CategoricalData, AnAnnotationFollowsTheNameAfterABlank) {
  const auto table = two_by_two();
  table->annotations[{1, 0}] = "p=0.5";
  EXPECT_EQ(table->getString(0, 1), "2 p=0.5");
  EXPECT_EQ(table->getString(1, 0), "1");
}

TEST(CategoricalData, IgnoreStoresANumberBeyondTheCategories) {
  const auto table = two_by_two();
  table->set(77, 0, 0, true);
  EXPECT_EQ(table->get(0, 0), 77u);
}

TEST(CategoricalData, ColumnsWithoutHeaderAreNumberedFromZeroOverAll) {
  const auto table = two_by_two();
  table->addColumns(1, 2);
  EXPECT_THAT(names_of(*table), ElementsAre("X0", "X1", "H2"));
}

TEST(CategoricalData, AddedColumnsUnderAHeaderCountFromOne) {
  const auto table = two_by_two(true);
  table->addColumns(1, 2);
  table->addColumns(1, 2);
  EXPECT_THAT(names_of(*table), ElementsAre("a", "b", "H1", "H2"));
}

TEST(CategoricalData, AHeaderThatIsTooShortIsARangeError) {
  const auto table = two_by_two(true);
  table->columnHeaders.pop_back();
  EXPECT_THROW(names_of(*table), std::out_of_range);
}

TEST(CategoricalData, TrimShortensAndLengthens) {
  const auto table = two_by_two();
  table->addColumns(1, 4);
  table->trimCategories(2, 2);
  EXPECT_EQ(table->categories(2), 2u);
  EXPECT_THAT(*table->categoryNames(2), ElementsAre("0", "1"));
  table->trimCategories(2, 3);
  EXPECT_EQ(table->categoryMaps[2]->at("2"), 2u);
}

TEST(CategoricalData, StoreWritesHeaderAndVisibleCellsOnly) {
  const auto table = two_by_two(true);
  table->addColumns(1, 2);
  table->annotations[{0, 1}] = "note";
  const qz_test::TempFile file;
  table->store(file.path());
  EXPECT_EQ(file.read(), "a,b\n0,1 note\n2,?\n");
}

TEST(CategoricalData, StoreWithoutHeaderTruncatesTheOldFile) {
  const auto table = two_by_two();
  const qz_test::TempFile file("", "a long old content that must vanish");
  table->store(file.path());
  EXPECT_EQ(file.read(), "0,1\n2,?\n");
}

TEST(CategoricalData, StoreSaysWhenItCannotWrite) {
  const auto table = two_by_two();
  EXPECT_THROW(table->store("/nowhere/at/all"), std::logic_error);
}

TEST(CategoricalData, ReadOfAMissingFileThrows) {
  PlainData table(false, '?', false, nullptr);
  EXPECT_THROW(table.read(std::string("/nowhere/at/all")), std::logic_error);
}

TEST(CategoricalData, BorrowedCellsAreNotFreed) {
  unsigned short cells[] = {1, 2};
  {
    PlainData table(false, '?', false, nullptr);
    table.data = cells;
    table.ownsData = false;
  }
  EXPECT_EQ(cells[1], 2);
}

TEST(CategoricalDataDeathTest, AccessOutsideTheTableEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto table = two_by_two();
  const char* cell = "QZDATA.*Assertion `col<n\\+H && row<N' failed";
  EXPECT_DEATH(table->get(2, 0), cell);
  EXPECT_DEATH(table->get(0, 2), cell);
  EXPECT_DEATH(table->getString(0, 2), cell);
  EXPECT_DEATH(table->set(0, 2, 0), "QZDATA.*Assertion `ignore \\|\\| col<n\\+H' failed");
  EXPECT_DEATH(table->set(3, 0, 0),
               "QZDATA.*Assertion `ignore \\|\\| v<categories\\(col\\) \\|\\| v==MIS_VAL' failed");
  EXPECT_DEATH(table->categories(2), "QZDATA.*Assertion `col<n\\+H' failed");
  EXPECT_DEATH(table->categoryName(2, 0), "QZDATA.*Assertion `c<n\\+H' failed");
  EXPECT_DEATH(table->categoryNames(2), "QZDATA.*Assertion `c<n\\+H' failed");
  EXPECT_DEATH(table->categoryName(0, 3), "QZDATA.*Assertion `x<categories\\(c\\)' failed");
}

TEST(CategoricalDataDeathTest, ASharedTableNamesTableZeroInItsClaim) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto table = two_by_two(false, true);
  EXPECT_DEATH(table->categoryName(1, 3), "QZDATA.*Assertion `x<categories\\(0\\)' failed");
}

TEST(CategoricalDataDeathTest, OnlyAddedColumnsMayBeTrimmed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto table = two_by_two();
  table->addColumns(1, 4);
  const char* claim = "QZDATA.*Assertion `col>=n && col<n\\+H && added\\[col\\]' failed";
  EXPECT_DEATH(table->trimCategories(0, 1), claim);
  EXPECT_DEATH(table->trimCategories(3, 1), claim);
}

TEST(CategoricalData, MissingMayBeSetInAnyColumn) {
  const auto table = two_by_two();
  table->set(CategoricalData::MIS_VAL, 0, 0);
  EXPECT_EQ(table->get(0, 0), 65535u);
}

}  // namespace
