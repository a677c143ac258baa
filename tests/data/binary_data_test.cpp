#include "QZ/data/binary_data.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

#include "support/temp_file.h"

namespace {

using QZ::CategoricalBinaryData;
using testing::ElementsAre;

std::string number(unsigned long value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

std::string header(unsigned long rows, unsigned long columns, unsigned long categories) {
  return std::string("qzbin$\0#", 8) + number(rows) + number(columns) + number(categories);
}

std::unique_ptr<CategoricalBinaryData> table_of(const std::string& content) {
  auto table = std::make_unique<CategoricalBinaryData>(false, '?', true, nullptr);
  std::istringstream in(content);
  table->read(in);
  return table;
}

TEST(BinaryData, ReadsBytesRowByRow) {
  const auto table = table_of(header(2, 3, 5) + std::string("\0\1\2\3\4\0", 6));
  EXPECT_EQ(table->N, 2u);
  EXPECT_EQ(table->n, 3u);
  EXPECT_EQ(table->get(1, 0), 1u);
  EXPECT_EQ(table->get(0, 1), 3u);
  EXPECT_EQ(table->getString(1, 1), "4");
  EXPECT_EQ(table->added, std::vector<bool>(3, false));
  EXPECT_TRUE(table->ownsData);
}

TEST(BinaryData, ReadsMoreThanOnePiece) {
  std::string cells;
  for (int i = 0; i < 200000; ++i) cells += static_cast<char>(i % 251);
  const qz_test::TempFile file(".bin", header(2000, 100, 251) + cells);
  CategoricalBinaryData table(false, '?', true, nullptr);
  table.read(file.path());
  for (unsigned long i = 0; i < 200000; ++i) ASSERT_EQ(table.data[i], i % 251) << i;
}

TEST(BinaryData, AByteOf255IsNotMissing) {
  EXPECT_EQ(table_of(header(1, 1, 256) + "\xff")->get(0, 0), 255u);
}

TEST(BinaryData, EveryColumnHasItsOwnTableThoughSharedOnesAreReadFromTheFirst) {
  const auto table = table_of(header(1, 2, 3) + std::string("\0\0", 2));
  EXPECT_EQ(table->categoryMaps.size(), 2u);
  EXPECT_THAT(*table->categoryLists[1], ElementsAre("0", "1", "2"));
  EXPECT_EQ(table->categoryNames(1), table->categoryLists[0]);
}

TEST(BinaryData, NoRowsStillYieldTables) {
  const auto table = table_of(header(0, 2, 3));
  EXPECT_EQ(table->N, 0u);
  EXPECT_EQ(table->categories(1), 3u);
}

TEST(BinaryData, NoCategoriesYieldEmptyTables) {
  const auto table = table_of(header(1, 2, 0) + std::string("\0\0", 2));
  EXPECT_EQ(table->categories(0), 0u);
  EXPECT_EQ(table->categories(1), 0u);
}

TEST(BinaryData, AShortFileLeavesTheRestAtZero) {
  const auto table = table_of(header(2, 2, 9) + "\5");
  EXPECT_EQ(table->N, 2u);
  EXPECT_EQ(table->get(0, 0), 5u);
  EXPECT_EQ(table->get(1, 1), 0u);
  const auto headless = table_of(header(2, 2, 9).substr(0, 16));
  EXPECT_EQ(headless->N, 2u);
  EXPECT_EQ(headless->n, 0u);
}

TEST(BinaryData, RefusesCountsThatNoTableHolds) {
  EXPECT_THROW(table_of(header(1ul << 40, 1ul << 40, 2)), std::logic_error);
  EXPECT_THROW(table_of(header(0, 1ul << 60, 2)), std::logic_error);
  EXPECT_THROW(table_of(header(0, 1, 1ul << 60)), std::logic_error);
}

TEST(BinaryData, RefusesLargeCountsThatTheFileDoesNotBearOut) {
  const auto refused = [](const std::string& content) {
    try {
      table_of(content);
    } catch (const std::logic_error& error) {
      return std::string(error.what());
    }
    return std::string();
  };
  const std::string message = "the binary data are shorter than their own counts say";
  EXPECT_EQ(refused(header(1ul << 40, 16, 2)), message);
  EXPECT_EQ(refused(header(1 << 11, 1 << 10, 2) + std::string(100, '\1')), message);
  EXPECT_EQ(refused(header(0, 1ul << 30, 2)), message);
  EXPECT_EQ(refused(header(0, 1ul << 15, 65535)), message);
  EXPECT_EQ(table_of(header(1 << 11, 1 << 10, 2) + std::string(1 << 21, '\1'))->get(0, 2047), 1u);
}

TEST(BinaryDataDeathTest, AnotherMagicEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const char* claim =
      "QZDATA.*Assertion `std::memcmp\\(start,magic,sizeof\\(magic\\)\\)==0' failed";
  std::string other = header(0, 0, 0);
  other[7] = '!';
  EXPECT_DEATH(table_of(other), claim);
  EXPECT_DEATH(table_of(""), claim);
}

}  // namespace
