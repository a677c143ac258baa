/// MODEL with a graph that is learned from the table, through the exported functions.

#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <fstream>

#include "support/graph_contents.h"
#include "support/model_program.h"
#include "support/small_model.h"

namespace {

using namespace qz_test;

using Lines = std::vector<std::string>;

/// A table of six columns, each close to its left neighbour.
std::string random_csv(unsigned seed) {
  std::mt19937 rng(seed);
  std::string text = "a,b,c,d,e,f\n\n";
  for (int row = 0; row < 60; ++row) {
    unsigned left = rng() % 2;
    for (int column = 0; column < 6; ++column) {
      if (rng() % 4 == 0) left = rng() % 2;
      text += (column == 0 ? "" : ",") + std::string(1, static_cast<char>('0' + left));
    }
    text += "\n";
  }
  return text;
}

class Structure : public testing::Test {
 protected:
  Structure() { omp_set_num_threads(1); }

  TempFile table{".csv", random_csv(5)};

  template <class Check>
  static void with_model(const Program& program, Check&& check) {
    QZ::dispatch_pair(
        static_cast<unsigned char>(program.word("IDX")),
        static_cast<unsigned char>(program.word("VAL")),
        [&]<class I, class V>(QZ::type_pair<I, V>) { check(container_of<I, V>(program)); });
  }
};

TEST_F(Structure, OfAnyKindServesAllTypePairs) {
  struct Kind {
    std::string name;
    unsigned long type;
  };
  for (const auto& [index, value] : all_type_names()) {
    for (const Kind& kind :
         {Kind{"CHOWLIU", 6}, Kind{"ELEMGM", 7}, Kind{"CLIQUES", 12}, Kind{"RNDCLIQUES", 13}}) {
      Program program(types(index, value));
      // Pairs cannot come near the bound that random cliques assert; triples of such columns can.
      const std::string order = kind.name == "RNDCLIQUES" ? "KXX 2;" : "KXX 3;";
      program.run(Lines{"SEED 4;", order, "PEL 1.0;"} + fit_lines(table.path(), kind.name) +
                  Lines{"INITZERO;"});
      with_model(program, [&](const auto& model) {
        EXPECT_EQ(model.graphType, kind.type) << index << ' ' << value << ' ' << kind.name;
        EXPECT_EQ(program.word("GPT"), reinterpret_cast<std::uint64_t>(model.graph));
        EXPECT_EQ(program.word("DIM"), 4u * model.graph->edges());
        EXPECT_NO_THROW(model.require_matching_arrays());
      });
    }
  }
}

TEST_F(Structure, OfATreeHasNoScore) {
  const Program program(fit_lines(table.path(), "CHOWLIU"));
  EXPECT_EQ(program.real("RES"), -1.0);
  EXPECT_EQ(program.word("GEX"), 5u);
  EXPECT_EQ(program.word("GRA"), 6u);
}

TEST_F(Structure, OfStrongAssociationsKeepsAShareOfTheEdges) {
  const Program program(Lines{"PEL 0.2;"} + fit_lines(table.path(), "ELEMGM"));
  EXPECT_EQ(program.real("RES"), -1.0);
  EXPECT_EQ(program.word("GEX"), 3u);
  const Program none(fit_lines(table.path(), "ELEMGM"));
  EXPECT_EQ(none.word("GEX"), 0u);
  EXPECT_EQ(none.word("DIM"), 0u);
}

TEST_F(Structure, OfCliquesWritesItsScore) {
  const Program program(Lines{"KXX 3;"} + fit_lines(table.path(), "CLIQUES"));
  EXPECT_GT(program.real("RES"), 0);
  EXPECT_LT(program.real("RES"), std::log(2.0));
  EXPECT_GE(program.word("GEX"), 5u);
}

TEST_F(Structure, OfPairCliquesIsATree) {
  const Program program(Lines{"KXX 2;"} + fit_lines(table.path(), "CLIQUES"));
  EXPECT_EQ(program.word("GEX"), 5u);
  EXPECT_EQ((container_of<unsigned long, double>(program).graphType), 6u);
  const Program tree(fit_lines(table.path(), "CHOWLIU"));
  EXPECT_EQ(edges_of(*container_of<unsigned long, double>(program).graph),
            edges_of(*container_of<unsigned long, double>(tree).graph));
}

TEST_F(Structure, OfRandomCliquesFollowsTheSeed) {
  const auto learn = [&](int seed) {
    const Program program(Lines{"SEED " + std::to_string(seed) + ";", "KXX 2;"} +
                          fit_lines(table.path(), "RNDCLIQUES"));
    return std::pair(program.real("RES"),
                     edges_of(*container_of<unsigned long, double>(program).graph));
  };
  EXPECT_EQ(learn(1), learn(1));
  EXPECT_NE(learn(1), learn(2));
}

TEST_F(Structure, WithoutAnyCliqueHasNoScore) {
  const TempFile narrow(".csv", csv("a,b", {"x,u", "y,v", "x,v"}));
  const Program program(fit_lines(narrow.path(), "CLIQUES"));
  EXPECT_TRUE(std::isnan(program.real("RES")));
  EXPECT_EQ(program.word("GEX"), 0u);
}

TEST_F(Structure, RefusesOrdersAndSharesThatMeanNothing) {
  EXPECT_EQ(failure_of(Lines{"KXX 1;"} + fit_lines(table.path(), "CLIQUES")),
            logic_error("a clique needs at least two vertices", 5));
  EXPECT_EQ(failure_of(Lines{"KXX 1;"} + fit_lines(table.path(), "RNDCLIQUES")),
            logic_error("a clique needs at least two vertices", 5));
  EXPECT_EQ(failure_of(Lines{"KXX 7;"} + fit_lines(table.path(), "RNDCLIQUES")),
            logic_error("a clique cannot have so many vertices", 5));
  EXPECT_EQ(failure_of(Lines{"PEL 1.5;"} + fit_lines(table.path(), "ELEMGM")),
            logic_error("the share of edges must lie between 0 and 1", 5));
}

std::vector<std::string> tags;

void note_tag(std::size_t, std::size_t, const char* tag) {
  if (tags.empty() || tags.back() != tag) tags.emplace_back(tag);
}

TEST_F(Structure, ReportsItsSteps) {
  const auto learn = [&](const Lines& lines, const std::string& kind) {
    Program program;
    program.run(lines +
                Lines{"DFN '" + table.path() + "';", "LDX DPT;", "GRA " + kind + ";", "LDX GPT;"});
    program.write("CBP", reinterpret_cast<std::uint64_t>(&note_tag));
    tags.clear();
    program.run({"MODEL;"});
    return tags;
  };
  EXPECT_EQ(learn({}, "CHOWLIU"), (Lines{"CL   "}));
  EXPECT_EQ(learn({"PEL 0.5;"}, "ELEMGM"), (Lines{"EGM  ", "EGM E"}));
  EXPECT_EQ(learn({"KXX 3;"}, "CLIQUES"),
            (Lines{"STATE", "IDX  ", "STATS", "ENT  ", "MI   ", "SORT ", "CLIQS"}));
  const auto random = learn({"SEED 1;", "KXX 2;"}, "RNDCLIQUES");
  EXPECT_EQ(random.at(0), "STRUCT");
  EXPECT_EQ(random.at(1).substr(0, 7), "STRUCT;");
  EXPECT_EQ(random.at(1).size(), 15);
}

TEST_F(Structure, IsStoredWithItsModel) {
  const TempFile file;
  const Program learned(
      fit_lines(table.path(), "CHOWLIU") +
      Lines{"CLOSEDFORM;", "DEL DPT;", "INFER;", "MFN '" + file.path() + "';", "STORE MPT;"});
  const Program loaded({"MFN '" + file.path() + "';", "LDX MPT;", "INFER;"});
  EXPECT_EQ(loaded.word("GRA"), 6u);
  const auto& model = container_of<unsigned long, double>(learned);
  EXPECT_EQ(copy_of(loaded.marginals(), model.statsLength),
            copy_of(learned.marginals(), model.statsLength));
}

// Learners start from the counts; missing cells are drawn once and stay.
TEST_F(Structure, ImputesBeforeItCounts) {
  const TempFile holes(".csv", csv("a,b,c", {"x,u,0", "?,v,1", "x,?,0", "y,v,?", "y,u,1"}));
  for (const std::string kind : {"CHOWLIU", "CLIQUES"}) {
    Program program(Lines{"SEED 3;", "KXX 2;"} + fit_lines(holes.path(), kind));
    const auto before = copy_of(container_of<unsigned long, double>(program).stats, 6);
    double total = 0;
    for (const double count : before) total += count;
    EXPECT_EQ(total, 15);
    // Counting again finds the same cells.
    const auto edges = program.word("GEX");
    program.run({"STATS;"});
    EXPECT_EQ(program.word("GEX"), edges);
  }
}

/// The known fit of the best tree of a table.
struct Fit {
  const char* table;
  double log_likelihood;
};

std::ostream& operator<<(std::ostream& out, const Fit& fit) { return out << fit.table; }

/// A copy of a published table with an empty line behind its header, or nothing.
std::string published(const std::string& name) {
  std::ifstream in(std::string(QZ_SOURCE_DIR) + "/../shared/data/tables/" + name);
  std::string header;
  if (!std::getline(in, header)) return "";
  return header + "\n\n" + std::string(std::istreambuf_iterator<char>(in), {});
}

struct Score {
  double log_likelihood;
  double log_partition;
  /// Each empty pair of states of the tree counts as a tenth of a row, and adds that to Z.
  double floor_mass;
};

Score tree_score(const std::string& path, const Lines& before_score = {}) {
  const Program program(fit_lines(path, "CHOWLIU") + Lines{"CLOSEDFORM;", "EPL 1e-13;"} +
                        before_score + Lines{"SCORE;"});
  const auto& model = container_of<unsigned long, double>(program);
  const double* pairs = model.stats + model.offsets[model.graph->vertices()];
  const auto empty = std::count(pairs, pairs + model.dim, 0.0);
  return {program.real("RES"), program.real("LNZ"),
          static_cast<double>(empty) / (10.0 * model.samples)};
}

// The weights are those of the best tree, so all that is missing is the logarithm of Z; and what Z
// has beyond 1 are the floors of the empty pairs.
void expect_fit(const std::string& path, double log_likelihood) {
  const Score score = tree_score(path);
  EXPECT_NEAR(score.log_likelihood + score.log_partition, log_likelihood, 1e-8);
  EXPECT_NEAR(score.log_partition, score.floor_mass, 1e-8);
}

class BestTree : public testing::TestWithParam<Fit> {};

TEST_P(BestTree, MeetsTheMaximumLikelihood) {
  const Fit& fit = GetParam();
  const std::string own = std::string(QZ_SOURCE_DIR) + "/examples/" + fit.table + ".csv";
  expect_fit(own, fit.log_likelihood);
}

// No child belongs to the crew of the Titanic, so one pair of its tree is empty.
INSTANTIATE_TEST_SUITE_P(Tables, BestTree,
                         testing::Values(Fit{"hair_eye_color", -3.0743893942},
                                         Fit{"titanic", -2.3969332436}));

TEST(PublishedTables, HaveTheBestTreesThatAreKnown) {
  for (const Fit& fit :
       {Fit{"asia.csv", -2.2571152777}, Fit{"hair_eye_color.csv", -3.0743893942},
        Fit{"titanic_2201.csv", -2.3969332436}, Fit{"nltcs.train.csv", -6.76005596}}) {
    const std::string text = published(fit.table);
    if (text.empty()) continue;
    SCOPED_TRACE(fit.table);
    const TempFile file(".csv", text);
    expect_fit(file.path(), fit.log_likelihood);
  }
  EXPECT_EQ(published("no such table"), "");
}

TEST(PublishedTables, ScoreHeldOutRowsAsIsKnown) {
  const std::string train = published("nltcs.train.csv");
  const std::string test = published("nltcs.test.csv");
  const TempFile train_file(".csv", train);
  const TempFile test_file(".csv", test);
  if (!train.empty() && !test.empty()) {
    const Lines load_test{"DEL DPT;", "DEL DFN;", "DFN '" + test_file.path() + "';", "LDX DPT;"};
    EXPECT_NEAR(tree_score(train_file.path(), load_test).log_likelihood, -6.75907465, 1e-6);
  }
  EXPECT_EQ(train.empty(), test.empty());
}

}  // namespace
