/// The command line tool as a person meets it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <string>
#include <vector>

#include "support/process.h"

namespace {

using qz_test::Outcome;
using qz_test::run_process;
using qz_test::TempDirectory;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

const std::string table =
    "Colour,Size\n\nred,big\nred,small\nblue,big\nred,big\ngreen,small\nblue,small\ngreen,big\nred,"
    "small\n";

const std::string fit =
    "DFN 'table.csv';\nLDX DPT;\nGRA CHAIN;\nLDX GPT;\nMODEL;\nCLOSEDFORM;\nDEL DPT;\nINFER;\n";

class Tool : public testing::Test {
 protected:
  Outcome qz(std::vector<std::string> arguments, int terminal = -1) const {
    arguments.insert(arguments.begin(), QZ_TOOL);
    return run_process(arguments, directory.path(), terminal);
  }
  /// Runs `program` as the file program.qz.
  Outcome run(const std::string& program, std::vector<std::string> arguments = {}) const {
    directory.write("program.qz", program);
    arguments.insert(arguments.begin(), {"run", "program.qz"});
    return qz(arguments);
  }

  TempDirectory directory;
};

TEST_F(Tool, PrintsNothingUnasked) {
  const Outcome outcome = run("GP0 1\n");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "");
}

TEST_F(Tool, NamesTheFailingLineCountedFromOne) {
  const Outcome outcome = run("# a remark\n\nGP0 1\nMODEL;\nGP0 2\n");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "program.qz:4: no graph loaded\n");
}

TEST_F(Tool, NamesTheFailingLineBehindABranch) {
  const Outcome outcome = run("GP0 2\nBRA GP0;\nMIO\nLDX DFN;\n");
  EXPECT_EQ(outcome.err, "program.qz:4: cannot load unknown data\n");
}

TEST_F(Tool, PrintsNoRegistersAfterAFailure) {
  EXPECT_EQ(run("INFER;\n", {"--print", "GP0"}).out, "");
}

TEST_F(Tool, PrintsEachRegisterByItsClass) {
  const Outcome outcome =
      run("MIO 18446744073709551615\nGP0 0.1\nMFN 'a model';\nOVW true;\nSEP ';'\n",
          {"--print", "MIO,GP0,MFN,OVW,SEP,GPT,DFN"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out,
            "MIO  18446744073709551615\n"
            "GP0  0.1\n"
            "MFN  a model\n"
            "OVW  true\n"
            "SEP  ;\n"
            "GPT  0x0\n"
            "DFN\n");
}

TEST_F(Tool, PrintsTheKeywordBesideItsNumber) {
  const Outcome outcome = run("GRA STAR;\n", {"--print", "GRA,VAL,OPT"});
  EXPECT_EQ(outcome.out, "GRA  3  STAR\nVAL  5  FLT64\nOPT  0\n");
}

TEST_F(Tool, ShowsABareWordInARealRegister) {
  directory.write("table.csv", table);
  const Outcome outcome = run("DFN 'table.csv';\nLDX DPT;\n", {"--print", "RES"});
  EXPECT_THAT(outcome.out, HasSubstr("(word " + std::to_string(table.size()) + ")"));
}

TEST_F(Tool, PrintMayBeGivenTwice) {
  EXPECT_EQ(run("GP0 1\nGP1 2\n", {"--print", "GP0", "--print", "GP1"}).out, "GP0  1\nGP1  2\n");
}

TEST_F(Tool, SetWritesEveryClassBeforeTheRun) {
  const Outcome outcome = run(
      "MOV GP1 GP0;\n", {"--set", "MIO=7", "--set", "GP0=-2.5", "--set", "MFN=a b=c", "--set",
                         "OVW=true", "--set", "MIS=x", "--set", "GRA=STAR", "--set", "IDX=UINT8",
                         "--set", "VAL=4", "--print", "MIO,GP1,MFN,OVW,MIS,GRA,IDX,VAL"});
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out,
            "MIO  7\nGP1  -2.5\nMFN  a b=c\nOVW  true\nMIS  x\nGRA  3      STAR\n"
            "IDX  0      UINT8\nVAL  4      FLT32\n");
}

TEST_F(Tool, SetLeavesTheProgramItsFirstLine) {
  EXPECT_EQ(run("GP0 1\nGP1 2\n", {"--set", "MFN=x", "--print", "GP0"}).out, "GP0  1\n");
}

TEST_F(Tool, TheProgramHasTheLastWord) {
  EXPECT_EQ(run("MIO 5\n", {"--set", "MIO=7", "--print", "MIO"}).out, "MIO  5\n");
}

TEST_F(Tool, SetOfTheSeedReseeds) {
  const std::string draw = "MOV GP0 UNI;\n";
  const std::string first = run(draw, {"--set", "SEED=1", "--print", "GP0"}).out;
  EXPECT_EQ(run(draw, {"--set", "SEED=1", "--print", "GP0"}).out, first);
  EXPECT_NE(run(draw, {"--set", "SEED=2", "--print", "GP0"}).out, first);
}

