/// PREDICT through the exported functions.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "QZ/bp/bit_length_bp.h"
#include "QZ/data/categorical_data.h"
#include "QZ/inference/engine.h"
#include "support/model_program.h"
#include "support/small_model.h"

namespace {

using namespace qz_test;

using Lines = std::vector<std::string>;

QZ::CategoricalData& table_in(const Program& program) {
  return *reinterpret_cast<QZ::CategoricalData*>(program.word("DPT"));
}

std::vector<unsigned long> cells_in(const Program& program) {
  const QZ::CategoricalData& table = table_in(program);
  std::vector<unsigned long> cells;
  for (unsigned long row = 0; row < table.N; ++row) {
    for (unsigned long c = 0; c < table.n + table.H; ++c) cells.push_back(table.get(c, row));
  }
  return cells;
}

class Predict : public testing::Test {
 protected:
  void TearDown() override { __run = 1; }

  TempFile table{".csv", csv("a,b,c", {"x,u,0", "y,v,1", "x,v,2", "y,u,2", "x,u,1"})};
  Lines chain = Lines{"OMP 1;"} + fit_lines(table.path(), "CHAIN");

  /// A chain whose weights are logarithms of small numbers, so that marginals can be told by eye.
  static void set_weights(Program& program, const std::vector<double>& odds) {
    auto& model = container_of<unsigned long, double>(program);
    ASSERT_EQ(model.dim, odds.size());
    for (std::size_t i = 0; i < odds.size(); ++i) model.weights[i] = std::log(odds[i]);
  }
  static inline const std::vector<double> odds{1, 3, 4, 1, 1, 2, 5, 1, 2, 1};

