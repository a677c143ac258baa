/// The example of a time series: its tables, and the decays that it compares.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "support/process.h"

namespace {

using qz_test::Outcome;
using qz_test::TempDirectory;

using Row = std::vector<std::string>;

/// The rows behind the header of a table.
std::vector<Row> rows_of(const std::string& text) {
  std::istringstream lines(text);
  std::string line;
  std::getline(lines, line);
  std::vector<Row> rows;
  while (std::getline(lines, line)) {
    if (line.empty()) continue;
    rows.emplace_back();
    std::istringstream cells(line);
    for (std::string cell; std::getline(cells, cell, ',');) rows.back().push_back(cell);
  }
  return rows;
}

double share(const std::vector<Row>& rows, auto&& claim) {
  double count = 0;
  for (const Row& row : rows) count += claim(row);
  return count / static_cast<double>(rows.size());
}

class TimeSeries : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directory_symlink(std::string(QZ_SOURCE_DIR) + "/examples",
                                              directory.file("examples"));
  }
  void make_tables(const std::string& seed) const {
    const Outcome made =
        qz_test::run_process({"/bin/sh", "examples/make_switches.sh", seed}, directory.path());
    ASSERT_EQ(made.status, 0) << made.err;
  }
  std::vector<Row> rows(const char* table) const { return rows_of(directory.read(table)); }

  TempDirectory directory;
};

TEST_F(TimeSeries, TablesHoldThreeSwitchesAtSixSteps) {
  make_tables("1");
  EXPECT_EQ(directory.read("switches.csv").substr(0, 55),
            "a0,b0,c0,a1,b1,c1,a2,b2,c2,a3,b3,c3,a4,b4,c4,a5,b5,c5\n\n");
  EXPECT_EQ(rows("switches.csv").size(), 150u);
  EXPECT_EQ(rows("switches_new.csv").size(), 2000u);
  for (const Row& row : rows("switches_new.csv")) {
    ASSERT_EQ(row.size(), 18u);
    for (const std::string& cell : row) ASSERT_TRUE(cell == "on" || cell == "off") << cell;
  }
}

TEST_F(TimeSeries, TablesFollowTheirSeed) {
  make_tables("1");
  const std::string first = directory.read("switches_new.csv");
  make_tables("2");
  EXPECT_NE(directory.read("switches_new.csv"), first);
  make_tables("1");
  EXPECT_EQ(directory.read("switches_new.csv"), first);
}

TEST_F(TimeSeries, SwitchesKeepTheirStateAndFollowTheirNeighbour) {
  make_tables("1");
  const std::vector<Row> table = rows("switches_new.csv");
  for (int step = 0; step < 5; ++step) {
    const int a = 3 * step;
    // A flip in 8 of 100 steps and a wrong reading in 5 of 100 at both ends: 0.834 stay.
    EXPECT_NEAR(share(table, [&](const Row& row) { return row[a] == row[a + 3]; }), 0.834, 0.04);
    EXPECT_GT(share(table, [&](const Row& row) { return row[a] == row[a + 4]; }), 0.6);
  }
}

TEST_F(TimeSeries, ThreeDecaysAreComparedOnNewRows) {
  make_tables("1");
  const Outcome outcome = qz_test::run_process(
      {QZ_TOOL, "run", "examples/switches.qz", "--print", "GVX,GEX,GP1,GP2,GP3,HP1,HP2,HP3"},
      directory.path());
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  std::map<std::string, double> printed;
  std::istringstream lines(outcome.out);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string name;
    words >> name >> printed[name];
  }
  EXPECT_EQ(printed["GVX"], 18);
  // Three vertices and two edges over five steps, and the edges of the last slice.
  EXPECT_EQ(printed["GEX"], 5 * 3 + 3 * 5 * 2 + 2);

  // Eighteen independent columns.
  const std::vector<Row> first = rows("switches.csv");
  const std::vector<Row> fresh = rows("switches_new.csv");
  double independent = 0;
  for (std::size_t c = 0; c < 18; ++c) {
    const auto is_on = [c](const Row& row) { return row[c] == "on"; };
    const double p = share(first, is_on);
    const double q = share(fresh, is_on);
    independent += q * std::log(p) + (1 - q) * std::log(1 - p);
  }
  for (const std::string decay : {"1", "2", "3"}) {
    EXPECT_LT(printed["GP" + decay], 8.2);
    EXPECT_GT(printed["HP" + decay], independent + 3.8);
    EXPECT_LT(printed["HP" + decay], -printed["GP" + decay]);
  }
  // A pattern that stays is found soonest by the decay that forgets least.
  EXPECT_GT(printed["HP1"], printed["HP3"]);
  EXPECT_GT(printed["HP3"], printed["HP2"]);
}

}  // namespace
