/// `qz check`: what it says of files before they are loaded.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "support/process.h"
#include "support/program.h"
#include "support/temp_file.h"

namespace {

using qz_test::Outcome;
using testing::HasSubstr;
using testing::Not;

class Check : public testing::Test {
 protected:
  /// Writes `content` to a file and examines it.
  Outcome check(const std::string& content, std::vector<std::string> options = {}) const {
    directory.write("file", content);
    options.insert(options.begin(), {QZ_TOOL, "check", "file"});
    return qz_test::run_process(options, directory.path());
  }
  static void expect_in_order(const Outcome& outcome, const std::string& summary) {
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr("file: " + summary + "\n"));
    EXPECT_THAT(outcome.out, testing::EndsWith("file: in order\n"));
    EXPECT_EQ(outcome.err, "");
  }
  static void expect_problem(const Outcome& outcome, const std::string& text) {
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("file: " + text + "\n"));
    EXPECT_THAT(outcome.out, Not(HasSubstr("in order")));
  }
  static void expect_note(const Outcome& outcome, const std::string& text) {
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr("file: note: " + text + "\n"));
  }

  qz_test::TempDirectory directory;
};

class CheckTable : public Check {};

TEST_F(CheckTable, CountsRowsAndColumns) {
  expect_in_order(check("a,b\n\nx,1\n\n?,2\ny,1"), "a table of 3 rows and 2 columns");
  expect_in_order(check("\nx,1\n", {"--no-header"}), "a table of 1 row and 2 columns");
}

TEST_F(CheckTable, NamesTheLinesOfRaggedRows) {
  const Outcome outcome = check("a,b\n\nx,1\ny\n\nz,2,3\n");
  expect_problem(outcome, "line 4 has 1 cell, the first row (line 3) has 2");
  expect_problem(outcome, "line 6 has 3 cells, the first row (line 3) has 2");
}

TEST_F(CheckTable, FindsRaggedRowsWhoseTotalFits) {
  expect_problem(check("a,b\n\nx,1\ny\nz,2,3\n"),
                 "line 4 has 1 cell, the first row (line 3) has 2");
}

TEST_F(CheckTable, NamesEmptyCells) {
  const Outcome outcome = check("a,b,c\n\nx,,1\nx,y,\n");
  expect_problem(outcome, "line 3: cell 2 is empty");
  expect_problem(outcome, "line 4: cell 3 is empty");
}

TEST_F(CheckTable, ComparesTheHeaderWithTheRows) {
  expect_problem(check("a,b\n\nx,1,2\n"), "the header names 2 columns, the first row has 3 cells");
}

TEST_F(CheckTable, WantsData) {
  expect_problem(check("a,b\n"), "there is no row of data");
  expect_problem(check(""), "there is no row of data");
}

TEST_F(CheckTable, WarnsOfTheLineThatIsThrownAway) {
  const std::string text = "a,b\nx,1\ny,2\n";
  expect_note(check(text), "line 2 is thrown away: an empty line should stand there");
  expect_note(check(text, {"--no-header"}),
              "line 1 is thrown away: an empty line should stand there");
}

TEST_F(CheckTable, WarnsOfCarriageReturnsAndByteOrderMarks) {
  expect_note(check("a,b\r\n\r\nx,1\r\n"),
              "lines end in a carriage return, which belongs to their last cell");
  expect_note(check("\xEF\xBB\xBF"
                    "a,b\n\nx,1\n"),
              "the file begins with a byte order mark, which belongs to the first name");
}

TEST_F(CheckTable, KnowsMissingCells) {
  expect_note(check("a,b\n\n?,1\n?x,2\n"), "column 1 is missing in every row");
  expect_in_order(check("a,b\n\n?,1\n", {"--missing", "*"}), "a table of 1 row and 2 columns");
}

TEST_F(CheckTable, CountsCategoriesBeyondACell) {
  std::string text = "a\n\n";
  for (int i = 0; i < 65536; ++i) text += std::to_string(i) + "\n";
  expect_problem(check(text), "column 1 has 65536 categories, and a cell can hold 65535");
}

TEST_F(CheckTable, CutsALongListShort) {
  std::string text = "a,b\n\nx,1\n";
  for (int i = 0; i < 50; ++i) text += "x\n";
  expect_problem(check(text), "and 30 more of this");
}

class CheckAdjacency : public Check {
 protected:
  Outcome check(const std::string& content, std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"--as", "adjacency"});
    return Check::check(content, options);
  }
};

TEST_F(CheckAdjacency, CountsVerticesAndEdges) {
  expect_in_order(check("0,1,1\n1,0,0\n1,0,0\n"), "an adjacency matrix of 3 vertices and 2 edges");
  expect_in_order(check("0;1;\n1;0;\n", {"--separator", ";"}),
                  "an adjacency matrix of 2 vertices and 1 edge");
}

