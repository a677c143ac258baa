/// MODEL through the exported functions.

#include <gtest/gtest.h>

#include "support/model_program.h"
#include "support/small_model.h"

namespace {

using namespace qz_test;

const std::string pets = csv("pet,size,home", {"cat,S,in", "dog,L,out", "cat,S,out", "cow,L,out"});

class Model : public testing::Test {
 protected:
  TempFile table{".csv", pets};
};

TEST_F(Model, DescribesTheTableAndCountsIt) {
  const Program program(fit_lines(table.path(), "CHAIN"));
  const auto& model = container_of<unsigned long, double>(program);
  EXPECT_EQ(model.idxCode, 3);
  EXPECT_EQ(model.valCode, 5);
  EXPECT_EQ(model.fromFile, 0);
  EXPECT_EQ(copy_of(model.states, 3), (std::vector<unsigned long>{3, 2, 2}));
  EXPECT_EQ(model.dim, 6 + 4);
  EXPECT_EQ(*model.vertexNames, (std::vector<std::string>{"pet", "size", "home"}));
  ASSERT_EQ(model.categoryLists->size(), 3);
  EXPECT_EQ(*model.categoryLists->at(0), (std::vector<std::string>{"cat", "dog", "cow"}));
  EXPECT_EQ(*model.categoryLists->at(2), (std::vector<std::string>{"in", "out"}));
  EXPECT_EQ(copy_of(model.weights, 10), std::vector<double>(10, 0));
  EXPECT_EQ(model.graphType, 1);
  EXPECT_EQ(model.slices, 1);
  EXPECT_EQ(model.reparam, 0);
  EXPECT_EQ(model.samples, 4);
  EXPECT_EQ(model.baseGraph, nullptr);
  EXPECT_EQ(model.layerText, "");
  EXPECT_EQ(model.reservedWord, 0);
  EXPECT_EQ(model.numOffsets, 6);
  EXPECT_EQ(copy_of(model.offsets, 6), (std::vector<unsigned long>{0, 3, 5, 7, 13, 17}));
  EXPECT_EQ(copy_of(model.stats, 17), (std::vector<double>{2, 1, 1,           //
                                                           2, 2,              //
                                                           1, 3,              //
                                                           2, 0, 0, 1, 0, 1,  //
                                                           1, 1, 0, 2}));
  EXPECT_EQ(program.real("RES"), -1.0);
  EXPECT_EQ(program.word("GPT"), reinterpret_cast<std::uint64_t>(model.graph));
  EXPECT_EQ(program.word("DIM"), 10u);
}

TEST_F(Model, WorksForAllTypePairs) {
  for (const auto& [index, value] : all_type_names()) {
    const Program program(types(index, value) + fit_lines(table.path(), "STAR"));
    EXPECT_EQ(program.word("DIM"), 6u + 6u) << index << ' ' << value;
    EXPECT_EQ(program.word("GVX"), 3u);
    EXPECT_EQ(program.real("RES"), -1.0);
  }
}

TEST_F(Model, DoublesTwiceNamed) {
  const Program program(types("UINT16", "FLTMPREC") + fit_lines(table.path(), "CHAIN"));
  EXPECT_EQ((container_of<unsigned short, double>(program).valCode), 5);
}

TEST_F(Model, DoesNothingForAPairWithoutInstantiation) {
  Program program(fit_lines(table.path(), "CHAIN"));
  const auto before = program.word("MPT");
  program.run({"idx_t UINT16;", "val_t UINT8;", "MODEL;"});
  EXPECT_EQ(program.word("MPT"), before);
  program.run({"idx_t UINT64;", "val_t FLT64;"});  // the objects are released as what they are
}

TEST_F(Model, NeedsGraphThenData) {
  EXPECT_EQ(failure_of({"MODEL;"}), logic_error("no graph loaded"));
  EXPECT_EQ(failure_of({"GVX 3;", "GRA CHAIN;", "LDX GPT;", "MODEL;"}),
            logic_error("no data loaded", 3));
}

TEST_F(Model, PlaceholdersAreNoObjects) {
  EXPECT_EQ(failure_of({"GPT 1;", "DPT 1;", "MODEL;"}), logic_error("no object loaded DPT", 2));
  EXPECT_EQ(failure_of({"DFN '" + table.path() + "';", "LDX DPT;", "GPT 1;", "MODEL;"}),
            logic_error("no object loaded GPT", 3));
}

TEST_F(Model, KeepsTheLayersAsText) {
  Program program;
  // The machine releases the list.
  program.write("LPT", reinterpret_cast<std::uint64_t>(new std::vector<unsigned long>{1, 2}));
  program.run(fit_lines(table.path(), "RBM"));
  EXPECT_EQ((container_of<unsigned long, double>(program).layerText), "1,2");
  EXPECT_EQ((container_of<unsigned long, double>(program).graphType), 4u);
}

TEST_F(Model, WithoutRowsCountsAsOneSample) {
  const TempFile empty(".csv", "a,b\n\n");
  Program program;
  if (const auto failure = program.attempt(fit_lines(empty.path(), "CHAIN"))) {
    FAIL() << *failure;
  }
  const auto& model = container_of<unsigned long, double>(program);
  EXPECT_EQ(model.samples, 1);
  EXPECT_EQ(model.dim, 0);
}

TEST_F(Model, ImputesMissingCellsIntoTheTable) {
  const TempFile holes(".csv", csv("a,b", {"x,y", "?,z", "w,?"}));
  Program program({"SEED 7;"});
  program.run(fit_lines(holes.path(), "CHAIN"));
  const auto& model = container_of<unsigned long, double>(program);
  EXPECT_EQ(model.stats[0] + model.stats[1], 3);
  std::mt19937 rng(7);
  const auto first = std::uniform_int_distribution<unsigned long>(0, 1)(rng);
  const auto second = std::uniform_int_distribution<unsigned long>(0, 1)(rng);
  EXPECT_EQ(model.stats[0], 1.0 + (first == 0));
  EXPECT_EQ(model.stats[2], 1.0 + (second == 0));
}

TEST_F(Model, LeavesItsPredecessorAlone) {
  Program program(fit_lines(table.path(), "CHAIN"));
  const auto before = program.word("MPT");
  program.run({"MODEL;"});
  EXPECT_NE(program.word("MPT"), before);
}

TEST_F(Model, GridLeavesOutTheColumnsBeyondItsSquare) {
  const TempFile five(".csv",
                      csv("a,b,c,d,e", {"0,0,0,0,0", "1,1,0,1,1", "0,1,1,?,1", "1,0,1,1,0"}));
  const TempFile file;
  Program program({"SEED 3;"});
  program.run(fit_lines(five.path(), "GRID"));
  const auto& model = container_of<unsigned long, double>(program);
  EXPECT_EQ(*model.vertexNames, (std::vector<std::string>{"a", "b", "c", "d"}));
  EXPECT_EQ(model.categoryLists->size(), 5);
  EXPECT_EQ(model.dim, 16);
  // The model serves like any other, and reads and completes tables of all five columns.
  program.run({"INITGAUSS;", "DEL DPT;", "INFER;", "MFN '" + file.path() + "';", "STORE MPT;",
               "LDX DPT;", "PREDICT;", "ALG GD;", "MIO 3;", "ESTIMATE;"});
  const Program loaded({"MFN '" + file.path() + "';", "LDX MPT;", "INFER;"});
  EXPECT_EQ(loaded.word("GVX"), 4u);
  EXPECT_EQ(loaded.real("LNZ"), program.real("LNZ"));
}

TEST_F(Model, TakesNoGraphOverColumnsWhoseStatesItDoesNotKnow) {
  const TempFile five(".csv", csv("a,b,c,d,e", {"0,0,0,0,0", "1,1,0,1,1"}));
  Program program(fit_lines(five.path(), "GRID"));
  EXPECT_EQ(program.attempt({"GRA CHAIN;", "LDX GPT;"}),
            logic_error("the graph has more vertices than the model", 1));
}

using ModelDeath = Model;
TEST_F(ModelDeath, VertexWithoutColumnIsAnAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(Program({"GVX 4;", "GRA CHAIN;", "LDX GPT;", "DFN '" + table.path() + "';",
                        "LDX DPT;", "MODEL;"}),
               "QZDATA.*Assertion `col<n\\+H' failed");
}

TEST_F(Model, StoredAndReloadedModelStandsOnItsOwn) {
  for (const auto& [index, value] : all_type_names()) {
    const TempFile first;
    const TempFile second;
    Program(types(index, value) + fit_lines(table.path(), "CHAIN") +
            std::vector<std::string>{"MFN '" + first.path() + "';", "STORE MPT;"});
    const Program reloaded(types(index, value) +
                           std::vector<std::string>{"MFN '" + first.path() + "';", "LDX MPT;",
                                                    "DEL MFN;", "MFN '" + second.path() + "';",
                                                    "STORE MPT;"});
    EXPECT_EQ(first.read(), second.read());
    EXPECT_EQ(reloaded.word("NXX"), 4u);
    EXPECT_EQ(reloaded.word("GRA"), 1u);
    EXPECT_EQ(reloaded.word("DIM"), 10u);
  }
}

class ModelOverTime : public Model {
 protected:
  // Two columns in each of two slices.
  TempFile wide{".csv", csv("a0,b0,a1,b1", {"x,0,x,1", "y,1,x,0", "x,1,y,1"})};
  std::vector<std::string> lines{
      "DFN '" + wide.path() + "';", "LDX DPT;", "TXX 2;", "GRA CHAIN;", "LDX GPT;", "STGRAPH;"};
};

TEST_F(ModelOverTime, KeepsTheGraphOfOneSliceForADecay) {
  const Program program(lines + std::vector<std::string>{"REP STLINEAR;", "MODEL;"});
  const auto& model = container_of<unsigned long, double>(program);
  EXPECT_EQ(model.graph->vertices(), 4);
  EXPECT_EQ(model.baseGraph->vertices(), 2);
  EXPECT_EQ(model.slices, 2);
  EXPECT_EQ(model.reparam, 1);
  EXPECT_EQ(model.graphType, 11);
}

TEST_F(ModelOverTime, KeepsNoGraphOfOneSliceWithoutADecay) {
  const Program program(lines + std::vector<std::string>{"MODEL;"});
  EXPECT_EQ((container_of<unsigned long, double>(program).baseGraph), nullptr);
}

TEST_F(ModelOverTime, StandsOnItsOwnInAFile) {
  const TempFile file;
  const Program stored(lines + std::vector<std::string>{"MODEL;", "INITGAUSS;", "DEL DPT;",
                                                        "INFER;", "MFN '" + file.path() + "';",
                                                        "STORE MPT;"});
  const Program loaded({"MFN '" + file.path() + "';", "LDX MPT;", "INFER;"});
  EXPECT_EQ(loaded.word("GRA"), 11u);
  EXPECT_EQ(loaded.word("GVX"), 4u);
  EXPECT_EQ(loaded.word("GEX"), stored.word("GEX"));
  EXPECT_EQ(loaded.real("LNZ"), stored.real("LNZ"));
  EXPECT_EQ(copy_of(loaded.marginals(), 8), copy_of(stored.marginals(), 8));
}

TEST_F(ModelOverTime, DecayNeedsAGraphOverTime) {
  EXPECT_EQ(failure_of({"DFN '" + wide.path() + "';", "LDX DPT;", "GRA CHAIN;", "LDX GPT;",
                        "REP STINVEXPONENTIAL;", "MODEL;"}),
            logic_error("a decay over time needs a graph over time", 5));
}

TEST_F(Model, GraphLoadedOverItNeedsNewStatistics) {
  const TempFile file;
  Program program(fit_lines(table.path(), "CHAIN"));
  const std::vector<std::string> other{"GRA FULL;", "LDX GPT;"};
  program.run(other);
  EXPECT_EQ(program.word("DIM"), 6u + 6u + 4u);
  Program broken(fit_lines(table.path(), "CHAIN"));
  EXPECT_EQ(broken.attempt(other + std::vector<std::string>{"INFER;"}),
            logic_error("the model's arrays do not belong to its graph", 2));
  program.run({"STATS;", "DEL DPT;", "INFER;"});
  const auto& model = container_of<unsigned long, double>(program);
  EXPECT_EQ(copy_of(model.weights, 16), std::vector<double>(16, 0));
  EXPECT_EQ(model.offsets[model.numOffsets - 1], 7u + 16u);
}

}  // namespace
