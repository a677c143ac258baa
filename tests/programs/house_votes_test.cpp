/// Hidden cells of a table of votes, predicted by a tree and compared with the most frequent state.
/// A made-up parliament votes where the real table does not lie beside the source tree.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/program.h"
#include "support/temp_file.h"

namespace {

using namespace qz_test;

using Row = std::vector<std::string>;

struct Votes {
  Row header;
  std::vector<Row> rows;
};

Row cells_of(const std::string& line) {
  Row cells;
  std::istringstream in(line);
  for (std::string cell; std::getline(in, cell, ',');) cells.push_back(cell);
  return cells;
}

Votes read_votes(const std::filesystem::path& name) {
  std::ifstream in(name);
  Votes votes;
  std::string line;
  std::getline(in, line);
  votes.header = cells_of(line);
  while (std::getline(in, line)) votes.rows.push_back(cells_of(line));
  return votes;
}

/// Two parties of 3 to 2, whose members follow their line in five of six votes and are away in one
/// of twenty.
Votes made_up_votes() {
  std::mt19937 rng(11);
  Votes votes{{"party"}, {}};
  for (int bill = 1; bill <= 12; ++bill) votes.header.push_back("bill" + std::to_string(bill));
  for (int member = 0; member < 400; ++member) {
    const bool first = rng() % 5 < 3;
    Row row{first ? "first" : "second"};
    for (int bill = 1; bill <= 12; ++bill) {
      const bool line = first == (bill % 2 == 0);
      const bool follows = rng() % 6 != 0;
      row.push_back(rng() % 20 == 0 ? "?" : follows == line ? "y" : "n");
    }
    votes.rows.push_back(row);
  }
  return votes;
}

Votes votes() {
  const auto table = std::filesystem::path(QZ_SOURCE_DIR) / "../shared/data/tables/house_votes.csv";
  return std::filesystem::exists(table) ? read_votes(table) : made_up_votes();
}

std::string text_of(const Votes& votes) {
  std::string text;
  const auto add = [&](const Row& row) {
    for (std::size_t c = 0; c < row.size(); ++c) text += (c == 0 ? "" : ",") + row[c];
    text += "\n";
  };
  add(votes.header);
  text += "\n";
  for (const Row& row : votes.rows) add(row);
  return text;
}

/// The state of the largest probability in a text like "y [n:0.25;y:0.75]".
std::string most_probable(const std::string& cell) {
  std::istringstream states(cell.substr(cell.find('[') + 1));
  std::string best;
  double highest = -1;
  for (std::string state; std::getline(states, state, ';');) {
    const std::size_t colon = state.find(':');
    const double probability = std::stod(state.substr(colon + 1));
    if (probability > highest) best = state.substr(0, colon);
    highest = std::max(highest, probability);
  }
  return best;
}

/// Every third row is held out, and of it each known cell of one column in turn.
struct Split {
  explicit Split(const Votes& all, std::size_t also)
      : train{all.header, {}}, query{all.header, {}} {
    for (std::size_t r = 0; r < all.rows.size(); ++r) {
      (r % 3 == 0 ? query : train).rows.push_back(all.rows[r]);
    }
    truth = query.rows;
    for (std::size_t r = 0; r < query.rows.size(); ++r) query.rows[r][hidden_column(r, also)] = "?";
  }
  /// Column 0, or one of the others where `also` asks for them.
  std::size_t hidden_column(std::size_t r, std::size_t also) const {
    return also == 0 ? 0 : 1 + r % (train.header.size() - 1);
  }

