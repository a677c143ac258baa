/// Tables from the binary file, from the caller's cells and from the caller's text, through the
/// exported functions.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "support/model_program.h"

namespace {

using namespace qz_test;
using QZ::CategoricalData;
using Cells = std::vector<unsigned short>;

constexpr unsigned short missing = CategoricalData::MIS_VAL;

std::string number(unsigned long value) {
  return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

/// A binary data file: rows, columns and categories behind the magic.
std::string binary_header(unsigned long rows, unsigned long columns, unsigned long categories) {
  return std::string("qzbin$\0#", 8) + number(rows) + number(columns) + number(categories);
}

CategoricalData& table_of(const Program& program) {
  return *reinterpret_cast<CategoricalData*>(program.word("DPT"));
}

Cells cells_of(const Program& program) {
  const CategoricalData& table = table_of(program);
  return {table.data, table.data + table.N * table.n};
}

std::vector<std::string> read_file(const std::string& name) {
  return {"DFN '" + name + "';", "LDX DPT;"};
}

/// A program with a block of cells in its registers.
class CellBlock : public testing::Test {
 protected:
  void offer(unsigned long rows) {
    program.write("EDP", reinterpret_cast<std::uint64_t>(cells.data()));
    program.write("NXX", std::uint64_t(rows));
    program.write("GPX", std::uint64_t(cells.size() * sizeof(unsigned short)));
  }
  Cells cells;
  Program program;
};

/// The statistics of a two-column model in the default types.
std::vector<double> statistics_of(const Program& program) {
  const auto& model = container_of<unsigned long, double>(program);
  return {model.stats, model.stats + model.statsLength};
}

TEST(BinarySource, IsKnownByItsFirstBytesWhateverTheFileIsCalled) {
  const std::string content = binary_header(3, 2, 4) + std::string("\0\1\3\0\2\2", 6);
  const TempFile file(".csv", content);
  const Program program(read_file(file.path()));
  EXPECT_EQ(cells_of(program), (Cells{0, 1, 3, 0, 2, 2}));
  EXPECT_EQ(program.word("NXX"), 3u);
  EXPECT_EQ(program.word("RES"), content.size());
  EXPECT_EQ(table_of(program).categories(1), 4u);
  EXPECT_EQ(table_of(program).categoryName(0, 3), "3");
}

TEST(BinarySource, IsReadForEveryTypePair) {
  const TempFile file(".bin", binary_header(2, 2, 2) + std::string("\1\0\0\1", 4));
  for (const auto& [index, value] : all_type_names()) {
    const Program program(types(index, value) + fit_lines(file.path(), "CHAIN"));
    EXPECT_EQ(cells_of(program), (Cells{1, 0, 0, 1}));
    EXPECT_EQ(program.word("DIM"), 4u);
  }
}

TEST(BinarySource, GoesOnToAModelWithMadeUpColumnNames) {
  const TempFile file(".bin", binary_header(4, 2, 2) + std::string("\0\0\0\1\1\1\1\1", 8));
  const Program program(fit_lines(file.path(), "CHAIN"));
  const auto& model = container_of<unsigned long, double>(program);
  EXPECT_EQ(*model.vertexNames, (std::vector<std::string>{"X0", "X1"}));
  EXPECT_EQ(statistics_of(program), (std::vector<double>{2, 2, 1, 3, 1, 1, 0, 2}));
}

TEST(BinarySource, WithOneOtherByteInItsMagicIsText) {
  std::string content = binary_header(3, 2, 4) + std::string("\0\1\3\0\2\2", 6);
  content[7] = '%';
  const TempFile file(".bin", content);
  // The whole content is one line, which the reader takes for the header.
  const Program program(read_file(file.path()));
  EXPECT_EQ(program.word("NXX"), 0u);
  EXPECT_EQ(table_of(program).n, 0u);
  const TempFile text(".bin", std::string("qzbin$\0%,b\n-\nx,y\n", 17));
  EXPECT_EQ(cells_of(Program(read_file(text.path()))), (Cells{0, 0}));
}

TEST(BinarySource, ShorterThanItsMagicIsText) {
  const TempFile file(".bin", std::string("qzbin$\0", 7));
  EXPECT_EQ(Program(read_file(file.path())).word("NXX"), 0u);
}

TEST(BinarySource, HoldsNoMissingCells) {
  const TempFile file(".bin", binary_header(1, 2, 256) + "\xff\x3f");
  EXPECT_EQ(cells_of(Program(read_file(file.path()))), (Cells{255, 63}));
}

TEST(BinarySource, WithoutRowsHasItsColumns) {
  const TempFile file(".bin", binary_header(0, 3, 2));
  const Program program(read_file(file.path()));
  EXPECT_EQ(program.word("NXX"), 0u);
  EXPECT_EQ(table_of(program).n, 3u);
  EXPECT_EQ(table_of(program).categories(2), 2u);
}

TEST(BinarySource, WithoutCategoriesHasEmptyTables) {
  const TempFile file(".bin", binary_header(1, 2, 0) + std::string("\0\0", 2));
  const Program program(read_file(file.path()));
  EXPECT_EQ(table_of(program).categories(0), 0u);
  EXPECT_EQ(table_of(program).categories(1), 0u);
}

TEST(BinarySource, ThatEndsEarlyIsZeroFromThereOn) {
  const TempFile file(".bin", binary_header(2, 2, 9) + "\5");
  EXPECT_EQ(cells_of(Program(read_file(file.path()))), (Cells{5, 0, 0, 0}));
}

TEST(BinarySource, IgnoresTheNamesOfALoadedModel) {
  const TempFile text(".csv", csv("a,b", {"x,u", "y,v"}));
  const TempFile file(".bin", binary_header(1, 2, 3) + "\2\1");
  Program program(fit_lines(text.path(), "CHAIN"));
  program.run({"DEL DPT;", "DEL DFN;"});
  program.run(read_file(file.path()));
  EXPECT_EQ(table_of(program).categories(0), 3u);
  EXPECT_EQ(table_of(program).categoryName(0, 2), "2");
}

TEST(BinarySource, WithACellBeyondItsCategoriesIsNotCounted) {
  const TempFile file(".bin", binary_header(1, 2, 2) + std::string("\0\7", 2));
  EXPECT_EQ(failure_of(fit_lines(file.path(), "CHAIN")),
            logic_error("a cell of column 1 holds a category beyond the states of its vertex", 4));
}

TEST_F(CellBlock, IsUsedInPlaceAndStaysTheCallers) {
  cells = {0, 2, 1, 0, 1, 1};
  offer(3);
  program.run({"LDX DPT;"});
  EXPECT_EQ(table_of(program).data, cells.data());
  EXPECT_EQ(table_of(program).N, 3u);
  EXPECT_EQ(table_of(program).n, 2u);
  EXPECT_EQ(table_of(program).categories(0), 2u);
  EXPECT_EQ(table_of(program).categories(1), 3u);
  EXPECT_EQ(program.word("NXX"), 3u);
  program.run({"DEL DPT;"});
  EXPECT_EQ(cells, (Cells{0, 2, 1, 0, 1, 1}));
}

TEST_F(CellBlock, LeavesTheSizeRegisterAlone) {
  cells = {0, 1};
  offer(1);
  program.run({"RES 2.5;", "LDX DPT;"});
  EXPECT_EQ(program.real("RES"), 2.5);
}

TEST_F(CellBlock, IsPreferredToTheDataFile) {
  const TempFile file(".csv", csv("a,b,c", {"x,u,v"}));
  cells = {1, 0};
  offer(1);
  program.run(read_file(file.path()));
  EXPECT_EQ(cells_of(program), cells);
}

TEST_F(CellBlock, LosesAPartOfARow) {
  cells = {0, 1, 2, 3, 4};
  offer(2);
  program.run({"LDX DPT;"});
  EXPECT_EQ(table_of(program).n, 2u);
  EXPECT_EQ(cells_of(program), (Cells{0, 1, 2, 3}));
}

TEST_F(CellBlock, OfNoBytesHasNoColumns) {
  cells = {0};
  offer(4);
  program.write("GPX", std::uint64_t(0));
  program.run({"LDX DPT;"});
  EXPECT_EQ(table_of(program).n, 0u);
  EXPECT_EQ(program.word("NXX"), 4u);
  program.write("NXX", ~std::uint64_t(0));
  program.write("GPX", std::uint64_t(2));
  program.run({"DEL DPT;", "LDX DPT;"});
  EXPECT_EQ(table_of(program).n, 0u);
}

TEST_F(CellBlock, MissingCellsDoNotAddACategory) {
  cells = {missing, 1, 0, missing, 1, 0};
  offer(3);
  program.run({"LDX DPT;"});
  EXPECT_EQ(table_of(program).get(0, 0), missing);
  EXPECT_EQ(table_of(program).categories(0), 2u);
  EXPECT_EQ(table_of(program).categories(1), 2u);
}

TEST_F(CellBlock, CountingFillsTheCallersMissingCells) {
  cells = {missing, 1, 0, missing, 1, 0, 1, 1};
  const Cells before = cells;
  offer(4);
  program.run({"LDX DPT;", "GRA CHAIN;", "LDX GPT;", "MODEL;"});
  for (std::size_t i = 0; i < cells.size(); ++i) {
    if (before[i] == missing) {
      EXPECT_LT(cells[i], 2) << i;
    } else {
      EXPECT_EQ(cells[i], before[i]) << i;
    }
  }
  std::vector<double> counts(8);
  for (std::size_t row = 0; row < 4; ++row) {
    const unsigned short a = cells[2 * row], b = cells[2 * row + 1];
    ++counts[a];
    ++counts[2 + b];
    ++counts[4 + 2 * a + b];
  }
  EXPECT_EQ(statistics_of(program), counts);
}

TEST_F(CellBlock, SharesCategoriesOnRequest) {
  cells = {0, 4, 1, 2};
  offer(2);
  program.run({"YYC true;", "LDX DPT;"});
  EXPECT_TRUE(table_of(program).sharedCategories);
  EXPECT_EQ(table_of(program).categories(0), 5u);
  EXPECT_EQ(table_of(program).categories(1), 5u);
}

TEST_F(CellBlock, TakesTheNamesOfALoadedModel) {
  const TempFile text(".csv", csv("a,b", {"x,u", "y,v", "z,u"}));
  program.run(fit_lines(text.path(), "CHAIN"));
  program.run({"DEL DPT;"});
  cells = {1, 1, 0, 0, 0, 1};
  offer(3);
  program.run({"LDX DPT;", "STATS;"});
  EXPECT_EQ(table_of(program).categories(0), 3u);
  EXPECT_EQ(table_of(program).categoryName(0, 1), "y");
  EXPECT_EQ(table_of(program).categoryName(1, 1), "v");
  EXPECT_EQ(statistics_of(program), (std::vector<double>{2, 1, 0, 1, 2, 1, 1, 0, 1, 0, 0}));
}

TEST_F(CellBlock, WithACellBeyondTheModelIsNotCounted) {
  const TempFile text(".csv", csv("a,b", {"x,u", "y,v"}));
  program.run(fit_lines(text.path(), "CHAIN"));
  program.run({"DEL DPT;"});
  cells = {1, 2};
  offer(1);
  EXPECT_EQ(program.attempt({"LDX DPT;", "STATS;"}),
            logic_error("a cell of column 1 holds a category beyond the states of its vertex", 1));
}

TEST_F(CellBlock, CanChangeBetweenTwoCounts) {
  cells = {0, 0, 1, 1};
  offer(2);
  program.run({"LDX DPT;", "GRA CHAIN;", "LDX GPT;", "MODEL;"});
  cells[3] = 0;
  program.run({"STATS;"});
  EXPECT_EQ(statistics_of(program), (std::vector<double>{1, 1, 2, 0, 1, 0, 1, 0}));
}

TEST(CallersText, IsReadWhileNoRowsAreAnnounced) {
  std::string text = csv("a,b", {"x,u", "?,v"});
  Program program;
  program.write("EDP", reinterpret_cast<std::uint64_t>(&text));
  program.run({"LDX DPT;"});
  EXPECT_EQ(cells_of(program), (Cells{0, 0, missing, 1}));
  EXPECT_EQ(program.word("RES"), text.size());
  EXPECT_EQ(program.word("NXX"), 2u);
  EXPECT_EQ(table_of(program).columnHeaders, (std::vector<std::string>{"a", "b"}));
}

TEST(CallersText, IsTextEvenIfItBeginsLikeABinaryFile) {
  std::string text = std::string("qzbin$\0#,b\n-\nx,y\n", 17);
  Program program;
  program.write("EDP", reinterpret_cast<std::uint64_t>(&text));
  program.run({"LDX DPT;"});
  EXPECT_EQ(cells_of(program), (Cells{0, 0}));
}

}  // namespace
