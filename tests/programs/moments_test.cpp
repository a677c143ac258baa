/// Inference by sampled polynomial moments, as programs ask for it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "support/model_program.h"
#include "support/program.h"
#include "support/tables.h"
#include "support/temp_file.h"

namespace {

using qz_test::Program;
using qz_test::TempFile;

class Moments : public testing::TestWithParam<std::string> {
 protected:
  /// A chain of three binary columns with zero weights: 8 configurations.
  Program program;
  const TempFile table{".csv", qz_test::csv("a,b,c", {"x,x,x", "y,y,y"})};

  void infer(std::vector<std::string> settings) {
    std::vector<std::string> lines{"val_t " + GetParam() + ";",
                                   "DFN '" + table.path() + "'",
                                   "GRA CHAIN;",
                                   "LDX DPT;",
                                   "LDX GPT;",
                                   "MODEL;",
                                   "DEL DPT;",
                                   "SEED 3",
                                   "ALG SQM;"};
    lines.insert(lines.end(), settings.begin(), settings.end());
    lines.push_back("INFER;");
    lines.push_back("DEL DFN;");
    program.run(lines);
  }
};
INSTANTIATE_TEST_SUITE_P(Values, Moments, testing::Values("FLT32", "FLT64", "FLTMPREC"));

TEST_P(Moments, ADegreeOfZeroTakesTheMeanOfTheExponentialsAtTheEnds) {
  infer({"KXX 0"});
  // Equal weights widen the range to 1/8 on both sides, where the best constant is a mean.
  const double constant = (std::exp(0.125) + std::exp(-0.125)) / 2;
  EXPECT_NEAR(program.real("LNZ"), std::log(8 * constant), 1e-5);
  for (int i = 0; i < 14; ++i) EXPECT_NEAR(program.marginals()[i], i < 8 ? 0.25 : 0.5, 1e-6);
}

TEST_P(Moments, TheSlowPathSumsTheWholePolynomial) {
  infer({"KXX 3", "SLW true"});
  EXPECT_NEAR(program.real("LNZ"), std::log(8.0), 1e-4);
  for (int i = 0; i < 8; ++i) EXPECT_NEAR(program.marginals()[i], 0.25, 1e-5);
}

TEST_P(Moments, WithoutSamplesTheSumIsOne) {
  infer({"KXX 3", "MIL 0"});
  EXPECT_EQ(program.real("LNZ"), 0.0);
  for (int i = 0; i < 14; ++i) EXPECT_NEAR(program.marginals()[i], i < 8 ? 0.25 : 0.5, 1e-6);
}

TEST_P(Moments, MoreSamplesAreDrawnFromTheMachinesRandomEngine) {
  infer({"KXX 3", "MIL 3", "SEED 4"});
  const double first = program.real("LNZ");
  program.run({"SEED 4", "INFER;"});
  EXPECT_EQ(program.real("LNZ"), first);
  program.run({"SEED 5", "INFER;"});
  const double second = program.real("LNZ");
  program.run({"SEED 6", "INFER;"});
  EXPECT_TRUE(second != first || program.real("LNZ") != first);
}

TEST(MomentsOfAFit, AreNearEnumeration) {
  // The chain fitted to the persons on board the Titanic.
  const std::vector<std::string> fit{
      "idx_t UINT32;", "DFN '" + std::string(QZ_SOURCE_DIR) + "/examples/titanic.csv';",
      "LDX DPT;",      "GRA CHAIN;",
      "LDX GPT;",      "MODEL;",
      "ALG FL1;",      "STP 1;",
      "MIO 5000;",     "EPO 1e-8;",
      "EPL 1e-12;",    "ESTIMATE;",
      "DEL DPT;",      "SEED 1;"};
  Program program(fit);
  program.run({"ALG JT;", "INFER;"});
  const double exact = program.real("LNZ");
  const std::vector<double> marginals(program.marginals(), program.marginals() + 16);
  const auto largest_error = [&] {
    double largest = 0;
    for (int k = 0; k < 16; ++k) {
      largest = std::max(largest, std::abs(program.marginals()[k] - marginals[k]));
    }
    return largest;
  };
  // The whole polynomial, whose error falls with its degree.
  program.run({"ALG SQM;", "SLW true", "KXX 2", "INFER;"});
  EXPECT_GT(std::abs(program.real("LNZ") - exact), 0.1);
  program.run({"KXX 4", "INFER;"});
  EXPECT_NEAR(program.real("LNZ"), exact, 0.01);
  EXPECT_LT(largest_error(), 0.02);
}

}  // namespace
