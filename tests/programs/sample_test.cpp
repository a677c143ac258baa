/// SAMPLE through the exported functions.

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "QZ/data/categorical_data.h"
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
    for (unsigned long c = 0; c < table.n; ++c) cells.push_back(table.get(c, row));
  }
  return cells;
}

/// A number that is no state, so that a sampler draws its first state.
constexpr unsigned short no_state = 60000;

class Sample : public testing::Test {
 protected:
  TempFile table{".csv", csv("a,b,c", {"x,u,0", "y,v,1", "x,v,2", "y,u,2", "x,u,1"})};
  Lines chain = fit_lines(table.path(), "CHAIN") + Lines{"SEED 4;", "INITGAUSS;"};

  /// A program with a table of this many rows, every cell of which holds `cell`.
  Program& with_rows(Program& program, unsigned long rows, unsigned short cell) {
    std::string text = "a,b,c\n\n";
    for (unsigned long row = 0; row < rows; ++row) text += "x,u,0\n";
    buffer.write(text);
    program.run(Lines{"DEL DPT;", "DEL DFN;", "DFN '" + buffer.path() + "';", "LDX DPT;"});
    for (unsigned long row = 0; row < rows; ++row) {
      for (unsigned long c = 0; c < 3; ++c) table_in(program).set(cell, c, row, true);
    }
    return program;
  }
  TempFile buffer{".csv"};
};

TEST_F(Sample, LeavesCompleteRowsAlone) {
  Program program(chain);
  const auto before = cells_in(program);
  program.run({"PAM 0;", "SAMPLE;"});
  EXPECT_EQ(cells_in(program), before);
}

TEST_F(Sample, PutsTheRowCountIntoItsRegister) {
  Program program(chain);
  program.run({"GNU 99;", "SAMPLE;"});
  EXPECT_EQ(program.word("GNU"), 5u);
}

TEST_F(Sample, LeavesMissingCellsOfFloatingTypesAtStateZero) {
  for (const std::string method : {"PAM 0;", "PAM 0.5;"}) {
    for (const auto& [index, value] : all_type_names()) {
      if (index == value) continue;
      Program program(types(index, value) + chain);
      with_rows(program, 3, QZ::CategoricalData::MIS_VAL).run({method, "SAMPLE;"});
      EXPECT_EQ(cells_in(program), std::vector<unsigned long>(9, 0)) << method << value;
    }
  }
}

TEST_F(Sample, DrawsMissingCellsOfIntegersWithBothMethods) {
  for (const std::string method : {"PAM 0;", "PAM 2;"}) {
    for (const auto& [index, value] : all_type_names()) {
      if (index != value) continue;
      Program program(types(index, value) + fit_lines(table.path(), "CHAIN") + Lines{"SEED 4;"});
      with_rows(program, 200, QZ::CategoricalData::MIS_VAL).run({"OMP 1;", method, "SAMPLE;"});
      std::vector<int> counts(3, 0);
      for (unsigned long row = 0; row < 200; ++row) ++counts.at(table_in(program).get(2, row));
      for (const int count : counts) EXPECT_GT(count, 0) << method << index;
    }
  }
}

TEST_F(Sample, LeavesPerturbedCellsThatAreNoStateAtStateZero) {
  Program program(chain);
  with_rows(program, 3, no_state).run({"PAM 2;", "SAMPLE;"});
  EXPECT_EQ(cells_in(program), std::vector<unsigned long>(9, 0));
}

TEST_F(Sample, KeepsObservedCellsUnderPerturbation) {
  Program program(chain);
  const auto before = cells_in(program);
  program.run({"PAM 2;", "SAMPLE;"});
  EXPECT_EQ(cells_in(program), before);
}

TEST_F(Sample, DrawsCellsThatAreNoStateFromTheModel) {
  for (const std::string threads : {"OMP 1;", "OMP 2;"}) {
    Program program(chain + Lines{threads});
    const unsigned long rows = 20000;
    with_rows(program, rows, no_state).run({"PAM 0;", "GRE 20;", "SAMPLE;"});
    std::vector<double> frequency(12, 0);
    const auto cells = cells_in(program);
    for (unsigned long r = 0; r < rows; ++r) {
      frequency[(cells[3 * r] * 2 + cells[3 * r + 1]) * 3 + cells[3 * r + 2]] += 1.0 / rows;
    }
    const auto& model = container_of<unsigned long, double>(program);
    std::vector<double> exact;
    double Z = 0;
    for (unsigned long a = 0; a < 2; ++a) {
      for (unsigned long b = 0; b < 2; ++b) {
        for (unsigned long c = 0; c < 3; ++c) {
          exact.push_back(std::exp(model.weights[a * 2 + b] + model.weights[4 + b * 3 + c]));
          Z += exact.back();
        }
      }
    }
    // Five standard deviations of a frequency over 20000 rows stay below 0.018.
    for (std::size_t i = 0; i < 12; ++i) EXPECT_NEAR(frequency[i], exact[i] / Z, 0.018);
  }
}

