/// STATS through the exported functions.

#include <gtest/gtest.h>

#include "support/model_program.h"
#include "support/small_model.h"

namespace {

using namespace qz_test;

TEST(Stats, CountsTheCurrentTableForTheModel) {
  const TempFile first(".csv", csv("a,b", {"x,u", "y,v", "x,v"}));
  const TempFile second(".csv", csv("a,b", {"y,v", "y,v", "x,u", "x,v", "y,u"}));
  for (const auto& [index, value] : all_type_names()) {
    Program program(types(index, value) + fit_lines(first.path(), "CHAIN"));
    program.run({"DEL DPT;", "DEL DFN;", "DFN '" + second.path() + "';", "LDX DPT;", "STATS;"});
    // The table takes its categories from the model, so x and u are still the first.
    program.run({"idx_t " + index + ";"});
    const std::vector<double> expected{2, 3, 2, 3, 1, 1, 1, 2};
    QZ::dispatch_pair(static_cast<unsigned char>(program.word("IDX")),
                      static_cast<unsigned char>(program.word("VAL")),
                      [&]<class I, class V>(QZ::type_pair<I, V>) {
                        const auto& model = container_of<I, V>(program);
                        EXPECT_EQ(model.samples, 5);
                        ASSERT_EQ(model.statsLength, 8);
                        EXPECT_EQ(std::vector<double>(model.stats, model.stats + 8), expected);
                        EXPECT_EQ(model.numOffsets, 4);
                      });
  }
}

TEST(Stats, KeepsTheWeights) {
  const TempFile table(".csv", csv("a,b", {"x,u", "y,v", "x,v"}));
  Program program(fit_lines(table.path(), "CHAIN"));
  program.run({"CLOSEDFORM;"});
  const auto& model = container_of<unsigned long, double>(program);
  const auto before = copy_of(model.weights, 4);
  program.run({"STATS;"});
  EXPECT_EQ(copy_of(model.weights, 4), before);
}

TEST(Stats, NeedsModelThenGraph) {
  EXPECT_EQ(failure_of({"STATS;"}), logic_error("no model loaded"));
  EXPECT_EQ(failure_of({"MPT 1;", "STATS;"}), logic_error("no graph loaded", 1));
  EXPECT_EQ(failure_of({"MPT 1;", "GPT 1;", "STATS;"}), logic_error("no object loaded MPT", 2));
}

TEST(Stats, NeedsData) {
  const TempFile table(".csv", csv("a,b", {"x,u", "y,v", "x,v"}));
  Program program(fit_lines(table.path(), "CHAIN"));
  EXPECT_EQ(program.attempt({"DEL DPT;", "STATS;"}), logic_error("no object loaded DPT", 1));
}

TEST(Stats, NeedsTheStatesOfAllVertices) {
  // The model knows two of the four columns that the graph over time then has.
  const TempFile table(".csv", csv("a,b,c,d", {"x,u,x,u", "y,v,y,v"}));
  Program program({"TXX 2;"});
  program.run(fit_lines(table.path(), "CHAIN"));
  EXPECT_EQ(program.attempt({"STGRAPH;", "STATS;"}),
            logic_error("the model's arrays do not belong to its graph", 1));
}

TEST(Stats, DoesNothingForAPairWithoutInstantiation) {
  const TempFile table(".csv", csv("a,b", {"x,u", "y,v", "x,v"}));
  Program program(fit_lines(table.path(), "CHAIN"));
  const auto& model = container_of<unsigned long, double>(program);
  const double* before = model.stats;
  program.run({"val_t UINT8;", "STATS;"});
  EXPECT_EQ(model.stats, before);
}

}  // namespace
