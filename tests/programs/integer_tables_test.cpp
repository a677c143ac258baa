/// What models of integers reach on published tables.
///
/// Probabilities are compared on a scale of 255, and a step is made where they differ by 10 or
/// more. A model can only have probabilities that are quotients of powers of two and their sums,
/// and in one byte only 1 / Z for whole numbers Z, so not every table can be met that closely. For
/// each case the test names the smallest largest difference that any weights could have on the
/// worst edge alone, found by trying all small exponents of its block.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/program.h"
#include "support/temp_file.h"

namespace {

using qz_test::Program;
using qz_test::TempFile;

using Lines = std::vector<std::string>;

/// At most `most` rows of a table, evenly spread, with an empty line behind the header; empty if
/// there is no such file.
std::string rows_of(const std::string& path, std::size_t most) {
  std::ifstream in(path);
  std::string header;
  if (!std::getline(in, header)) return "";
  Lines rows;
  for (std::string row; std::getline(in, row);) {
    if (!row.empty()) rows.push_back(row);
  }
  const std::size_t count = std::min(most, rows.size());
  std::string text = header + "\n\n";
  for (std::size_t i = 0; i < count; ++i) text += rows[i * rows.size() / count] + "\n";
  return text;
}

struct Training {
  std::string name;
  std::string table;
  std::string graph;
  std::string width;
  /// What comes before the last ESTIMATE.
  Lines lines;
  unsigned reached;
  /// No weights can do better.
  unsigned bound;
};

std::ostream& operator<<(std::ostream& out, const Training& training) {
  return out << training.name;
}

constexpr const char* titanic = "/examples/titanic.csv";
constexpr const char* asia = "/../shared/data/tables/asia.csv";

class IntegerTables : public testing::TestWithParam<Training> {};

TEST_P(IntegerTables, AreMetAsCloselyAsIsKnown) {
  const Training& training = GetParam();
  // One-byte counts hold no more rows than that.
  const std::size_t most = training.width == "UINT8" ? 255 : 100000;
  const std::string text = rows_of(QZ_SOURCE_DIR + training.table, most);
  if (text.empty()) {
    EXPECT_EQ(training.table, asia) << "the project's own tables are always there";
    return;
  }
  const TempFile table(".csv", text);
  Program program({"idx_t " + training.width + ";", "val_t " + training.width + ";", "OMP 1",
                   "SEED 1", "DFN '" + table.path() + "'", "GRA " + training.graph + ";",
                   "LDX DPT;", "LDX GPT;", "MODEL;", "DEL DFN;", "MIL 20", "KXX 8", "ALG IGD;",
                   "MIO 1", "ESTIMATE;"});
  const auto first = program.word("RES");
  program.run({"INITZERO;"});
  program.run(training.lines);
  program.run({"ESTIMATE;"});
  EXPECT_LT(program.word("RES"), first);
  EXPECT_EQ(program.word("RES"), training.reached);
  EXPECT_GE(training.reached, training.bound);
}

/// Several runs in a row, each from where the last one ended: a byte counts to 255 steps only.
Lines repeated(const Lines& setting, int times) {
  Lines lines = setting;
  for (int i = 1; i < times; ++i) lines.push_back("ESTIMATE;");
  return lines;
}

INSTANTIATE_TEST_SUITE_P(
    Words, IntegerTables,
    testing::Values(
        Training{"TitanicChainDescent", titanic, "CHAIN", "UINT32", {"MIO 300"}, 28, 7},
        Training{"TitanicChainEvolution",
                 titanic,
                 "CHAIN",
                 "UINT32",
                 {"KXX 4", "SEED 6", "ALG EA11;", "MIO 8000"},
                 8,
                 7},
        Training{"TitanicTreeDescent", titanic, "CHOWLIU", "UINT32", {"KXX 12", "MIO 300"}, 19, 14},
        Training{"TitanicTreeEvolution",
                 titanic,
                 "CHOWLIU",
                 "UINT32",
                 {"MIO 300", "ESTIMATE;", "SEED 3", "ALG EA11;", "MIO 5000"},
                 14,
                 14},
        Training{"AsiaChainDescent", asia, "CHAIN", "UINT32", {"MIO 300"}, 25, 14},
        Training{"AsiaChainEvolution",
                 asia,
                 "CHAIN",
                 "UINT32",
                 {"KXX 4", "SEED 1", "ALG EA11;", "MIO 4000"},
                 16,
                 14},
        Training{"AsiaTreeDescent", asia, "CHOWLIU", "UINT32", {"MIO 300"}, 9, 7},
        Training{"AsiaTreeEvolution",
                 asia,
                 "CHOWLIU",
                 "UINT32",
                 {"MIO 300", "ESTIMATE;", "SEED 1", "ALG EA11;", "MIO 5000"},
                 9,
                 7}),
    [](const auto& info) { return info.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Bytes, IntegerTables,
    testing::Values(Training{"TitanicChainDescent", titanic, "CHAIN", "UINT8", {"MIO 255"}, 62, 62},
                    Training{"TitanicChainEvolution",
                             titanic,
                             "CHAIN",
                             "UINT8",
                             {"KXX 16", "SEED 2", "ALG EA11;", "MIO 255"},
                             62,
                             62},
                    Training{
                        "TitanicTreeDescent", titanic, "CHOWLIU", "UINT8", {"MIO 255"}, 32, 32},
                    Training{"TitanicTreeEvolution", titanic, "CHOWLIU", "UINT8",
                             repeated({"KXX 8", "SEED 1", "ALG EA11;", "MIO 255"}, 8), 32, 32},
                    Training{"AsiaChainDescent", asia, "CHAIN", "UINT8", {"MIO 255"}, 124, 35},
                    Training{"AsiaChainEvolution", asia, "CHAIN", "UINT8",
                             repeated({"KXX 16", "SEED 1", "ALG EA11;", "MIO 255"}, 3), 35, 35},
                    Training{"AsiaTreeDescent", asia, "CHOWLIU", "UINT8", {"MIO 255"}, 35, 35},
                    Training{"AsiaTreeEvolution", asia, "CHOWLIU", "UINT8",
                             repeated({"KXX 16", "SEED 1", "ALG EA11;", "MIO 255"}, 8), 69, 35}),
    [](const auto& info) { return info.param.name; });

}  // namespace