TEST_F(Sample, DrawsTheFreeCellsAroundTheClampedOnes) {
  Program program(chain + Lines{"OMP 1;"});
  const unsigned long rows = 20000;
  with_rows(program, rows, no_state);
  for (unsigned long r = 0; r < rows; ++r) table_in(program).set(1, 1, r);
  program.run({"PAM 0;", "GRE 20;", "SAMPLE;"});
  const auto& model = container_of<unsigned long, double>(program);
  double zeros = 0;
  for (unsigned long r = 0; r < rows; ++r) {
    EXPECT_EQ(table_in(program).get(1, r), 1u);
    zeros += table_in(program).get(0, r) == 0;
  }
  const double expected = 1 / (1 + std::exp(model.weights[3] - model.weights[1]));
  EXPECT_NEAR(zeros / rows, expected, 0.018);
}

TEST_F(Sample, RepeatsItselfFromASeedOnOneThread) {
  const auto draw = [&](const std::string& seed) {
    Program program(chain + Lines{"OMP 1;"});
    with_rows(program, 50, no_state).run({seed, "PAM 0;", "SAMPLE;"});
    return cells_in(program);
  };
  EXPECT_EQ(draw("SEED 7;"), draw("SEED 7;"));
  EXPECT_NE(draw("SEED 7;"), draw("SEED 8;"));
}

TEST_F(Sample, DrawsTheFirstStateOnlyWithoutSweeps) {
  Program program(chain + Lines{"OMP 1;"});
  const unsigned long rows = 3000;
  with_rows(program, rows, no_state).run({"PAM 0;", "GRE 0;", "SAMPLE;"});
  double zeros = 0;
  for (unsigned long r = 0; r < rows; ++r) zeros += table_in(program).get(2, r) == 0;
  EXPECT_NEAR(zeros / rows, 1.0 / 3, 0.05);
}

TEST_F(Sample, LeavesTheWeightsAsTheyWere) {
  for (const std::string method : {"PAM 0;", "PAM 0.5;"}) {
    Program program(chain);
    const auto& model = container_of<unsigned long, double>(program);
    const auto before = copy_of(model.weights, model.dim);
    with_rows(program, 20, no_state).run({method, "SAMPLE;"});
    EXPECT_EQ(copy_of(model.weights, model.dim), before);
  }
}

std::vector<std::size_t> counters;

void note(std::size_t done, std::size_t total, const char* tag) {
  EXPECT_EQ(total, 5u);
  EXPECT_STREQ(tag, "SAMPLE");
  counters.push_back(done);
}

TEST_F(Sample, CountsFromTwoOn) {
  for (const std::string threads : {"OMP 1;", "OMP 2;"}) {
    counters.clear();
    Program program(chain + Lines{threads});
    program.write("CBP", reinterpret_cast<std::uint64_t>(&note));
    program.run({"SAMPLE;"});
    EXPECT_EQ(counters, (std::vector<std::size_t>{2, 3, 4, 5, 6}));
  }
}

TEST_F(Sample, ServesATableWithoutRows) {
  Program program(chain);
  EXPECT_EQ(with_rows(program, 0, 0).attempt({"SAMPLE;"}), std::nullopt);
  EXPECT_EQ(program.word("GNU"), 0u);
}

TEST_F(Sample, RefusesSweepsThatANarrowIndexCannotCount) {
  Program narrow(types("UINT8", "FLT64") + chain);
  EXPECT_EQ(narrow.attempt({"PAM 0;", "GRE 86;", "SAMPLE;"}),
            logic_error("the index type is too narrow for GRE sweeps over the model", 2));
  // 3 * 85 is the largest number that still fits.
  Program fitting(types("UINT8", "FLT64") + chain);
  EXPECT_EQ(fitting.attempt({"PAM 0;", "GRE 85;", "SAMPLE;"}), std::nullopt);
}

TEST_F(Sample, DoesNothingForAPairWithoutInstantiation) {
  const Program program(chain + Lines{"val_t UINT8;", "GNU 99;", "SAMPLE;"});
  EXPECT_EQ(program.word("GNU"), 99u);
}

TEST_F(Sample, NeedsAModel) { EXPECT_EQ(failure_of({"SAMPLE;"}), logic_error("no model loaded")); }

class SampleDeath : public Sample {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(SampleDeath, WithoutATableIsAnAssertion) {
  EXPECT_DEATH(Program(chain + Lines{"DEL DPT;", "SAMPLE;"}),
               "./src/include/QZ/QZMISC.*Assertion `false' failed");
}

TEST_F(SampleDeath, AnEngineThatFailsInATeamEndsTheProcess) {
  EXPECT_DEATH(
      {
        Program program(chain + Lines{"OMP 2;"});
        program.write("INF", std::uint64_t(99));
        program.run({"SAMPLE;"});
      },
      "unknown inference algorithm");
}

TEST_F(SampleDeath, AStateThatIsNoCategoryOfItsColumnIsAnAssertion) {
  EXPECT_DEATH(
      {
        Program program(chain + Lines{"OMP 1;"});
        with_rows(program, 50, no_state);
        // Two categories are left where the model has three states.
        table_in(program).categoryMaps[2]->erase("2");
        program.run({"PAM 0;", "SAMPLE;"});
      },
      "Assertion `ignore \\|\\| v<categories\\(col\\) \\|\\| v==MIS_VAL' failed");
}

}  // namespace