  Votes train;
  Votes query;
  std::vector<Row> truth;
};

/// The query as predicted by a tree fitted to the training rows, with a text in each hidden cell.
std::vector<Row> predict(const Split& split, const std::vector<std::string>& graph) {
  const TempFile train(".csv", text_of(split.train));
  const TempFile query(".csv", text_of(split.query));
  const TempFile result(".csv");
  std::vector<std::string> lines{"SEED 3;", "DFN '" + train.path() + "';", "LDX DPT;"};
  lines.insert(lines.end(), graph.begin(), graph.end());
  for (const std::string& line :
       {std::string("LDX GPT;"), std::string("MODEL;"), std::string("ALG FL1;"),
        std::string("STP 1;"), std::string("MIO 200;"), std::string("ESTIMATE;"),
        std::string("DEL DPT;"), std::string("DEL DFN;"), "DFN '" + query.path() + "';",
        std::string("LDX DPT;"), std::string("PPX true;"), std::string("PREDICT;"),
        std::string("DEL DFN;"), "DFN '" + result.path() + "';", std::string("OVW true;"),
        std::string("STORE DPT;")}) {
    lines.push_back(line);
  }
  const Program program(lines);
  return read_votes(result.path()).rows;
}

struct Score {
  int cells = 0;
  int predicted = 0;
  int guessed = 0;
};

Score compare(const Split& split, std::size_t also, const std::vector<Row>& predicted) {
  std::vector<std::map<std::string, int>> counts(split.train.header.size());
  for (const Row& row : split.train.rows) {
    for (std::size_t c = 0; c < row.size(); ++c) {
      if (row[c] != "?") ++counts[c][row[c]];
    }
  }
  Score score;
  for (std::size_t r = 0; r < split.truth.size(); ++r) {
    const std::size_t c = split.hidden_column(r, also);
    const std::string& truth = split.truth[r][c];
    if (truth == "?") continue;
    std::string majority = counts[c].begin()->first;
    for (const auto& [state, count] : counts[c]) {
      if (count > counts[c][majority]) majority = state;
    }
    ++score.cells;
    score.guessed += majority == truth;
    score.predicted += most_probable(predicted.at(r).at(c)) == truth;
  }
  return score;
}

TEST(HouseVotes, AStarAroundThePartyKnowsItFromTheVotes) {
  const Split split(votes(), 0);
  const Score score = compare(split, 0, predict(split, {"GRA STAR;", "CEN 0;"}));
  EXPECT_EQ(score.cells, static_cast<int>(split.truth.size()));
  EXPECT_GT(score.predicted, 0.8 * score.cells);
  EXPECT_GT(score.predicted, score.guessed + 0.15 * score.cells);
}

TEST(HouseVotes, AStarAroundThePartyKnowsHiddenVotes) {
  const Split split(votes(), 1);
  const Score score = compare(split, 1, predict(split, {"GRA STAR;", "CEN 0;"}));
  EXPECT_GT(score.cells, 80);
  EXPECT_GT(score.predicted, score.guessed + 0.1 * score.cells);
}

TEST(HouseVotes, AChainBeatsTheGuessToo) {
  const Split split(votes(), 1);
  const Score score = compare(split, 1, predict(split, {"GRA CHAIN;"}));
  EXPECT_GT(score.predicted, score.guessed);
}

TEST(HouseVotes, KnownCellsStayAndGapsHoldTheFirstState) {
  const Split split(votes(), 0);
  const std::vector<Row> predicted = predict(split, {"GRA STAR;", "CEN 0;"});
  ASSERT_EQ(predicted.size(), split.query.rows.size());
  // The states of a column stand in the order of the training rows; the machine fills gaps of the
  // training rows before it fits, so the first state is the first known one.
  Row first(split.train.header.size());
  for (std::size_t c = 0; c < first.size(); ++c) {
    for (const Row& row : split.train.rows) {
      if (first[c].empty() && row[c] != "?") first[c] = row[c];
    }
  }
  for (std::size_t r = 0; r < predicted.size(); ++r) {
    for (std::size_t c = 0; c < first.size(); ++c) {
      const std::string& asked = split.query.rows[r][c];
      if (asked != "?") {
        ASSERT_EQ(predicted[r][c], asked);
      } else {
        ASSERT_EQ(predicted[r][c].substr(0, predicted[r][c].find(" [")), first[c]);
      }
    }
  }
}

}  // namespace
