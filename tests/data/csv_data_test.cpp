#include "QZ/data/csv_data.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <random>
#include <sstream>

#include "support/random_names.h"
#include "support/temp_file.h"

namespace {

using QZ::CategoricalCSVData;
using testing::ElementsAre;
using Cells = std::vector<unsigned short>;
using Lists = std::vector<std::vector<std::string>*>;

struct Form {
  bool header = false;
  bool shared = false;
  Lists* categories = nullptr;
  char missing = '?';
};

std::unique_ptr<CategoricalCSVData> table_of(const std::string& text, Form form = {}) {
  auto table =
      std::make_unique<CategoricalCSVData>(form.header, form.missing, form.shared, form.categories);
  std::istringstream in(text);
  table->read(in);
  return table;
}

Cells cells_of(const CategoricalCSVData& table) {
  return Cells(table.data, table.data + table.N * table.n);
}

std::string text_of(const CategoricalCSVData& table) {
  std::string text;
  for (unsigned long row = 0; row < table.N; ++row) {
    for (unsigned long col = 0; col < table.n; ++col) text += table.getString(col, row) + ",";
    text.back() = '\n';
  }
  return text;
}

TEST(CsvData, DropsTheLineAfterTheHeader) {
  const auto table = table_of("a,b\nx,y\nu,v\n", {.header = true});
  EXPECT_THAT(table->columnHeaders, ElementsAre("a", "b"));
  EXPECT_EQ(text_of(*table), "u,v\n");
  EXPECT_EQ(table->categories(0), 1u);
}

TEST(CsvData, DropsTheFirstLineWithoutAHeader) {
  const auto table = table_of("a,b\nx,y\nu,v\n");
  EXPECT_TRUE(table->columnHeaders.empty());
  EXPECT_EQ(text_of(*table), "x,y\nu,v\n");
}

TEST(CsvData, TheDroppedLineIsNeverLookedAt) {
  EXPECT_EQ(text_of(*table_of(",,\nx\n")), "x\n");
  EXPECT_EQ(text_of(*table_of("a\n\nx\n", {.header = true})), "x\n");
}

TEST(CsvData, HasNoRowsWhereTheTextEndsEarly) {
  for (const char* text : {"", "\n", "a,b", "a,b\n", "a,b\nx,y", "a,b\nx,y\n", "a\nb\n\n\n"}) {
    const auto table = table_of(text, {.header = true});
    EXPECT_EQ(table->N, 0u) << text;
    EXPECT_EQ(table->n, 0u) << text;
    EXPECT_EQ(table->data, nullptr) << text;
    EXPECT_TRUE(table->categoryMaps.empty()) << text;
  }
}

TEST(CsvData, AFinalLineWithoutNewlineCounts) {
  EXPECT_EQ(text_of(*table_of("\nx,y\nu,v")), "x,y\nu,v\n");
}

TEST(CsvData, BlankLinesLeaveNoRow) {
  EXPECT_EQ(text_of(*table_of("\n\n\nx,y\n\n\nu,v\n\n")), "x,y\nu,v\n");
}

TEST(CsvData, ACarriageReturnBelongsToTheLastCell) {
  const auto table = table_of("\nx,y\r\nx,y\n");
  EXPECT_EQ(table->categories(0), 1u);
  EXPECT_THAT(*table->categoryNames(1), ElementsAre("y\r", "y"));
}

TEST(CsvData, ALoneCarriageReturnIsACell) { EXPECT_EQ(table_of("\nx\n\r\n")->N, 2u); }

TEST(CsvData, QuotesDoNotProtectACommaOrANewline) {
  const auto table = table_of("\n\"x,y\"\n");
  EXPECT_EQ(table->n, 2u);
  EXPECT_EQ(table->categoryName(0, 0), "\"x");
}

TEST(CsvData, ACellThatBeginsWithTheMarkerIsMissing) {
  const auto table = table_of("\n?,?abc\nx,y\n");
  EXPECT_EQ(cells_of(*table), (Cells{65535, 65535, 0, 0}));
  const auto other = table_of("\n*z,?\n", {.missing = '*'});
  EXPECT_EQ(cells_of(*other), (Cells{65535, 0}));
}

TEST(CsvData, NumbersFollowFirstAppearanceAndListsFollowNumbers) {
  const auto table = table_of("\nz,1\na,1\nz,0\nm,1\n");
  EXPECT_EQ(cells_of(*table), (Cells{0, 0, 1, 0, 0, 1, 2, 0}));
  EXPECT_THAT(*table->categoryNames(0), ElementsAre("z", "a", "m"));
  EXPECT_EQ(table->categoryMaps[0]->at("m"), 2u);
  EXPECT_EQ(table->categoryMaps[0]->begin()->first, "a");
}

TEST(CsvData, SharedCategoriesGiveOneNumberInAllColumns) {
  const auto table = table_of("\na,b\nb,c\n", {.shared = true});
  EXPECT_EQ(cells_of(*table), (Cells{0, 1, 1, 2}));
  EXPECT_EQ(table->categoryMaps.size(), 1u);
  EXPECT_THAT(*table->categoryNames(1), ElementsAre("a", "b", "c"));
}

TEST(CsvData, UnknownNamesAreMissingUnderFixedCategories) {
  std::vector<std::string> first{"a", "b"}, second{"x"};
  Lists lists{&first, &second};
  const auto table = table_of("\nb,x\nc,y\n?,x\n", {.categories = &lists});
  EXPECT_EQ(cells_of(*table), (Cells{1, 0, 65535, 65535, 65535, 0}));
  EXPECT_EQ(table->categories(0), 2u);
  EXPECT_EQ(table->categories(1), 1u);
}

TEST(CsvData, FixedCategoriesAreLookedUpPerColumnEvenWhenShared) {
  std::vector<std::string> first{"a"}, second{"b", "a"};
  Lists lists{&first, &second};
  const auto table = table_of("\na,a\n", {.shared = true, .categories = &lists});
  EXPECT_EQ(cells_of(*table), (Cells{0, 1}));
}

TEST(CsvData, AColumnBeyondTheFixedCategoriesIsARangeError) {
  std::vector<std::string> first{"a"};
  Lists lists{&first};
  EXPECT_THROW(table_of("\na,a\n", {.categories = &lists}), std::out_of_range);
}

TEST(CsvData, AnEmptyCellIsTheStringsOwnRangeError) {
  for (const char* text : {"\na,,b\n", "\na,b,\n", "\n,a\n", "\n,", "\na,b\nc,\n"}) {
    CategoricalCSVData table(false, '?', false, nullptr);
    std::istringstream in(text);
    try {
      table.read(in);
      ADD_FAILURE() << text;
    } catch (const std::out_of_range& error) {
      EXPECT_STREQ(error.what(), "basic_string::at: __n (which is 0) >= this->size() (which is 0)");
    }
    EXPECT_EQ(table.data, nullptr);
    EXPECT_EQ(table.N, 0u);
  }
}

TEST(CsvData, EmptyHeaderCellsAreNames) {
  EXPECT_THAT(table_of("a,,\n\nx,y,z\n", {.header = true})->columnHeaders,
              ElementsAre("a", "", ""));
}

TEST(CsvData, RaggedRowsWithTheRightTotalAreCutAnew) {
  const auto table = table_of("\na,b\nc\nd,e,f\n");
  EXPECT_EQ(table->N, 3u);
  EXPECT_EQ(table->n, 2u);
  EXPECT_EQ(cells_of(*table), (Cells{0, 0, 1, 2, 1, 0}));
}

TEST(CsvDataDeathTest, RaggedRowsWithAnotherTotalEndTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(table_of("\na,b\nc\n"), "QZDATA.*Assertion `i==n\\*N' failed");
  EXPECT_DEATH(table_of("\na,b\nc,d,e\n"), "QZDATA.*Assertion `i==n\\*N' failed");
}

TEST(CsvData, AColumnOfMissingCellsHasNoCategories) {
  for (bool shared : {false, true}) {
    const auto table = table_of("\n?\n?\n", {.shared = shared});
    EXPECT_EQ(table->categories(0), 0u);
    EXPECT_EQ(table->getString(0, 1), "?");
  }
}

TEST(CsvData, VisibleColumnsAreNotMarkedAsAdded) {
  EXPECT_EQ(table_of("\na,b,c\n")->added, std::vector<bool>(3, false));
}

TEST(CsvData, HiddenColumnsFollowAColumnOfMissingCells) {
  const auto table = table_of("\na,?\n");
  table->addColumns(1, 2);
  EXPECT_EQ(table->categories(1), 0u);
  EXPECT_EQ(table->categories(2), 2u);
}

TEST(CsvData, ReadingBackAStoredTableLosesTheFirstRow) {
  const auto table = table_of("a,b\n\nx,y\nu,v\n", {.header = true});
  const qz_test::TempFile file(".csv");
  table->store(file.path());
  CategoricalCSVData again(true, '?', false, nullptr);
  again.read(file.path());
  EXPECT_THAT(again.columnHeaders, ElementsAre("a", "b"));
  EXPECT_EQ(text_of(again), "u,v\n");
}

TEST(CsvData, AFailedStreamThrowsInsteadOfSpinning) {
  const auto refused = [](std::istream& in) {
    CategoricalCSVData table(true, '?', false, nullptr);
    try {
      table.read(in);
    } catch (const std::logic_error& error) {
      return std::string(error.what());
    }
    return std::string("accepted");
  };
  std::ifstream missing("/nowhere/at/all");
  EXPECT_EQ(refused(missing), "cannot read data");
  std::istringstream bad("a\nb\nc\n");
  bad.setstate(std::ios::badbit);
  EXPECT_EQ(refused(bad), "cannot read data");
  std::ifstream directory(std::filesystem::temp_directory_path());
  EXPECT_EQ(refused(directory), "cannot read data");
}

TEST(CsvData, AMissingFileOrADirectoryThrows) {
  for (const std::string& name :
       {std::string("/nowhere/at/all"), std::filesystem::temp_directory_path().string()}) {
    CategoricalCSVData table(true, '?', false, nullptr);
    EXPECT_THROW(table.read(name), std::logic_error);
  }
}

/// A stream that hands out one byte at a time and then breaks.
class Dripping : public std::streambuf {
 public:
  Dripping(std::string text, bool breaks) : text_(std::move(text)), breaks_(breaks) {}