TEST_F(CheckAdjacency, FindsUnequalLinesAndCells) {
  const Outcome outcome = check("0,1\n1,10\n");
  expect_problem(outcome, "line 2 is 4 bytes long, the line before it 3");
  expect_problem(check("0,1\n110\n"), "line 2 has 1 cell, the first row 2");
  expect_problem(check("0,x\n1,0\n"), "line 1: cell 2 is no number");
  expect_problem(check("0,1\n"), "the matrix has 1 row and 2 columns");
}

TEST_F(CheckAdjacency, SaysWhatIsIgnored) {
  expect_note(check("0,1\n0,0\n"),
              "the matrix is not symmetric: only cells right of the diagonal count");
  expect_note(check("1,1\n1,0\n"), "line 1: a vertex joined to itself is ignored");
}

template <class number_t>
std::string bytes_of(const std::vector<number_t>& numbers) {
  return {reinterpret_cast<const char*>(numbers.data()), numbers.size() * sizeof(number_t)};
}

std::string words(const std::vector<unsigned long>& numbers) { return bytes_of(numbers); }

class CheckBinary : public Check {
 protected:
  static std::string file(const std::vector<unsigned long>& counts, const std::string& cells) {
    return std::string("qzbin$\0#", 8) + words(counts) + cells;
  }
};

TEST_F(CheckBinary, KnowsTheFileByItsMagic) {
  expect_in_order(check(file({2, 2, 3}, std::string("\0\1\2\0", 4))),
                  "binary data of 2 rows, 2 columns and 3 categories");
}

TEST_F(CheckBinary, ComparesItsSizeWithItsCounts) {
  expect_problem(check(file({2, 2, 3}, std::string("\0\1\2", 3))),
                 "the cells are cut off: the file holds 3 of them");
  expect_problem(check(file({1ul << 40, 1ul << 40, 3}, "")),
                 "the cells are cut off: the file holds 0 of them");
  expect_problem(check(file({2, 2}, "")), "the file ends within its counts");
  expect_note(check(file({1, 1, 3}, std::string("\0\1\2", 3))),
              "2 bytes behind the cells are not read");
}

TEST_F(CheckBinary, NamesCellsBeyondTheirCategories) {
  const Outcome outcome = check(file({2, 2, 3}, std::string("\0\1\3\0", 4)));
  expect_problem(outcome, "row 2, column 1: category 3 is beyond the last one");
}

TEST_F(CheckBinary, SaysIfTheMagicIsMissing) {
  expect_problem(check("a,b\n\nx,1\n", {"--as", "binary"}),
                 "the file does not begin like binary data");
}

class CheckGraph : public Check {};

TEST_F(CheckGraph, FindsTheIndexTypeThatFits) {
  expect_in_order(check(words({3, 2, 0, 1, 1, 2})), "a graph of 3 vertices and 2 edges");
  const Outcome narrow = check(bytes_of<unsigned short>({3, 2, 0, 1, 1, 2}));
  expect_in_order(narrow, "a graph of 3 vertices and 2 edges");
  EXPECT_THAT(narrow.out, HasSubstr("read with idx_t UINT16\n"));
}

TEST_F(CheckGraph, ComparesItsSizeWithItsCounts) {
  const std::vector<std::string> graph{"--as", "graph", "--index", "UINT64"};
  expect_problem(check(words({3, 2, 0, 1, 1}), graph),
                 "the edges are cut off: the file holds 1 of 2");
  expect_problem(check("abc", graph), "the file ends before the number of vertices");
  expect_note(check(words({3, 1, 0, 1, 1}), graph), "8 bytes at the end are not read");
}

TEST_F(CheckGraph, NamesEdgesThatLeadNowhere) {
  expect_problem(check(words({3, 2, 0, 1, 1, 3}), {"--as", "graph"}),
                 "edge 1 (1, 3) names a vertex that is not there");
}

TEST_F(CheckGraph, NotesOddEdges) {
  const Outcome outcome = check(words({3, 3, 0, 1, 2, 2, 1, 0}), {"--as", "graph"});
  expect_note(outcome, "edge 1 (2, 2) joins a vertex to itself");
  expect_note(outcome, "edge 2 (1, 0) joins two vertices again");
}

TEST_F(CheckGraph, SaysIfTheIndexTypeIsTooNarrow) {
  std::vector<unsigned char> numbers{255, 128};
  for (int e = 0; e < 128; ++e) {
    numbers.push_back(0);
    numbers.push_back(static_cast<unsigned char>(e + 1));
  }
  expect_problem(check(bytes_of(numbers), {"--as", "graph", "--index", "UINT8"}),
                 "the index type is too narrow for twice the number of edges");
}

