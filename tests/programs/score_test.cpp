/// SCORE through the exported functions.

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/inference/engine.h"
#include "support/model_program.h"
#include "support/small_model.h"

namespace {

using namespace qz_test;

using Lines = std::vector<std::string>;

class Score : public testing::Test {
 protected:
  void TearDown() override { __run = 1; }

  TempFile table{".csv", csv("a,b,c", {"x,u,0", "y,v,1", "x,v,2", "y,u,2", "x,u,1"})};
  Lines chain = Lines{"OMP 1;"} + fit_lines(table.path(), "CHAIN") +
                Lines{"SEED 4;", "INITGAUSS;", "EPL 1e-14;"};

  static Lines query(const TempFile& file) {
    return {"DEL DPT;", "DEL DFN;", "DFN '" + file.path() + "';", "LDX DPT;"};
  }

  /// The sum of the weights that a row selects.
  template <class I, class V>
  static double potential(const QZ::IO<I, V>& model, const std::vector<unsigned long>& row) {
    double sum = 0;
    for (I e = 0; e < model.graph->edges(); ++e) {
      const auto [s, t] = endpoints(*model.graph, e);
      sum += static_cast<double>(
          model.weights[model.weight_offset(e) + row[s] * model.states[t] + row[t]]);
    }
    return sum;
  }
  /// The log partition function of a model with 2, 2 and 3 states by going through all rows.
  template <class I, class V>
  static double log_partition(const QZ::IO<I, V>& model) {
    double Z = 0;
    for (unsigned long a = 0; a < 2; ++a) {
      for (unsigned long b = 0; b < 2; ++b) {
        for (unsigned long c = 0; c < 3; ++c) Z += std::exp(potential(model, {a, b, c}));
      }
    }
    return std::log(Z);
  }
  static inline const std::vector<std::vector<unsigned long>> rows{
      {0, 0, 0}, {1, 1, 1}, {0, 1, 2}, {1, 0, 2}, {0, 0, 1}};
};

TEST_F(Score, IsTheMeanLogLikelihoodForEachFloatingPair) {
  for (const auto& [index, value] : all_type_names()) {
    if (index == value) continue;
    const Program program(types(index, value) + chain + Lines{"SCORE;"});
    QZ::dispatch_pair(static_cast<unsigned char>(program.word("IDX")),
                      static_cast<unsigned char>(program.word("VAL")),
                      [&]<class I, class V>(QZ::type_pair<I, V>) {
                        const auto& model = container_of<I, V>(program);
                        double mean = 0;
                        for (const auto& row : rows) mean += potential(model, row) / 5;
                        mean -= log_partition(model);
                        const double tolerance = value == "FLT32" ? 1e-5 : 1e-12;
                        EXPECT_NEAR(program.real("RES"), mean, tolerance);
                        EXPECT_NEAR(program.real("LNZ"), log_partition(model), tolerance);
                        EXPECT_LT(program.real("RES"), 0);
                      });
  }
}

TEST_F(Score, WrapsInIntegersAndStoresWords) {
  for (const auto& [index, value] : all_type_names()) {
    if (index != value) continue;
    Program program(Lines{"OMP 1;"} + types(index, value) + fit_lines(table.path(), "CHAIN"));
    QZ::dispatch_index(static_cast<unsigned char>(program.word("IDX")),
                       [&]<class I>(std::type_identity<I>) {
                         auto& model = container_of<I, I>(program);
                         for (I i = 0; i < model.dim; ++i) model.weights[i] = i % 3;
                         program.run({"SCORE;"});
                         const I A = static_cast<I>(program.word("LNZ"));
                         I sum = 0;
                         for (const auto& row : rows) {
                           const I score = static_cast<I>(potential(model, row));
                           sum = static_cast<I>(sum + static_cast<I>(score - A));
                         }
                         EXPECT_EQ(program.word("RES"), sum / 5u) << index;
                         EXPECT_EQ(program.word("LNZ"), A) << index;
                       });
  }
}

TEST_F(Score, IsZeroForIntegersWithoutRows) {
  const TempFile empty(".csv", "a,b,c\n\n");
  const Program program(Lines{"OMP 1;"} + types("UINT16", "UINT16") +
                        fit_lines(table.path(), "CHAIN") + query(empty) + Lines{"SCORE;"});
  EXPECT_EQ(program.word("RES"), 0u);
}

TEST_F(Score, IsTheObjectiveOfAFitWithItsSignTurned) {
  const Program program(chain +
                        Lines{"ALG FL1;", "STP 1;", "EPO 0;", "MIO 300;", "ESTIMATE;", "SCORE;"});
  const Program fitted(chain + Lines{"ALG FL1;", "STP 1;", "EPO 0;", "MIO 300;", "ESTIMATE;"});
  EXPECT_NEAR(program.real("RES"), -fitted.real("RES"), 1e-9);
}

TEST_F(Score, FillsGapsByDrawsOfTheMachinesEngine) {
  const TempFile gaps(".csv", csv("a,b,c", {"x,?,2", "?,v,?", "?,?,?", "y,u,0"}));
  const Program program(chain + query(gaps) + Lines{"SEED 77;", "SCORE;"});
  std::mt19937 rng(77);
  const auto draw = [&](unsigned long states) {
    return std::uniform_int_distribution<unsigned long>(0, states - 1)(rng);
  };
  const unsigned long b0 = draw(2), a1 = draw(2), c1 = draw(3), a2 = draw(2), b2 = draw(2),
                      c2 = draw(3);
  const auto& model = container_of<unsigned long, double>(program);
  double mean = 0;
  const std::vector<std::vector<unsigned long>> filled{
      {0, b0, 2}, {a1, 1, c1}, {a2, b2, c2}, {1, 0, 0}};
  for (const auto& row : filled) mean += (potential(model, row) - log_partition(model)) / 4;
  EXPECT_NEAR(program.real("RES"), mean, 1e-12);
}

TEST_F(Score, LeavesTheTableAndTheWeightsAsTheyWere) {
  const TempFile gaps(".csv", csv("a,b,c", {"x,?,2"}));
  Program program(chain + query(gaps));
  const auto& model = container_of<unsigned long, double>(program);
  const auto before = copy_of(model.weights, model.dim);
  program.run({"SCORE;"});
  EXPECT_EQ(copy_of(model.weights, model.dim), before);
  const auto& cells = *reinterpret_cast<QZ::CategoricalData*>(program.word("DPT"));
  EXPECT_EQ(cells.get(1, 0), QZ::CategoricalData::MIS_VAL);
}

TEST_F(Score, OfATableWithoutRowsIsNotANumber) {
  const TempFile empty(".csv", "a,b,c\n\n");
  const Program program(chain + query(empty) + Lines{"SCORE;"});
  EXPECT_TRUE(std::isnan(program.real("RES")));
}

TEST_F(Score, IsExactOnTheSlowPath) {
  const Lines full = Lines{"OMP 1;"} + fit_lines(table.path(), "FULL") +
                     Lines{"SEED 4;", "INITGAUSS;", "SLW true;", "SCORE;"};
  const Program program(full);
  EXPECT_NEAR(program.real("LNZ"), log_partition(container_of<unsigned long, double>(program)),
              1e-12);
}

std::vector<std::size_t> reported;

void note(std::size_t done, std::size_t total, const char* tag) {
  EXPECT_EQ(total, 5u);
  EXPECT_STREQ(tag, "SCORE");
  reported.push_back(done);
}

void note_and_stop(std::size_t done, std::size_t total, const char* tag) {
  note(done, total, tag);
  if (done == 2) ctrlchandler(0);
}

TEST_F(Score, ReportsARowAtItsStart) {
  reported.clear();
  Program program(chain);
  program.write("CBP", reinterpret_cast<std::uint64_t>(&note));
  program.run({"SCORE;"});
  EXPECT_EQ(reported, (std::vector<std::size_t>{1, 2, 3, 4, 5}));
}

TEST_F(Score, DividesByAllRowsAlsoWhenItIsAskedToStop) {
  reported.clear();
  Program program(chain);
  program.write("CBP", reinterpret_cast<std::uint64_t>(&note_and_stop));
  program.run({"SCORE;"});
  EXPECT_EQ(reported, (std::vector<std::size_t>{1, 2}));
  const auto& model = container_of<unsigned long, double>(program);
  const double two = potential(model, rows[0]) + potential(model, rows[1]);
  EXPECT_NEAR(program.real("RES"), (two - 2 * log_partition(model)) / 5, 1e-12);
}

TEST_F(Score, RefusesATableOfAnotherWidth) {
  const auto refusal = logic_error("the table does not have one column per vertex of the model");
  const TempFile narrow(".csv", csv("a,b", {"x,u"}));
  EXPECT_EQ(Program(chain + query(narrow)).attempt({"SCORE;"}), refusal);
  Program wide(chain);
  reinterpret_cast<QZ::CategoricalData*>(wide.word("DPT"))->addColumns(1, 2);
  EXPECT_EQ(wide.attempt({"SCORE;"}), refusal);
}

TEST_F(Score, RefusesACellThatIsNoState) {
  Program program(chain);
  reinterpret_cast<QZ::CategoricalData*>(program.word("DPT"))->set(7, 2, 3, true);
  EXPECT_EQ(program.attempt({"SCORE;"}),
            logic_error("row 3 holds no state of the model in column 2"));
}

TEST_F(Score, DoesNothingForAPairWithoutInstantiation) {
  Program program(chain);
  program.write("RES", 4.5);
  program.run({"val_t UINT8;", "SCORE;"});
  EXPECT_EQ(program.real("RES"), 4.5);
}

TEST_F(Score, NeedsModelAndTable) {
  EXPECT_EQ(failure_of({"SCORE;"}), logic_error("no model loaded"));
  EXPECT_EQ(failure_of({"MPT 1;", "SCORE;"}), logic_error("no data loaded", 1));
}

/// An engine of a host program whose log partition function is 10 plus the mode of the last call.
class Moded : public QZ::InferenceAlgorithm<unsigned long, double> {
 public:
  using InferenceAlgorithm::InferenceAlgorithm;
  void infer(const unsigned long& mode) override {
    ++calls;
    log_partition = 10 + static_cast<double>(mode);
  }
  void vertex_marginal(const unsigned long&, const unsigned long&, double&,
                       double&) const override {}
  void edge_marginal(const unsigned long&, const unsigned long&, const unsigned long&, double&,
                     double&) const override {}
  static InferenceAlgorithm* make(QZ::AbstractGraph<unsigned long>** graph, unsigned long** states,
                                  std::mt19937* rng, double* weights) {
    return new Moded(*graph, *states, weights, rng);
  }
  static inline int calls = 0;
};

TEST_F(Score, AsksTheEngineOnceInTheModeOfTheSlowPath) {
  Program program(chain);
  program.write("EXT0", reinterpret_cast<std::uint64_t>(&Moded::make));
  Moded::calls = 0;
  program.run({"ALG EXTI;", "SCORE;"});
  EXPECT_EQ(program.real("LNZ"), 10);
  program.run({"SLW true;", "SCORE;"});
  EXPECT_EQ(program.real("LNZ"), 20);
  EXPECT_EQ(Moded::calls, 2);
}

}  // namespace
