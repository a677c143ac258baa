/// INITLATENT through the exported functions.

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "support/leak_pause.h"
#include "support/program.h"
#include "support/tables.h"
#include "support/temp_file.h"

namespace {

using qz_test::out_of_range;
using qz_test::Program;
using qz_test::TempFile;
using Columns = std::vector<std::vector<unsigned long>>;

class InitLatent : public testing::Test {
 protected:
  Program program;

  QZ::CategoricalData& table() {
    return *reinterpret_cast<QZ::CategoricalData*>(program.word("DPT"));
  }

  /// Reads a table and makes a layered network over it. The machine owns the list of layers.
  void load_network(const std::string& csv, std::vector<unsigned long> layers) {
    const TempFile file(".csv", csv);
    program.write(
        "LPT", reinterpret_cast<std::uint64_t>(new std::vector<unsigned long>(std::move(layers))));
    program.run({"DFN '" + file.path() + "'", "GRA RBM;", "LDX DPT;", "LDX GPT;", "DEL DFN;"});
  }

  Columns cells() {
    Columns columns;
    for (unsigned long c = 0; c < table().n + table().H; ++c) {
      columns.emplace_back();
      for (unsigned long r = 0; r < table().N; ++r) columns[c].push_back(table().get(c, r));
    }
    return columns;
  }
};

const std::string five_rows = qz_test::csv("a,b,c", {"x,x,x", "x,y,x", "y,x,y", "y,y,y", "x,x,y"});

TEST_F(InitLatent, AddsAColumnForEveryInnerUnit) {
  load_network(five_rows, {3, 2, 0});
  program.run({"SEED 1", "LSN 2", "INITLATENT;"});
  EXPECT_EQ(table().n, 3u);
  EXPECT_EQ(table().H, 2u);
  EXPECT_EQ(table().categories(3), 2u);
  EXPECT_EQ(table().categories(4), 2u);
}

TEST_F(InitLatent, OnePrototypeLabelsEveryRowZero) {
  load_network(five_rows, {3, 2, 0});
  program.run({"LSN 1", "INITLATENT;"});
  EXPECT_EQ(cells()[3], std::vector<unsigned long>(5, 0));
  EXPECT_EQ(cells()[4], std::vector<unsigned long>(5, 0));
}

TEST_F(InitLatent, WithAPrototypePerRowDistinctRowsGetDistinctLabels) {
  load_network(five_rows, {3, 1, 0});
  program.run({"SEED 7", "LSN 9", "INITLATENT;"});
  EXPECT_EQ(table().categories(3), 9u);
  std::map<unsigned long, int> seen;
  const Columns columns = cells();
  for (const unsigned long label : columns[3]) ++seen[label];
  EXPECT_EQ(seen.size(), 5u);
  EXPECT_LT(seen.rbegin()->first, 5u);
}

/// What the text of the rule gives, drawn and counted by hand.
Columns expected_labels(Columns columns, const std::vector<unsigned long>& layers, unsigned long k,
                        unsigned seed) {
  const unsigned long rows = columns[0].size();
  unsigned long hidden = 0;
  for (std::size_t i = 1; i + 1 < layers.size(); ++i) hidden += layers[i];
  std::mt19937 rng(seed);
  std::vector<unsigned long> pool, centers;
  while (centers.size() < hidden * k) {
    if (pool.empty()) {
      for (unsigned long r = 0; r < rows; ++r) pool.push_back(r);
    }
    unsigned long place = 0;
    if (pool.size() > 1) {
      place = std::uniform_int_distribution<unsigned long>(0, pool.size() - 1)(rng);
    }
    centers.push_back(pool[place]);
    pool.erase(pool.begin() + static_cast<long>(place));
  }
  columns.resize(columns.size() + hidden, std::vector<unsigned long>(rows, 65535));
  unsigned long start = 0;
  for (std::size_t i = 1; i + 1 < layers.size(); ++i) {
    for (unsigned long r = 0; r < rows; ++r) {
      for (unsigned long c = 0; c < layers[i]; ++c) {
        unsigned long best = layers[i - 1];
        unsigned long label = 0;
        for (unsigned long h = 0; h < k; ++h) {
          unsigned long differing = 0;
          for (unsigned long column = start; column < start + layers[i - 1]; ++column) {
            differing += columns[column][centers[c * k + h]] != columns[column][r];
          }
          if (differing < best) {
            best = differing;
            label = h;
          }
        }
        columns[start + layers[i - 1] + c][r] = label;
      }
    }
    start += layers[i];
  }
  return columns;
}

TEST_F(InitLatent, LabelsRowsByTheNearestPrototype) {
  load_network(five_rows, {3, 2, 2, 0});
  const Columns before = cells();
  program.run({"SEED 11", "LSN 3", "INITLATENT;"});
  EXPECT_EQ(cells(), expected_labels(before, {3, 2, 2, 0}, 3, 11));
}

TEST_F(InitLatent, ALayerIsLookedForBehindTheWidthsOfTheLayersThemselves) {
  // The second inner layer starts one column behind the first, not three.
  load_network(five_rows, {3, 1, 2, 0});
  const Columns before = cells();
  program.run({"SEED 3", "LSN 2", "INITLATENT;"});
  EXPECT_EQ(cells(), expected_labels(before, {3, 1, 2, 0}, 2, 3));
}

TEST_F(InitLatent, OuterLayersMustCoverTheColumns) {
  {
    const qz_test::LeakPause pause;  // a machine that has failed does not release the layers
    load_network(five_rows, {2, 2, 2});
  }
  EXPECT_EQ(program.attempt({"INITLATENT;"}),
            out_of_range("RBM requires that first and last layer cover all columns"));
}

TEST_F(InitLatent, OtherGraphsGetNoColumns) {
  const TempFile file(".csv", five_rows);
  program.run({"DFN '" + file.path() + "'", "GRA CHAIN;", "LDX DPT;", "LDX GPT;", "INITLATENT;",
               "DEL DFN;"});
  EXPECT_EQ(table().H, 0u);
}

TEST_F(InitLatent, ATreeNumbersTheJointStatesBelowItsInnerVertices) {
  const TempFile file(".csv", qz_test::csv("a,b,c", {"x,x,p", "x,y,q", "x,x,q", "y,x,q", "x,y,p"}));
  program.run({"DFN '" + file.path() + "'", "GRA CHAIN;", "LDX DPT;", "LDX GPT;", "BOLTZMANNTREE;",
               "INITLATENT;", "DEL DFN;"});
  // Two cliques {b, c} and {a, b}, in the order of elimination, and the separator {b}.
  ASSERT_EQ(table().H, 3u);
  const Columns columns = cells();
  const auto dense = [&](std::vector<int> members) {
    std::map<std::vector<unsigned long>, unsigned long> states;
    std::vector<unsigned long> column;
    for (unsigned long r = 0; r < 5; ++r) {
      std::vector<unsigned long> joint;
      for (const int m : members) joint.push_back(columns[m][r]);
      column.push_back(states.try_emplace(joint, states.size()).first->second);
    }
    return column;
  };
  const std::vector<std::vector<unsigned long>> cliques{dense({0, 1}), dense({1, 2})};
  EXPECT_TRUE((columns[3] == cliques[0] && columns[4] == cliques[1]) ||
              (columns[3] == cliques[1] && columns[4] == cliques[0]));
  EXPECT_EQ(columns[5], dense({1}));
  EXPECT_EQ(columns[3][0], 0u);
  EXPECT_EQ(table().categories(5), 2u);
  EXPECT_EQ(table().categories(3), columns[3] == cliques[0] ? 3u : 4u);
}

}  // namespace
