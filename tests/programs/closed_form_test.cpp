/// CLOSEDFORM through the exported functions.

#include <gtest/gtest.h>

#include <cmath>

#include "support/model_program.h"
#include "support/small_model.h"

namespace {

using namespace qz_test;

class ClosedForm : public testing::Test {
 protected:
  /// 8 rows; the pair (a, b) = (y, v) never occurs.
  TempFile table{".csv", csv("a,b,c", {"x,u,0", "x,v,1", "x,v,0", "y,u,1", "y,u,1", "x,u,0",
                                       "x,u,1", "y,u,0"})};

  template <class V>
  static V entry(V pst, V ps, V pt, bool add_s, bool add_t) {
    V weight = std::log(pst / (ps * pt));
    if (add_s) weight += std::log(ps);
    if (add_t) weight += std::log(pt);
    return weight;
  }
};

TEST_F(ClosedForm, FirstEdgeHoldsBothMarginalsAndTheNextOnlyTheNewOne) {
  const Program program(fit_lines(table.path(), "CHAIN") + std::vector<std::string>{"CLOSEDFORM;"});
  const auto& model = container_of<unsigned long, double>(program);
  // x 5, y 3; u 6, v 2; 0 and 1 four each.
  EXPECT_DOUBLE_EQ(model.weights[0], entry(3 / 8., 5 / 8., 6 / 8., true, true));
  EXPECT_DOUBLE_EQ(model.weights[1], entry(2 / 8., 5 / 8., 2 / 8., true, true));
  EXPECT_DOUBLE_EQ(model.weights[2], entry(3 / 8., 3 / 8., 6 / 8., true, true));
  EXPECT_DOUBLE_EQ(model.weights[3], entry(1 / 80., 3 / 8., 2 / 8., true, true));
  EXPECT_DOUBLE_EQ(model.weights[4], entry(3 / 8., 6 / 8., 4 / 8., false, true));
  EXPECT_DOUBLE_EQ(model.weights[7], entry(1 / 8., 2 / 8., 4 / 8., false, true));
}

TEST_F(ClosedForm, MakesAFittedTree) {
  // Without the empty pair the marginals of the model are those of the table.
  const Program program(fit_lines(table.path(), "STAR") +
                        std::vector<std::string>{"CEN 2;", "LDX GPT;", "STATS;", "CLOSEDFORM;",
                                                 "DEL DPT;", "EPL 1e-14;", "INFER;"});
  const auto& model = container_of<unsigned long, double>(program);
  EXPECT_NEAR(program.real("LNZ"), 0, 1e-12);
  const double* marginals = program.marginals();
  for (std::size_t i = 0; i < model.dim; ++i) {
    EXPECT_NEAR(marginals[i], model.stats[model.offsets[3] + i] / 8, 1e-12);
  }
}

TEST_F(ClosedForm, EmptyCellsGiveFiniteWeights) {
  const Program program(types("UINT32", "FLT32") + fit_lines(table.path(), "STAR") +
                        std::vector<std::string>{"CLOSEDFORM;"});
  const auto& model = container_of<unsigned, float>(program);
  // The star's first edge is (1, 0), so the empty pair (b, a) = (v, y) is its last entry.
  EXPECT_FLOAT_EQ(model.weights[3], entry(1 / 80.f, 2 / 8.f, 3 / 8.f, true, true));
  for (std::size_t i = 0; i < model.dim; ++i) EXPECT_TRUE(std::isfinite(model.weights[i]));
}

// 130 samples times ten are 20 in eight bits.
TEST_F(ClosedForm, FloorWrapsWithTheIndexType) {
  std::string text = "a,b\n\n";
  for (int i = 0; i < 65; ++i) text += "x,u\ny,v\n";
  const TempFile large(".csv", text);
  const Program program(types("UINT8", "FLT64") + fit_lines(large.path(), "CHAIN") +
                        std::vector<std::string>{"CLOSEDFORM;"});
  const auto& model = container_of<unsigned char, double>(program);
  EXPECT_EQ(model.samples, 130);
  EXPECT_DOUBLE_EQ(model.weights[1], entry(1 / 20., 0.5, 0.5, true, true));
}

// 128 samples times ten are 0 in eight bits, so an empty cell counts as infinite.
TEST_F(ClosedForm, WeightThatIsNoNumberBecomesZero) {
  std::string text = "a,b,c\n\n";
  for (int i = 0; i < 64; ++i) text += "x,u,0\ny,v,0\n";
  const TempFile large(".csv", text);
  Program program(types("UINT8", "FLT64") + fit_lines(large.path(), "CHAIN"));
  auto& model = container_of<unsigned char, double>(program);
  // No row has the state u, though pairs with it occur: inf over inf times a half.
  model.stats[model.offsets[1]] = 0;
  model.stats[model.offsets[3]] = 0;
  program.run({"CLOSEDFORM;"});
  EXPECT_EQ(model.weights[0], 0);
  EXPECT_EQ(model.weights[1], std::numeric_limits<double>::infinity());
}

TEST_F(ClosedForm, LeavesIntegersAlone) {
  Program program(types("UINT32", "UINT32") + fit_lines(table.path(), "CHAIN"));
  container_of<unsigned, unsigned>(program).weights[0] = 9;
  program.run({"CLOSEDFORM;"});
  EXPECT_EQ((container_of<unsigned, unsigned>(program).weights[0]), 9);
}

TEST_F(ClosedForm, NeedsGraphThenModel) {
  EXPECT_EQ(failure_of({"CLOSEDFORM;"}), logic_error("no graph loaded"));
  EXPECT_EQ(failure_of({"GPT 1;", "CLOSEDFORM;"}), logic_error("no model loaded", 1));
  EXPECT_EQ(failure_of({"GPT 1;", "MPT 1;", "CLOSEDFORM;"}),
            logic_error("no object loaded GPT", 2));
}

}  // namespace
