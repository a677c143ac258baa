#include "QZ/data/numpy_data.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace {

using QZ::CategoricalNumPyData;
using testing::ElementsAre;

TEST(NumPyData, UsesTheCellsInPlaceAndLeavesThemToTheirOwner) {
  unsigned short cells[] = {0, 2, 1, 65535};
  {
    CategoricalNumPyData table(false, '?', false, nullptr);
    EXPECT_FALSE(table.ownsData);
    table.read(cells, 2, 2);
    EXPECT_EQ(table.data, cells);
    EXPECT_EQ(table.N, 2u);
    EXPECT_EQ(table.n, 2u);
    EXPECT_EQ(table.added, std::vector<bool>(2, false));
    table.set(1, 1, 1);
  }
  EXPECT_EQ(cells[3], 1);
}

TEST(NumPyData, CategoriesReachToTheLargestCellThatIsNotMissing) {
  unsigned short cells[] = {0, 2, 1, 65535, 0, 1};
  CategoricalNumPyData table(false, '?', false, nullptr);
  table.read(cells, 3, 2);
  EXPECT_THAT(*table.categoryNames(0), ElementsAre("0", "1"));
  EXPECT_THAT(*table.categoryNames(1), ElementsAre("0", "1", "2"));
  EXPECT_EQ(table.categoryMaps[1]->at("2"), 2u);
  EXPECT_EQ(table.getString(1, 1), "?");
}

TEST(NumPyData, SharedCategoriesGrowToTheLargestOfAllColumns) {
  unsigned short cells[] = {1, 3, 2, 0, 0, 0};
  CategoricalNumPyData table(false, '?', true, nullptr);
  table.read(cells, 2, 3);
  EXPECT_EQ(table.categoryMaps.size(), 3u);
  EXPECT_EQ(table.categoryLists.size(), 3u);
  EXPECT_EQ(table.categories(2), 4u);
  EXPECT_TRUE(table.categoryLists[1]->empty());
  EXPECT_TRUE(table.categoryMaps[2]->empty());
}

TEST(NumPyData, ATableWithoutRowsHasOneCategoryEach) {
  CategoricalNumPyData table(false, '?', false, nullptr);
  table.read(nullptr, 0, 2);
  EXPECT_EQ(table.categories(0), 1u);
  EXPECT_EQ(table.categories(1), 1u);
}

TEST(NumPyData, AColumnOfMissingCellsHasOneCategory) {
  unsigned short cells[] = {65535, 65535};
  CategoricalNumPyData table(false, '?', false, nullptr);
  table.read(cells, 2, 1);
  EXPECT_EQ(table.categories(0), 1u);
}

TEST(NumPyData, GivenCategoriesStayAsTheyAre) {
  std::vector<std::string> names{"x", "y"};
  std::vector<std::vector<std::string>*> lists{&names};
  unsigned short cells[] = {1, 7};
  CategoricalNumPyData table(false, '?', false, &lists);
  table.read(cells, 2, 1);
  EXPECT_THAT(*table.categoryNames(0), ElementsAre("x", "y"));
  EXPECT_EQ(table.get(0, 1), 7u);
  EXPECT_EQ(table.added.size(), 1u);
}

TEST(NumPyData, AStreamFillsNothing) {
  CategoricalNumPyData table(false, '?', false, nullptr);
  std::istringstream in("\na,b\n");
  table.read(in);
  EXPECT_EQ(table.N, 0u);
  EXPECT_EQ(table.data, nullptr);
}

}  // namespace