 protected:
  int_type underflow() override {
    if (place_ == text_.size()) {
      if (breaks_) throw std::runtime_error("broken");
      return traits_type::eof();
    }
    setg(&text_[place_], &text_[place_], &text_[place_] + 1);
    ++place_;
    return traits_type::to_int_type(*gptr());
  }

 private:
  std::string text_;
  std::size_t place_ = 0;
  bool breaks_;
};

TEST(CsvData, ReadsAnyStream) {
  Dripping source("h\n\nx,y\nu,v\n", false);
  std::istream in(&source);
  CategoricalCSVData table(false, '?', false, nullptr);
  table.read(in);
  EXPECT_EQ(text_of(table), "x,y\nu,v\n");
}

TEST(CsvData, AStreamThatBreaksInTheMiddleThrows) {
  Dripping source("h\n\nx,y\nu,v\n", true);
  std::istream in(&source);
  CategoricalCSVData table(false, '?', false, nullptr);
  EXPECT_THROW(table.read(in), std::logic_error);
  EXPECT_EQ(table.N, 0u);
}

TEST(CsvData, NumbersAreCutToSixteenBits) {
  std::string text = "\n";
  for (int i = 0; i < 65538; ++i) text += std::to_string(i) + "\n";
  const auto table = table_of(text);
  EXPECT_EQ(table->categories(0), 65538u);
  EXPECT_EQ(table->data[65534], 65534);
  EXPECT_EQ(table->data[65535], QZ::CategoricalData::MIS_VAL);
  EXPECT_EQ(table->data[65537], 1);
}

TEST(CsvData, RoundTripsNamesOfEveryLengthAcrossPieces) {
  std::mt19937 rng(7);
  std::string text;
  for (int row = 0; row < 40000; ++row) {
    for (int col = 0; col < 3; ++col) text += qz_test::random_name(rng) + (col < 2 ? "," : "\n");
  }
  text += std::string(600000, 'q') + ",b,c\n";
  const auto table = table_of("\n" + text);
  EXPECT_EQ(table->N, 40001u);
  // The category numbers wrap past 16 bits only in columns of more than 65535 names.
  ASSERT_LT(table->categories(0), 65535u);
  EXPECT_TRUE(text_of(*table) == text);
}

}  // namespace