TEST_F(Tool, RefusesAWrongSetting) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"XYZ=1", "there is no register XYZ"},
      {"MIO", "--set needs REG=VALUE"},
      {"MIO=12x", "register MIO takes a whole number"},
      {"MIO=-1", "register MIO takes a whole number"},
      {"MIO=", "register MIO takes a whole number"},
      {"GRA=CHAINS", "register GRA takes a whole number or one of its keywords"},
      {"STP=fast", "register STP takes a number"},
      {"OVW=no", "register OVW takes true or false"},
      {"MIS=??", "register MIS takes one character"},
      {"MFN=it's", "register MFN takes a text without quotation marks"},
      {"GPT=1", "register GPT takes a pointer"},
      {"LNN=1", "register LNN cannot be set"},
      {"SEP=|", "separator | not supported"},
  };
  for (const auto& [setting, message] : cases) {
    const Outcome outcome = run("GP0 1\n", {"--set", setting});
    EXPECT_EQ(outcome.status, 2) << setting;
    EXPECT_THAT(outcome.err, StartsWith("qz: ")) << setting;
    EXPECT_THAT(outcome.err, HasSubstr(message)) << setting;
  }
}

TEST_F(Tool, RefusesToPrintAnUnknownRegisterBeforeTheRun) {
  const Outcome outcome = run("OVW true;\nBROKEN\n", {"--print", "GP0,DEVICE"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "qz: there is no register DEVICE\n");
}

TEST_F(Tool, ReportsAProgramThatItCannotRead) {
  const Outcome missing = qz({"run", "none.qz"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "qz: cannot read none.qz\n");
  const Outcome folder = qz({"run", "."});
  EXPECT_EQ(folder.status, 1);
  EXPECT_EQ(folder.err, "qz: cannot read .\n");
}

TEST_F(Tool, AnEmptyProgramIsFine) {
  const Outcome outcome = run("", {"--print", "ONE"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "ONE  1\n");
}

TEST_F(Tool, TakesProgramsWithCarriageReturns) {
  EXPECT_EQ(run("MIO 7\r\n\r\nGP0 2\r\n", {"--print", "MIO,GP0"}).out, "MIO  7\nGP0  2\n");
}

TEST_F(Tool, RefusesAZeroByteInAProgram) {
  const Outcome outcome = run(std::string("GP0 1\nGP1 2\0;\n", 14));
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "program.qz:2: the line holds a zero byte\n");
}

TEST_F(Tool, NeedsASubcommandAndAProgram) {
  EXPECT_EQ(qz({}).status, 2);
  EXPECT_EQ(qz({"run"}).status, 2);
  EXPECT_EQ(qz({"walk"}).status, 2);
  EXPECT_EQ(qz({"run", "--wrong"}).status, 2);
}

TEST_F(Tool, ShowsHelpAndVersion) {
  const Outcome help = qz({"run", "--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_THAT(help.out, HasSubstr("--marginals"));
  EXPECT_EQ(qz({"--version"}).out, "qz 1.0.63\n");
}

TEST_F(Tool, FileNamesCountFromTheCurrentDirectory) {
  directory.write("table.csv", table);
  TempDirectory elsewhere;
  const std::string program = elsewhere.write("program.qz", "DFN 'table.csv';\nLDX DPT;\n");
  EXPECT_EQ(qz({"run", program, "--print", "NXX"}).out, "NXX  8  rows\n");
}

TEST_F(Tool, NamesTheMarginals) {
  directory.write("table.csv", table);
  const Outcome outcome = run(fit, {"--marginals"});
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out,
            "vertex  state  marginal\n"
            "Colour  red    0.500000\n"
            "        blue   0.250000\n"
            "        green  0.250000\n"
            "Size    big    0.500000\n"
            "        small  0.500000\n");
}

TEST_F(Tool, NamesTheMarginalsOfEveryTypePair) {
  directory.write("table.csv", table);
  const std::string expected = run(fit, {"--marginals"}).out;
  for (const char* index : {"UINT8", "UINT16", "UINT32", "UINT64"}) {
    for (const char* value : {"FLT32", "FLT64", "FLTMPREC"}) {
      const Outcome outcome = run(fit, {"--marginals", "--set", std::string("IDX=") + index,
                                        "--set", std::string("VAL=") + value});
      EXPECT_EQ(outcome.out, expected) << index << ' ' << value << ' ' << outcome.err;
    }
  }
}

TEST_F(Tool, NamesColumnsWithoutAHeader) {
  directory.write("table.csv", "dropped\nred,big\nblue,small\n");
  const Outcome outcome = run(fit, {"--marginals", "--set", "HED=false"});
  EXPECT_THAT(outcome.out, HasSubstr("X0      red    0.500000\n"));
}

TEST_F(Tool, LeavesNoFilesBehind) {
  directory.write("table.csv", table);
  TempDirectory scratch;
  setenv("TMPDIR", scratch.path().c_str(), 1);
  const Outcome outcome = run(fit, {"--marginals"});
  unsetenv("TMPDIR");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(std::filesystem::is_empty(scratch.path()));
}

TEST_F(Tool, PrintsTheModelFileNameOfTheProgram) {
  directory.write("table.csv", table);
  const Outcome outcome = run(fit + "MFN 'mine';\n", {"--marginals", "--print", "MFN"});
  EXPECT_THAT(outcome.out, StartsWith("MFN  mine\n"));
  EXPECT_FALSE(std::filesystem::exists(directory.file("mine")));
}

TEST_F(Tool, NeedsMarginalsAndAModelForTheTable) {
  const Outcome none = run("GP0 1\n", {"--marginals"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.err, "qz: --marginals: the program ran no INFER\n");

  directory.write("table.csv", table);
  const Outcome released = run(fit + "DEL MPT;\n", {"--marginals"});
  EXPECT_EQ(released.status, 1);
  EXPECT_THAT(released.err, HasSubstr("keeps no model"));
}

TEST_F(Tool, CountsTheIterationsOfTheLastEstimate) {
  directory.write("table.csv", table);
  const std::string program =
      "DFN 'table.csv';\nLDX DPT;\nGRA CHAIN;\nLDX GPT;\nMODEL;\nALG FL1;\nSTP 0.1\nEPO 0\n"
      "MIO 17\nESTIMATE;\nMIO 5\nESTIMATE;\n";
  for (const char* types : {"", "idx_t UINT8;\nval_t FLT32;\n", "idx_t UINT16;\nval_t FLT32;\n"}) {
    const Outcome outcome = run(types + program, {"--print", "iterations"});
    EXPECT_EQ(outcome.out, "iterations  5  of the last ESTIMATE\n") << types << outcome.err;
  }
  EXPECT_EQ(run("GP0 1\n", {"--print", "iterations"}).out, "iterations  0  of the last ESTIMATE\n");
}

TEST_F(Tool, ShowsNoProgressWhereStandardErrorIsNoTerminal) {
  directory.write("table.csv", table);
  EXPECT_EQ(run("DFN 'table.csv';\nLDX DPT;\nGRA FULL;\nLDX GPT;\n").err, "");
}

/// What arrives on the far side of a terminal that is the tool's standard error.
class ToolOnATerminal : public Tool {
 protected:
  void SetUp() override {
    far_ = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(far_, 0);
    ASSERT_EQ(grantpt(far_), 0);
    ASSERT_EQ(unlockpt(far_), 0);
    near_ = open(ptsname(far_), O_RDWR | O_NOCTTY);
    ASSERT_GE(near_, 0);
    directory.write("table.csv", table);
    directory.write("program.qz", "DFN 'table.csv';\nLDX DPT;\nGRA FULL;\nLDX GPT;\n");
  }
  void TearDown() override {
    close(near_);
    close(far_);
  }
  /// What has arrived; waits for `wanted` to be in it, a minute at most.
  std::string shown(const std::string& wanted = "") const {
    std::string text;
    char buffer[4096];
    pollfd waiting{far_, POLLIN, 0};
    const auto patience = [&] { return text.find(wanted) == std::string::npos ? 60000 : 0; };
    while (poll(&waiting, 1, patience()) == 1 && (waiting.revents & POLLIN) != 0) {
      const ssize_t count = ::read(far_, buffer, sizeof buffer);
      if (count <= 0) break;
      text.append(buffer, static_cast<std::size_t>(count));
    }
    return text;
  }

  int far_ = -1;
  int near_ = -1;
};

TEST_F(ToolOnATerminal, ShowsTagDoneTotalAndRate) {
  EXPECT_EQ(qz({"run", "program.qz"}, near_).status, 0);
  const std::string text = shown();
  EXPECT_THAT(text, MatchesRegex("\rGRAPH \\[[#.]*\\] [0-9]+/[0-9]+ [0-9.]+[kMG]?/s.*"));
  EXPECT_THAT(text, testing::EndsWith("\r\033[K"));
}

TEST_F(ToolOnATerminal, AnInterruptEndsTheRunWithTheBestUpToThen) {
  directory.write("program.qz",
                  "DFN 'table.csv';\nLDX DPT;\nGRA CHAIN;\nLDX GPT;\nMODEL;\nALG FL1;\nSTP 0.1\n"
                  "EPO 0\nMIO 1000000000000\nESTIMATE;\nGP0 1\n");
  const qz_test::Process process({QZ_TOOL, "run", "program.qz", "--print", "GP0"}, directory.path(),
                                 near_);
  EXPECT_THAT(shown("["), StartsWith("\rESTIMATE ["));
  process.send(SIGINT);
  const Outcome outcome = process.wait();
  EXPECT_EQ(outcome.status, 130);
  EXPECT_EQ(outcome.out, "GP0  1\n");
  EXPECT_THAT(shown(), HasSubstr("qz: interrupted"));
}

TEST_F(ToolOnATerminal, ShowsNothingWhenQuiet) {
  EXPECT_EQ(qz({"run", "program.qz", "--quiet"}, near_).status, 0);
  EXPECT_EQ(shown(), "");
}

}  // namespace
