/// Every message of the machine, through the exported functions: its kind, its text and the line
/// that the caller can read afterwards.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/program.h"
#include "support/temp_file.h"

namespace {

using qz_test::failure_of;
using qz_test::invalid_argument;
using qz_test::logic_error;
using qz_test::out_of_range;
using qz_test::Program;
using qz_test::TempFile;

using Lines = std::vector<std::string>;

// The parser.

TEST(Errors, UnexpectedEndOfLine) {
  EXPECT_EQ(failure_of({"MIO 3", "CLEARSTACK"}), logic_error("unexpected end of line", 1));
  EXPECT_EQ(failure_of({"INC GP0"}), logic_error("unexpected end of line"));
  EXPECT_EQ(failure_of({"INC GP0 "}), logic_error("unexpected end of line"));
}

TEST(Errors, MissingOperand) {
  EXPECT_EQ(failure_of({"INC"}), logic_error("cannot parse argument of op 21"));
  EXPECT_EQ(failure_of({"INC  "}), logic_error("cannot parse argument of op 21"));
  EXPECT_EQ(failure_of({"MOV GP0"}), logic_error("cannot parse argument of op 18"));
  EXPECT_EQ(failure_of({"BLT GP0 GP1 "}), logic_error("cannot parse argument of op 16"));
}

TEST(Errors, UnknownOperand) {
  EXPECT_EQ(failure_of({"MOV XYZ GP0;"}), logic_error("cannot parse argument of op 18"));
  EXPECT_EQ(failure_of({"INC XYZ;"}), logic_error("unknown syntax error"));
  EXPECT_EQ(failure_of({"MOV GP0 XYZ;"}), logic_error("unknown syntax error"));
  EXPECT_EQ(failure_of({"BNE GP0 GP1 XYZ;"}), logic_error("unknown syntax error"));
}

TEST(Errors, AnOperandCutOffByTheSemicolonIsNoRegister) {
  EXPECT_EQ(failure_of({"INC;"}), out_of_range("map::at"));
  EXPECT_EQ(failure_of({"MOV GP0;"}), out_of_range("map::at"));
  EXPECT_EQ(failure_of({"PUSH;"}), out_of_range("map::at"));
  EXPECT_EQ(failure_of({"BRA;"}), out_of_range("map::at"));
  EXPECT_EQ(failure_of({"BLT GP0 GP1;"}), out_of_range("map::at"));
}

TEST(Errors, SetterWithoutAToken) {
  EXPECT_EQ(failure_of({"idx_t"}), logic_error("cannot set idx_t"));
  EXPECT_EQ(failure_of({"val_t \t"}), logic_error("cannot set val_t"));
  EXPECT_EQ(failure_of({"ALG"}), logic_error("cannot set ALG"));
  EXPECT_EQ(failure_of({"REP "}), logic_error("cannot set rep"));
  EXPECT_EQ(failure_of({"FMT"}), logic_error("cannot set graph format"));
  EXPECT_EQ(failure_of({"GRA "}), logic_error("cannot set graph"));
}

TEST(Errors, SetterWithAnUnknownToken) {
  for (const char* line : {"idx_t FLT64;", "val_t DOUBLE;", "ALG XYZ;", "REP XYZ;", "FMT XYZ;",
                           "GRA XYZ;", "FMT 3;", "GRA 14;", "REP 13;"}) {
    EXPECT_EQ(failure_of({line}), logic_error("parser error")) << line;
  }
}

TEST(Errors, UnknownSyntax) {
  EXPECT_EQ(failure_of({"", "nonsense"}), logic_error("unknown syntax error", 1));
  EXPECT_EQ(failure_of({"MIO"}), logic_error("unknown syntax error"));
  EXPECT_EQ(failure_of({"MIO  \t"}), logic_error("unknown syntax error"));
  EXPECT_EQ(failure_of({"inc GP0;"}), logic_error("unknown syntax error"));
}

TEST(Errors, ValuesThatCannotBeConverted) {
  EXPECT_EQ(failure_of({"MIO five"}), invalid_argument("stoul"));
  EXPECT_EQ(failure_of({"MIO ;"}), invalid_argument("stoul"));
  EXPECT_EQ(failure_of({"MIO 18446744073709551616"}), out_of_range("stoul"));
  EXPECT_EQ(failure_of({"EDP here"}), invalid_argument("stoul"));
  EXPECT_EQ(failure_of({"LAM much"}), invalid_argument("stod"));
  EXPECT_EQ(failure_of({"LAM 1e999"}), out_of_range("stod"));
  EXPECT_EQ(Program().attempt({"SEP ,;"})->kind, "out_of_range");
  EXPECT_EQ(Program().attempt({"MFN ;"})->kind, "out_of_range");
}

// Registers.

TEST(Errors, SeparatorFromAnInteger) {
  const auto failure = out_of_range("separator | not supported", 1);
  EXPECT_EQ(failure_of({"GP0 124", "MOV SEP GP0;"}), failure);
}

// Requirements.

TEST(Errors, Requirements) {
  for (const char* line :
       {"ESTIMATE;", "STATS;", "PREDICT;", "SCORE;", "SAMPLE;", "INITGAUSS;", "INITZERO;"}) {
    EXPECT_EQ(failure_of({line}), logic_error("no model loaded")) << line;
  }
  for (const char* line : {"MODEL;", "INFER;", "STGRAPH;", "BOLTZMANNTREE;", "JUNCTIONTREE;",
                           "BASEGRAPH;", "INITLATENT;", "CLOSEDFORM;"}) {
    EXPECT_EQ(failure_of({line}), logic_error("no graph loaded")) << line;
  }
  const Lines graph = {"GVX 3", "GRA CHAIN;", "LDX GPT;"};
  for (const char* line : {"MODEL;", "INITLATENT;"}) {
    EXPECT_EQ(failure_of({graph[0], graph[1], graph[2], line}), logic_error("no data loaded", 3));
  }
  for (const char* line : {"INFER;", "CLOSEDFORM;"}) {
    EXPECT_EQ(failure_of({graph[0], graph[1], graph[2], line}), logic_error("no model loaded", 3));
  }
}

// Loading.

TEST(Errors, LoadingWithoutAName) {
  EXPECT_EQ(failure_of({"LDX MPT;"}), logic_error("9 requires a loaded model"));
  EXPECT_EQ(failure_of({"LDX GPT;"}), logic_error("9 requires an adjacency matrix file"));
  EXPECT_EQ(failure_of({"LDX DPT;"}), logic_error("9 requires a data filename"));
}

TEST(Errors, LoadingAFileThatDoesNotExist) {
  const TempFile missing(".none");
  const std::string name = " '" + missing.path() + "';";
  const auto failure = logic_error("file " + missing.path() + " does not exist", 1);
  EXPECT_EQ(failure_of({"MFN" + name, "LDX MPT;"}), failure);
  EXPECT_EQ(failure_of({"GFN" + name, "LDX GPT;"}), failure);
  EXPECT_EQ(failure_of({"DFN" + name, "LDX DPT;"}), failure);
}

TEST(Errors, LoadingARegisterThatHoldsNoResource) {
  for (const char* line : {"LDX DFN;", "LDX MFN;", "LDX PPT;", "LDX GP0;", "LDX LPT;", "LDX;"}) {
    EXPECT_EQ(failure_of({line}), logic_error("cannot load unknown data")) << line;
  }
}

TEST(Errors, LoadingGraphs) {
  EXPECT_EQ(failure_of({"TXX 2", "GRA RBM;", "LDX GPT;"}),
            out_of_range("Temporal RBM is not supported", 2));
  EXPECT_EQ(failure_of({"GRA RBM;", "LDX GPT;"}), out_of_range("RBM requires layer definition", 1));
  Program program;
  std::vector<unsigned long> layers = {4};
  program.write("LPT", reinterpret_cast<std::uint64_t>(&layers));
  EXPECT_EQ(program.attempt({"GRA RBM;", "LDX GPT;"}),
            out_of_range("RBM requires more than one layer", 1));
}

TEST(Errors, LoadingUnreadableFiles) {
  EXPECT_EQ(failure_of({"DFN '/';", "LDX DPT;"}), logic_error("cannot read data", 1));
  const TempFile ragged(".adj", "0,1\n1,0,0\n");
  EXPECT_EQ(failure_of({"GFN '" + ragged.path() + "';", "LDX GPT;"}),
            out_of_range("wrong adjancency format", 1));
}

// Storing.

TEST(Errors, StoringNothing) {
  EXPECT_EQ(failure_of({"STORE MPT;"}), logic_error("no data loaded"));
  EXPECT_EQ(failure_of({"STORE GPT;"}), logic_error("graph of graphfile missing"));
  EXPECT_EQ(failure_of({"FMT FG;", "STORE GPT;"}), logic_error("model or graph missing", 1));
  EXPECT_EQ(failure_of({"STORE DPT;"}), logic_error("no data loaded"));
}

TEST(Errors, StoringWithoutAName) {
  for (const auto& [name, message] : {std::pair{"MPT", "no model filename provided"},
                                      {"DPT", "no data filename provided"},
                                      {"GPT", "graph of graphfile missing"}}) {
    Program program;
    program.write(name, std::uint64_t(1));
    EXPECT_EQ(program.attempt({std::string("STORE ") + name + ";"}), logic_error(message));
  }
}

TEST(Errors, StoringOverAFile) {
  const TempFile file(".any", "kept");
  for (const auto& [pointer, name, message] :
       {std::tuple{"MPT", "MFN", "overwrite disabled but modelfile exists"},
        {"GPT", "GFN", "overwrite disabled but graphfile exists"},
        {"DPT", "DFN", "overwrite disabled but modelfile exists"}}) {
    Program program;
    program.write(pointer, std::uint64_t(1));
    EXPECT_EQ(program.attempt(
                  {name + (" '" + file.path() + "';"), std::string("STORE ") + pointer + ";"}),
              logic_error(message, 1));
    EXPECT_EQ(file.read(), "kept");
  }
}

TEST(Errors, StoringAPlaceholder) {
  const TempFile file(".any");
  for (const auto& [pointer, name] : {std::pair{"MPT", "MFN"}, {"DPT", "DFN"}}) {
    Program program;
    program.write(pointer, std::uint64_t(1));
    EXPECT_EQ(program.attempt(
                  {name + (" '" + file.path() + "';"), std::string("STORE ") + pointer + ";"}),
              logic_error(std::string("no object loaded ") + pointer, 1));
  }
}

TEST(Errors, StoringAGraphWithoutAModel) {
  const TempFile file(".any");
  EXPECT_EQ(
      failure_of({"GVX 3", "GRA CHAIN;", "LDX GPT;", "GFN '" + file.path() + "';", "STORE GPT;"}),
      logic_error("no model loaded", 4));
}

TEST(Errors, StoringARegisterThatHoldsNoResource) {
  for (const char* line : {"STORE DFN;", "STORE PPT;", "STORE GP0;", "STORE;"}) {
    EXPECT_EQ(failure_of({line}), logic_error("cannot store")) << line;
  }
}

// Releasing.

TEST(Errors, ReleasingOtherRegisters) {
  for (const char* line : {"DEL GP0;", "DEL EDP;", "DEL MIO;", "DEL HPT;", "DEL;"}) {
    EXPECT_EQ(failure_of({line}), logic_error("cannot release memory of unknown type")) << line;
  }
}

TEST(Errors, ReleasingAGraphOfUnknownType) {
  EXPECT_EQ(failure_of({"GVX 3", "GRA CHAIN;", "LDX GPT;", "IDX 4", "DEL GPT;"}),
            logic_error("unsupported storage type", 4));
}

TEST(Errors, AnEmptyStack) {
  EXPECT_EQ(failure_of({"PUSH ONE;", "POP GP0;", "POP GP0;"}),
            logic_error("the stack is empty", 2));
}

// What is left of a context.

TEST(Errors, LeaveTheContextReadableOnly) {
  Program program;
  EXPECT_EQ(program.attempt({"MIO 5", "# here it goes", "nonsense"}),
            logic_error("unknown syntax error", 2));
  EXPECT_EQ(program.word("MIO"), 5u);
  EXPECT_EQ(run_ctx(program.context()), 0);
  EXPECT_EQ(reset_ctx(program.context()), 0);
  EXPECT_EQ(ctx_write_reg(program.context(), "MIO", 6), 0);
  EXPECT_EQ(program.attempt({"MIO 6"}), std::nullopt);
  EXPECT_EQ(program.word("MIO"), 5u);
}

TEST(Errors, ARunWithoutAProgram) {
  Program program;
  EXPECT_THROW(run_ctx(program.context()), std::logic_error);
  EXPECT_EQ(program.attempt({"MIO 6"}), std::nullopt);
}

}  // namespace