class CheckModel : public Check {
 protected:
  /// The file of a fitted chain of two vertices with two and three states.
  static std::string model(const std::string& index, const std::string& value,
                           const std::vector<std::string>& more = {}) {
    const qz_test::TempFile table(".csv", "a,b\n\nx,1\ny,2\nx,3\ny,1\n");
    const qz_test::TempFile file(".model");
    std::vector<std::string> lines{"idx_t " + index + ";",
                                   "val_t " + value + ";",
                                   "DFN '" + table.path() + "'",
                                   "LDX DPT;",
                                   "GRA CHAIN;",
                                   "LDX GPT;"};
    lines.insert(lines.end(), more.begin(), more.end());
    for (const std::string& line :
         {std::string("MODEL;"), "MFN '" + file.path() + "'", std::string("STORE MPT;")}) {
      lines.push_back(line);
    }
    const qz_test::Program program(lines);
    return file.read();
  }
  /// The place of a field in the file of `model` with 64-bit indices.
  static constexpr std::size_t first_edge = 16;
  static constexpr std::size_t kind_of_graph = 32;
  static constexpr std::size_t layer_sizes = 40;
  static constexpr std::size_t first_vertex = 88;

  static std::string with_word(std::string bytes, std::size_t place, unsigned long value) {
    return bytes.replace(place, sizeof value, words({value}));
  }
  const std::vector<std::string> wide{"--as", "model", "--index", "UINT64", "--value", "FLT64"};
};

TEST_F(CheckModel, IsInOrderForAllTypesThatWroteIt) {
  for (const std::string index : {"UINT8", "UINT16", "UINT32", "UINT64"}) {
    for (const std::string& value : {index, std::string("FLT32"), std::string("FLT64")}) {
      expect_in_order(check(model(index, value)), "a model of 2 vertices and 1 edge");
    }
  }
}

TEST_F(CheckModel, UnrollsTimeSlices) {
  const qz_test::TempFile table(".csv", "a,b,c,d\n\nx,1,x,2\ny,2,y,1\nx,1,y,1\n");
  const qz_test::TempFile file(".model");
  const qz_test::Program program({"DFN '" + table.path() + "'", "LDX DPT;", "TXX 2", "GRA CHAIN;",
                                  "LDX GPT;", "STGRAPH;", "MODEL;", "MFN '" + file.path() + "'",
                                  "STORE MPT;"});
  expect_in_order(check(file.read()), "a model of 2 vertices and 1 edge in each of 2 time slices");
}

TEST_F(CheckModel, SaysThatOtherTypesWroteIt) {
  EXPECT_EQ(check(model("UINT32", "FLT32"), wide).status, 1);
}

TEST_F(CheckModel, FollowsTheFilePartByPart) {
  const std::string bytes = model("UINT64", "FLT64");
  expect_problem(check(with_word(bytes, first_edge, 2), wide),
                 "edge 0 (2, 1) names a vertex that is not there");
  expect_problem(check(with_word(bytes, kind_of_graph, 99), wide),
                 "there is no kind of graph with number 99");
  EXPECT_THAT(check(with_word(bytes, layer_sizes, 1ul << 40), wide).out,
              HasSubstr("the layer sizes are said to be 1099511627776 bytes long"));
  EXPECT_THAT(check(with_word(bytes, first_vertex, 3), wide).status, 1);
}

TEST_F(CheckModel, MissesAFinalPart) {
  const std::string bytes = model("UINT64", "FLT64");
  constexpr std::size_t parameters = 6;
  constexpr std::size_t counts = 5 + parameters;
  const auto without = [&](std::size_t numbers) {
    return check(bytes.substr(0, bytes.size() - 8 * numbers), wide);
  };
  expect_note(without(parameters), "there are no weights: all are read as 0");
  expect_problem(without(1), "the weights are cut off: the file holds 5 of 6");
  expect_problem(without(parameters + 1), "the statistics are cut off: the file holds 10 of 11");
  expect_problem(without(parameters + counts + 1), "the file ends before the number of parameters");
  expect_note(check(bytes + "tail", wide), "4 bytes at the end are not read");
}

TEST_F(CheckModel, ComparesTheParametersWithTheEdges) {
  const std::string bytes = model("UINT64", "FLT64");
  const std::size_t place = bytes.size() - 8 * (6 + 11 + 1);
  expect_problem(check(with_word(bytes, place, 7), wide),
                 "the file says that there are 7 parameters, the edges and state counts say 6");
}

TEST_F(CheckModel, WantsFiniteNumbers) {
  std::string bytes = model("UINT64", "FLT64");
  bytes.replace(bytes.size() - 8, 8, bytes_of<double>({std::numeric_limits<double>::quiet_NaN()}));
  expect_problem(check(bytes, wide), "number 5 of the weights is not finite");
}

TEST_F(Check, RefusesFilesAndOptionsThatDoNotExist) {
  const auto status = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {QZ_TOOL, "check"});
    return qz_test::run_process(arguments, directory.path());
  };
  directory.write("file", "a\n\nx\n");
  EXPECT_EQ(status({"none"}).err, "qz: cannot read none\n");
  EXPECT_EQ(status({"none"}).status, 1);
  EXPECT_EQ(status({"."}).status, 1);
  EXPECT_EQ(status({"file", "--as", "song"}).status, 2);
  EXPECT_EQ(status({"file", "--missing", "ab"}).status, 2);
  EXPECT_EQ(status({"file", "--as", "model", "--index", "UINT8", "--value", "UINT16"}).status, 2);
}

}  // namespace