  static Lines query(const TempFile& file) {
    return {"DEL DPT;", "DEL DFN;", "DFN '" + file.path() + "';", "LDX DPT;"};
  }
};

TEST_F(Predict, LeavesCompleteRowsAsTheyAreWithoutATextForThem) {
  Program program(chain);
  const auto before = cells_in(program);
  program.run({"PPX true;", "PREDICT;"});
  EXPECT_EQ(cells_in(program), before);
  EXPECT_TRUE(table_in(program).annotations.empty());
}

TEST_F(Predict, WritesStateZeroIntoMissingCellsOfFloatingTypes) {
  const TempFile gaps(".csv", csv("a,b,c", {"x,?,2", "?,v,?", "?,?,?"}));
  for (const auto& [index, value] : all_type_names()) {
    if (index == value) continue;
    Program program(types(index, value) + chain + Lines{"SEED 2;", "INITGAUSS;"} + query(gaps) +
                    Lines{"PREDICT;"});
    EXPECT_EQ(cells_in(program), (std::vector<unsigned long>{0, 0, 2, 0, 1, 0, 0, 0, 0}));
    EXPECT_TRUE(table_in(program).annotations.empty());
  }
}

/// The last of the best states of each vertex, by an engine of the test's own.
template <class I>
std::vector<unsigned long> decode(const QZ::IO<I, I>& model, const std::vector<int>& row) {
  QZ::BitLengthBP<I> engine(model.graph, model.states, model.weights, nullptr);
  engine.epsilon = 0;
  engine.max_iterations = static_cast<I>(1000);
  for (I v = 0; v < row.size(); ++v) engine.observe(v, static_cast<I>(row[v]));
  engine.infer(1);
  std::vector<unsigned long> states;
  for (I v = 0; v < row.size(); ++v) {
    std::vector<I> q;
    for (I x = 0; x < model.states[v]; ++x) {
      I Z = 0;
      q.push_back(0);
      engine.vertex_marginal(v, x, q.back(), Z);
    }
    const auto best = std::max_element(q.rbegin(), q.rend());
    states.push_back(row[v] >= 0 ? row[v] : q.rend() - best - 1);
  }
  return states;
}

TEST_F(Predict, WritesTheLastOfTheBestStatesIntoMissingCellsOfIntegers) {
  const TempFile gaps(".csv", csv("a,b,c", {"x,?,2", "y,v,?", "?,u,1", "?,?,?"}));
  for (const auto& [index, value] : all_type_names()) {
    if (index != value) continue;
    Program program(types(index, value) + chain + query(gaps));
    QZ::dispatch_index(static_cast<unsigned char>(program.word("IDX")),
                       [&]<class I>(std::type_identity<I>) {
                         auto& model = container_of<I, I>(program);
                         for (I i = 0; i < model.dim; ++i) model.weights[i] = i * 5 % 7;
                         std::vector<unsigned long> expected;
                         for (const std::vector<int>& row :
                              {std::vector<int>{0, -1, 2}, {1, 1, -1}, {-1, 0, 1}, {-1, -1, -1}}) {
                           const auto states = decode(model, row);
                           expected.insert(expected.end(), states.begin(), states.end());
                         }
                         program.run({"PREDICT;"});
                         EXPECT_EQ(cells_in(program), expected) << index;
                       });
  }
}

TEST_F(Predict, SpeaksThroughTheProbabilityTexts) {
  const TempFile gaps(".csv", csv("a,b,c", {"x,?,2", "y,v,?", "?,v,1"}));
  Program program(chain);
  set_weights(program, odds);
  program.run(query(gaps) + Lines{"PPX true;", "PREDICT;"});
  const auto& texts = table_in(program).annotations;
  ASSERT_EQ(texts.size(), 3u);
  // Row 0: b has odds 1 : 3 by a, and 5 : 1 by c. Row 1: c has 1 : 2 : 1. Row 2: a has 3 : 1.
  EXPECT_EQ(texts.at({0, 1}), "[u:0.625;v:0.375]");
  EXPECT_EQ(texts.at({1, 2}), "[0:0.25;1:0.5;2:0.25]");
  EXPECT_EQ(texts.at({2, 0}), "[x:0.75;y:0.25]");
}

TEST_F(Predict, GivesMaximumMarginalsOfCellsThatAreMissingTogether) {
  const TempFile gaps(".csv", csv("a,b,c", {"?,?,0"}));
  Program program(chain);
  set_weights(program, odds);
  program.run(query(gaps) + Lines{"EPL 0;", "PPX true;", "PREDICT;"});
  // Joint odds with c = 0: (x,u) 1, (x,v) 9 / 3, (y,u) 4, (y,v) 1; a's best are 3 * 1 and 4.
  const auto& model = container_of<unsigned long, double>(program);
  const auto odds_of = [&](int a, int b) {
    return std::exp(model.weights[a * 2 + b] + model.weights[4 + b * 3]);
  };
  const double x = std::max(odds_of(0, 0), odds_of(0, 1));
  const double y = std::max(odds_of(1, 0), odds_of(1, 1));
  std::ostringstream expected;
  expected << "[x:" << x / (x + y) << ";y:" << y / (x + y) << "]";
  EXPECT_EQ(table_in(program).annotations.at({0, 0}), expected.str());
}

TEST_F(Predict, NumbersStatesWithoutNames) {
  const TempFile gaps(".csv", csv("a,b,c", {"y,v,?", "?,v,1"}));
  Program program(chain);
  set_weights(program, odds);
  program.run(query(gaps));
  for (auto* names : *container_of<unsigned long, double>(program).categoryLists) names->clear();
  program.run({"PPX true;", "PREDICT;"});
  EXPECT_EQ(table_in(program).annotations.at({0, 2}), "[0:0.25;1:0.5;2:0.25]");
  EXPECT_EQ(table_in(program).annotations.at({1, 0}), "[0:0.75;1:0.25]");
}

TEST_F(Predict, ReplacesAnOldText) {
  const TempFile gaps(".csv", csv("a,b,c", {"?,v,1"}));
  Program program(chain);
  set_weights(program, odds);
  program.run(query(gaps) + Lines{"PPX true;", "PREDICT;"});
  table_in(program).set(QZ::CategoricalData::MIS_VAL, 0, 0);
  set_weights(program, std::vector<double>(10, 1));
  program.run({"PREDICT;"});
  EXPECT_EQ(table_in(program).annotations.at({0, 0}), "[x:0.5;y:0.5]");
}

TEST_F(Predict, StoresTheTextsWithTheTable) {
  const TempFile gaps(".csv", csv("a,b,c", {"?,v,1"}));
  Program program(chain);
  set_weights(program, odds);
  program.run(query(gaps) + Lines{"PPX true;", "PREDICT;"});
  EXPECT_EQ(table_in(program).getString(0, 0), "x [x:0.75;y:0.25]");
}

TEST_F(Predict, LetsNoRowSpeakForTheNext) {
  const TempFile gaps(".csv", csv("a,b,c", {"y,v,2", "?,?,?"}));
  const TempFile alone(".csv", csv("a,b,c", {"?,?,?"}));
  Program both(chain), one(chain);
  set_weights(both, odds);
  set_weights(one, odds);
  both.run(query(gaps) + Lines{"PPX true;", "PREDICT;"});
  one.run(query(alone) + Lines{"PPX true;", "PREDICT;"});
  for (const unsigned long c : {0, 1, 2}) {
    EXPECT_EQ(table_in(both).annotations.at({1, c}), table_in(one).annotations.at({0, c}));
  }
}

TEST_F(Predict, CompletesHiddenColumns) {
  Program program(Lines{"OMP 1;", "DFN '" + table.path() + "';", "LDX DPT;"});
  table_in(program).addColumns(1, 2);
  program.run({"GRA CHAIN;", "LDX GPT;", "MODEL;"});
  // Counting has filled the column by chance.
  for (unsigned long row = 0; row < 5; ++row) {
    table_in(program).set(QZ::CategoricalData::MIS_VAL, 3, row);
  }
  program.run({"PREDICT;"});
  for (unsigned long row = 0; row < 5; ++row) EXPECT_EQ(table_in(program).get(3, row), 0u);
}

TEST_F(Predict, LeavesColumnsBeyondTheModelAlone) {
  const TempFile gaps(".csv", csv("a,b,c", {"?,v,1"}));
  Program program(chain + query(gaps));
  table_in(program).addColumns(1, 2);
  program.run({"PPX true;", "PREDICT;"});
  EXPECT_EQ(table_in(program).get(3, 0), QZ::CategoricalData::MIS_VAL);
  EXPECT_EQ(table_in(program).annotations.size(), 1u);
}

TEST_F(Predict, ServesATableWithFewerColumns) {
  const TempFile narrow(".csv", csv("a,b", {"x,?"}));
  Program program(chain);
  set_weights(program, {1, 3, 4, 1, 1, 1, 1, 1, 1, 1});
  program.run(query(narrow) + Lines{"PPX true;", "PREDICT;"});
  EXPECT_EQ(cells_in(program), (std::vector<unsigned long>{0, 0}));
  EXPECT_EQ(table_in(program).annotations.at({0, 1}), "[u:0.25;v:0.75]");
}

TEST_F(Predict, TakesACellThatIsNoStateForAFreeOneWithoutAText) {
  Program program(chain);
  table_in(program).set(9, 2, 1, true);
  program.run({"PPX true;", "PREDICT;"});
  EXPECT_EQ(table_in(program).get(2, 1), 0u);
  EXPECT_TRUE(table_in(program).annotations.empty());
}

TEST_F(Predict, LeavesTheWeightsAsTheyWere) {
  Program program(chain);
  set_weights(program, odds);
  const auto& model = container_of<unsigned long, double>(program);
  const auto before = copy_of(model.weights, model.dim);
  program.run({"PREDICT;"});
  EXPECT_EQ(copy_of(model.weights, model.dim), before);
}

struct Report {
  std::size_t done;
  std::size_t total;
  std::string tag;
  bool operator==(const Report&) const = default;
};
std::vector<Report> reports;

void note(std::size_t done, std::size_t total, const char* tag) {
  reports.push_back({done, total, tag});
}

void note_and_stop(std::size_t done, std::size_t total, const char* tag) {
  note(done, total, tag);
  if (done == 2) ctrlchandler(0);
}

TEST_F(Predict, ReportsItsProgress) {
  reports.clear();
  Program program(chain);
  program.write("CBP", reinterpret_cast<std::uint64_t>(&note));
  program.run({"PREDICT;"});
  std::vector<Report> expected;
  for (std::size_t done = 0; done <= 5; ++done) expected.push_back({done, 5, "PREDICT"});
  EXPECT_EQ(reports, expected);
}

TEST_F(Predict, EndsBehindTheRowInWhichItIsAskedToStop) {
  const TempFile gaps(".csv", csv("a,b,c", {"?,v,1", "?,v,1", "?,v,1"}));
  reports.clear();
  Program program(chain);
  set_weights(program, odds);
  program.write("CBP", reinterpret_cast<std::uint64_t>(&note_and_stop));
  const auto& model = container_of<unsigned long, double>(program);
  const auto before = copy_of(model.weights, model.dim);
  reports.clear();
  program.run(query(gaps) + Lines{"PREDICT;"});
  EXPECT_EQ(table_in(program).get(0, 1), 0u);
  EXPECT_EQ(table_in(program).get(0, 2), QZ::CategoricalData::MIS_VAL);
  EXPECT_EQ(reports.back(), (Report{2, 3, "PREDICT"}));
  EXPECT_EQ(copy_of(model.weights, model.dim), before);
}

TEST_F(Predict, ServesATableWithoutRows) {
  const TempFile empty(".csv", "a,b,c\n\n");
  EXPECT_EQ(Program(chain + query(empty)).attempt({"PREDICT;"}), std::nullopt);
}

TEST_F(Predict, DoesNothingForAPairWithoutInstantiation) {
  const TempFile gaps(".csv", csv("a,b,c", {"?,v,1"}));
  const Program program(chain + query(gaps) + Lines{"val_t UINT8;", "PREDICT;"});
  EXPECT_EQ(table_in(program).get(0, 0), QZ::CategoricalData::MIS_VAL);
}

TEST_F(Predict, NeedsModelAndTable) {
  EXPECT_EQ(failure_of({"PREDICT;"}), logic_error("no model loaded"));
  EXPECT_EQ(failure_of({"MPT 1;", "PREDICT;"}), logic_error("no data loaded", 1));
}

/// An engine of a host program that notes how it is asked.
class Noting : public QZ::InferenceAlgorithm<unsigned long, double> {
 public:
  using InferenceAlgorithm::InferenceAlgorithm;
  void infer(const unsigned long& mode) override {
    modes.push_back(mode);
    observations.insert(observations.end(), observed, observed + graph->vertices());
  }
  void vertex_marginal(const unsigned long&, const unsigned long& x, double& q,
                       double& Z) const override {
    EXPECT_EQ(q, 0);
    EXPECT_EQ(Z, 0);
    q = static_cast<double>(x + 1);
    Z += 1234567;
  }
  void edge_marginal(const unsigned long&, const unsigned long&, const unsigned long&, double&,
                     double&) const override {}
  static InferenceAlgorithm* make(QZ::AbstractGraph<unsigned long>** graph, unsigned long** states,
                                  std::mt19937* rng, double* weights) {
    return new Noting(*graph, *states, weights, rng);
  }
  static inline std::vector<unsigned long> modes;
  static inline std::vector<double> observations;
};

TEST_F(Predict, AsksTheEngineForMaximumMarginalsOncePerRow) {
  const TempFile gaps(".csv", csv("a,b,c", {"x,?,2", "?,v,?"}));
  Program program(chain + query(gaps));
  program.write("EXT0", reinterpret_cast<std::uint64_t>(&Noting::make));
  program.run({"ALG EXTI;", "PPX true;", "PREDICT;"});
  EXPECT_EQ(Noting::modes, (std::vector<unsigned long>{1, 1}));
  EXPECT_EQ(Noting::observations, (std::vector<double>{0, -1, 2, -1, 1, -1}));
  // Six significant digits.
  EXPECT_EQ(table_in(program).annotations.at({0, 1}), "[u:8.10001e-07;v:1.62e-06]");
}

}  // namespace
