/// Graphs that replace the current one: unrolled over time, as a junction tree, as a layered tree.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/program.h"
#include "support/temp_file.h"

namespace {

using qz_test::logic_error;
using qz_test::Program;
using qz_test::TempFile;

class GraphConversions : public testing::TestWithParam<std::string> {
 protected:
  Program program;

  void run(std::vector<std::string> lines) {
    lines.insert(lines.begin(), "idx_t " + GetParam() + ";");
    program.run(lines);
  }
};
INSTANTIATE_TEST_SUITE_P(Widths, GraphConversions,
                         testing::Values("UINT8", "UINT16", "UINT32", "UINT64"));

std::vector<unsigned long> layers(const Program& program) {
  return *reinterpret_cast<const std::vector<unsigned long>*>(program.word("LPT"));
}

TEST_P(GraphConversions, AChainOfThreeBecomesTwoCliquesAndASeparator) {
  run({"GVX 3;", "GRA CHAIN;", "LDX GPT;"});
  const unsigned long base = program.word("GPT");
  program.run({"JUNCTIONTREE;"});
  EXPECT_EQ(program.word("GVX"), 3u);
  EXPECT_EQ(program.word("GEX"), 2u);
  EXPECT_EQ(program.word("GRA"), 9u);
  EXPECT_NE(program.word("GPT"), base);
  program.run({"BASEGRAPH;"});
  EXPECT_EQ(program.word("RES"), base);
  EXPECT_EQ(program.word("GRA"), 9u);
}

TEST_P(GraphConversions, ReleasingAJunctionTreeLeavesItsSourceAlone) {
  run({"GVX 3;", "GRA CHAIN;", "LDX GPT;", "JUNCTIONTREE;", "BASEGRAPH;", "DEL GPT;"});
  EXPECT_EQ(program.word("GPT"), 0u);
  program.write("GPT", program.word("RES"));
  EXPECT_EQ(program.word("GVX"), 3u);
  EXPECT_EQ(program.word("GEX"), 2u);
}

TEST_P(GraphConversions, TimeSlicesUnrollTheGraph) {
  run({"GVX 2;", "GRA CHAIN;", "LDX GPT;", "TXX 3;"});
  const unsigned long base = program.word("GPT");
  program.run({"STGRAPH;", "BASEGRAPH;"});
  EXPECT_EQ(program.word("GVX"), 6u);
  EXPECT_EQ(program.word("GEX"), 11u);
  EXPECT_EQ(program.word("GRA"), 11u);
  EXPECT_EQ(program.word("RES"), base);
}

TEST_P(GraphConversions, OneTimeSliceChangesNothing) {
  run({"GVX 2;", "GRA CHAIN;", "LDX GPT;", "RES 7.0;"});
  const unsigned long base = program.word("GPT");
  program.run({"STGRAPH;", "BASEGRAPH;"});
  EXPECT_EQ(program.word("GPT"), base);
  EXPECT_EQ(program.word("GRA"), 1u);
  EXPECT_EQ(program.word("RES"), 0u);
}

TEST_P(GraphConversions, ALayeredTreeWritesItsLayers) {
  run({"GVX 3;", "GRA CHAIN;", "LDX GPT;", "SNK 2;"});
  const unsigned long base = program.word("GPT");
  program.run({"BOLTZMANNTREE;", "BASEGRAPH;"});
  // Three base vertices, two extra ones, two cliques and a separator.
  EXPECT_EQ(program.word("GVX"), 8u);
  EXPECT_EQ(program.word("GEX"), 7u);
  EXPECT_EQ(program.word("GRA"), 10u);
  EXPECT_EQ(layers(program), (std::vector<unsigned long>{3, 2, 1, 2}));
  EXPECT_EQ(program.word("RES"), base);
  program.run({"DEL LPT;"});
}

TEST_P(GraphConversions, ALayeredTreeTakesItsExtraVerticesFromTheTable) {
  const TempFile table(".csv", "a,b,c\n\nx,y,z\n");
  run({"DFN '" + table.path() + "';", "GRA CHAIN;", "LDX DPT;", "LDX GPT;", "SNK 5;",
       "BOLTZMANNTREE;"});
  EXPECT_EQ(program.word("SNK"), 0u);
  EXPECT_EQ(layers(program), (std::vector<unsigned long>{3, 2, 1, 0}));
  program.run({"DEL LPT;", "DEL DFN;"});
}

TEST_P(GraphConversions, AModelFollowsTheGraph) {
  const TempFile table(".csv", "a,b,c\n\nx,y,z\nu,v,w\n");
  const TempFile exported(".adj");
  run({"DFN '" + table.path() + "';", "GFN '" + exported.path() + "';", "GRA CHAIN;", "LDX DPT;",
       "LDX GPT;", "MODEL;", "JUNCTIONTREE;", "FMT ADJ;", "STORE GPT;"});
  // The first clique is joined to the separator, and so is the second.
  const std::string matrix = exported.read();
  EXPECT_EQ(matrix.size(), 18u);
  EXPECT_EQ(matrix[4] % 2, 1) << "vertex 0 is joined to vertex 2";
  EXPECT_EQ(matrix[2] % 2, 0) << "vertex 0 is not joined to vertex 1";
}

TEST(GraphConversion, TheRegisterMustMatchTheGraph) {
  EXPECT_EQ(qz_test::failure_of({"GVX 3;", "GRA CHAIN;", "LDX GPT;", "GRA JT;", "BASEGRAPH;"}),
            logic_error("the graph is not of the kind that GRA names", 4));
}

TEST(GraphConversion, NeedsAGraph) {
  for (const char* line : {"STGRAPH;", "JUNCTIONTREE;", "BOLTZMANNTREE;", "BASEGRAPH;"}) {
    EXPECT_EQ(qz_test::failure_of({line}), logic_error("no graph loaded"));
  }
}

TEST(GraphConversion, APairThatDoesNotExistDoesNothing) {
  Program program({"GVX 3;", "GRA CHAIN;", "LDX GPT;"});
  const unsigned long base = program.word("GPT");
  program.run({"val_t UINT8;", "JUNCTIONTREE;"});
  EXPECT_EQ(program.word("GPT"), base);
  EXPECT_EQ(program.word("GRA"), 1u);
}

}  // namespace
