/// The instruction language, through the exported functions.

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "support/program.h"
#include "support/temp_file.h"

namespace {

using qz_test::failure_of;
using qz_test::logic_error;
using qz_test::Program;
using qz_test::TempFile;

using Lines = std::vector<std::string>;

/// The word of a register after the lines have run on a fresh context.
std::uint64_t word_after(const Lines& lines, const char* name) { return Program(lines).word(name); }

// Lines.

TEST(Language, ACommentStartsInTheFirstColumn) {
  EXPECT_EQ(failure_of({"# comment", "#INC GP0"}), std::nullopt);
  EXPECT_EQ(failure_of({" # comment"}), logic_error("unknown syntax error"));
}

TEST(Language, EverythingBehindASemicolonIsARemark) {
  const Program program({"INC MIO; INC MIO; any text"});
  EXPECT_EQ(program.word("MIO"), 1001u);
}

TEST(Language, ASemicolonAloneIsHarmless) {
  EXPECT_EQ(failure_of({";", "  ;", "\t;", "SET;", "INC MIO;", ";"}), std::nullopt);
  EXPECT_EQ(word_after({"INC MIO;", ";"}, "MIO"), 1001u);
}

TEST(Language, BlanksMayLeadALine) { EXPECT_EQ(word_after({" \tINC MIO;"}, "MIO"), 1001u); }

TEST(Language, AnOperationEndsOnItsOwnLine) {
  EXPECT_EQ(failure_of({"INC GP0", ";"}), logic_error("unexpected end of line"));
  Program program;
  EXPECT_EQ(program.attempt({"INC GP0"}), logic_error("unexpected end of line"));
  EXPECT_EQ(program.real("GP0"), 0.0);
}

// Operations.

TEST(Language, ABlankBehindTheOperandsRedirectsToTheScratchRegister) {
  const Program program({"INC GP0 ;"});
  EXPECT_EQ(program.real("GP0"), 0.0);
  EXPECT_EQ(program.real("NOOP"), 1.0);
  EXPECT_EQ(Program({"INC GP0;"}).real("GP0"), 1.0);
}

TEST(Language, BlanksInsideTheOperandsAreHarmless) {
  const Program program({"GP1 3", "ADD \t GP0 \t GP1;"});
  EXPECT_EQ(program.real("GP0"), 3.0);
}

TEST(Language, BlanksBetweenOperandsMayBeLeftOut) {
  EXPECT_EQ(Program({"GP1 3", "ADDGP0GP1;"}).real("GP0"), 3.0);
}

TEST(Language, AnAssignmentBehindAWaitingOperationTakesItsOperand) {
  const Program program({"INC GP0 MIO 5;"});
  EXPECT_EQ(program.word("MIO"), 6u);
  EXPECT_EQ(program.real("GP0"), 0.0);
}

TEST(Language, ALaterOperationReplacesAWaitingOne) {
  const Program program({"INC GP0 DEC MIO;"});
  EXPECT_EQ(program.real("GP0"), 0.0);
  EXPECT_EQ(program.word("MIO"), 999u);
}

// Assignments.

TEST(Language, AnAssignmentNeedsNoSemicolonAndNoBlank) {
  EXPECT_EQ(word_after({"MIO 500"}, "MIO"), 500u);
  EXPECT_EQ(word_after({"MIO 500;"}, "MIO"), 500u);
  EXPECT_EQ(word_after({"MIO500;"}, "MIO"), 500u);
  EXPECT_EQ(word_after({"MIO\t 500 ;"}, "MIO"), 500u);
}

TEST(Language, SeveralAssignmentsFitOnOneLine) {
  const Program program({"MIO 5 MIL 6 GP0 1.5"});
  EXPECT_EQ(program.word("MIO"), 5u);
  EXPECT_EQ(program.word("MIL"), 6u);
  EXPECT_EQ(program.real("GP0"), 1.5);
}

TEST(Language, ATextLosesItsFirstAndLastCharacter) {
  EXPECT_EQ(Program({"MFN 'model.dat';"}).text("MFN"), "model.dat");
  EXPECT_EQ(Program({"MFN model.dat;"}).text("MFN"), "odel.da");
}

TEST(Language, EitherMarkClosesAQuotation) {
  EXPECT_EQ(Program({"MFN 'a;b c\";"}).text("MFN"), "a;b c");
  EXPECT_EQ(Program({"MFN \"a;b c';"}).text("MFN"), "a;b c");
  EXPECT_EQ(failure_of({"MFN \"it's\""}), logic_error("unknown syntax error"));
}

TEST(Language, AQuotationThatIsNotClosedRunsToTheEndOfTheLine) {
  EXPECT_EQ(Program({"MFN 'a;b"}).text("MFN"), "a;");
}

TEST(Language, ACharacterStandsInQuotationMarks) {
  EXPECT_EQ(word_after({"SEP ';';"}, "SEP"), std::uint64_t(';'));
  EXPECT_EQ(word_after({"MIS ' '"}, "MIS"), std::uint64_t(' '));
  EXPECT_EQ(word_after({"MIS ab"}, "MIS"), std::uint64_t('b'));
}

TEST(Language, ProgramTextMaySetTheSeparatorToABar) {
  EXPECT_EQ(word_after({"SEP '|';"}, "SEP"), 124u);
}

TEST(Language, ABooleanIsTrueForThreeTokensOnly) {
  for (const char* token : {"false", "0", "no", "True", "yes", "2"}) {
    EXPECT_EQ(word_after({std::string("HED ") + token + ";"}, "HED"), 0u) << token;
  }
  for (const char* token : {"true", "TRUE", "1"}) {
    EXPECT_EQ(word_after({std::string("OVW ") + token + ";"}, "OVW"), 1u) << token;
  }
  EXPECT_EQ(word_after({"HED ;"}, "HED"), 0u);
}

TEST(Language, ARealNumberIsReadInAnyStandardForm) {
  EXPECT_EQ(Program({"LAM -2.5e-3;"}).real("LAM"), -2.5e-3);
  EXPECT_EQ(Program({"LAM 0x10;"}).real("LAM"), 16.0);
}

TEST(Language, APointerIsADecimalNumber) {
  std::string text = "a,b\n-\nx,y\n";
  const auto address = std::to_string(reinterpret_cast<std::uintptr_t>(&text));
  EXPECT_EQ(word_after({"EDP " + address, "LDX DPT;"}, "NXX"), 1u);
}

TEST(Language, ARegisterIsFoundByTheStartOfAName) {
  Program program;
  EXPECT_EQ(program.attempt({"LAMBDA 5"}), qz_test::invalid_argument("stod"));
  Program device;
  EXPECT_EQ(device.attempt({"DEVICE 3"}), qz_test::invalid_argument("stoul"));
  EXPECT_EQ(word_after({"DEV 3"}, "DEV"), 3u);
}

TEST(Language, AssignmentsBeforeAnErrorStay) {
  Program program;
  EXPECT_EQ(program.attempt({"MIO 5 nonsense"}), logic_error("unknown syntax error"));
  EXPECT_EQ(program.word("MIO"), 5u);
}

TEST(Language, TheThreadCountIsRegisterAndSetting) { EXPECT_EQ(word_after({"OMP 1;"}, "OMP"), 1u); }

TEST(Language, ASeedRepeatsTheDraws) {
  const Lines lines = {"SEED 5", "MOV GP0 RND;", "MOV GP1 RND;", "MOV GP2 UNI;"};
  const Program a(lines);
  const Program b(lines);
  for (const char* name : {"GP0", "GP1", "GP2"}) EXPECT_EQ(a.real(name), b.real(name)) << name;
  EXPECT_NE(a.real("GP0"), a.real("GP1"));
}

// Setters.

TEST(Language, ASetterTakesANameOrANumber) {
  EXPECT_EQ(word_after({"val_t FLT32;"}, "VAL"), 4u);
  EXPECT_EQ(word_after({"val_t 4;"}, "VAL"), 4u);
  EXPECT_EQ(word_after({"val_t FLTMPREC;"}, "VAL"), 6u);
  EXPECT_EQ(word_after({"idx_t UINT16;"}, "IDX"), 1u);
  EXPECT_EQ(word_after({"idx_tUINT16;"}, "IDX"), 1u);
  EXPECT_EQ(word_after({"idx_t \t 2;"}, "IDX"), 2u);
  EXPECT_EQ(word_after({"REP ISING;"}, "REP"), 12u);
  EXPECT_EQ(word_after({"REP STINVQUAD;"}, "REP"), 6u);
  EXPECT_EQ(word_after({"FMT FG;"}, "FMT"), 2u);
  EXPECT_EQ(word_after({"GRA RNDCLIQUES;"}, "GRA"), 13u);
  EXPECT_EQ(word_after({"GRA STAR;"}, "GRA"), 3u);
  EXPECT_EQ(word_after({"GRA ST;"}, "GRA"), 11u);
}

TEST(Language, ASetterTakesANameWithoutASemicolon) {
  EXPECT_EQ(word_after({"val_t FLT32"}, "VAL"), 4u);
}

TEST(Language, ASetterWithoutASemicolonLosesTheLastDigit) {
  EXPECT_EQ(word_after({"val_t 5"}, "VAL"), 0u);
  EXPECT_EQ(word_after({"REP 12"}, "REP"), 1u);
}

TEST(Language, ASetterReadsNothingAsZero) {
  EXPECT_EQ(word_after({"val_t ;"}, "VAL"), 0u);
  EXPECT_EQ(word_after({"ALG ;"}, "INF"), 0u);
}

TEST(Language, ASetterRefusesANumberThatIsNotInItsTable) {
  EXPECT_EQ(failure_of({"val_t 53;"}), logic_error("parser error"));
  EXPECT_EQ(failure_of({"idx_t 4;"}), logic_error("parser error"));
}

TEST(Language, ARemarkIsSafeBehindANameOnly) {
  EXPECT_EQ(word_after({"val_t FLT32; # a remark"}, "VAL"), 4u);
  EXPECT_EQ(failure_of({"val_t 4; # a remark"}), logic_error("parser error"));
}

TEST(Language, TheKeywordForAlgorithmsSetsEngineOrOptimizer) {
  EXPECT_EQ(word_after({"ALG 2;"}, "INF"), 2u);
  EXPECT_EQ(word_after({"ALG SQM;"}, "INF"), 2u);
  const Program number({"ALG JT;", "ALG 5;"});
  EXPECT_EQ(number.word("OPT"), 5u);
  EXPECT_EQ(number.word("INF"), 1u);
  EXPECT_EQ(word_after({"ALG GD;"}, "OPT"), 4u);
  EXPECT_EQ(word_after({"ALG EXTO;"}, "OPT"), 9u);
  EXPECT_EQ(failure_of({"ALG 10;"}), logic_error("parser error"));
}

TEST(Language, ASetterBehindItsNumberMayEndTheLine) {
  // The name of the row is longer than the digits and the rest of the line.
  const Program program({"GRA 13;", "INC MIO;"});
  EXPECT_EQ(program.word("GRA"), 13u);
  EXPECT_EQ(program.word("MIO"), 1001u);
}

TEST(Language, AKeywordHidesTheRegisterOfItsName) {
  EXPECT_EQ(failure_of({"REP 500;"}), logic_error("parser error"));
  EXPECT_EQ(word_after({"INF 7"}, "INF"), 7u);
  EXPECT_EQ(word_after({"OPT 7"}, "OPT"), 7u);
}

// Programs.

TEST(Language, BranchesMakeLoops) {
  const Program program({"GP1 5", "GP9 1", "INC GP0;", "ADD GP3 GP0;", "BLT GP0 GP1 GP9;"});
  EXPECT_EQ(program.real("GP3"), 15.0);
  EXPECT_EQ(program.word("LNN"), 5u);
}

TEST(Language, ABranchSkipsLines) {
  const Program program({"GP0 2", "BNZ GP0 GP0;", "nonsense", "MIO 3"});
  EXPECT_EQ(program.word("MIO"), 3u);
}

TEST(Language, TheStackReversesItsValues) {
  const Program program({"GP0 1", "GP1 2", "PUSH GP0;", "PUSH GP1;", "POP GP0;", "POP GP1;"});
  EXPECT_EQ(program.real("GP0"), 2.0);
  EXPECT_EQ(program.real("GP1"), 1.0);
}

TEST(Language, APoppedRealWritesItsBits) {
  const Program program({"GP0 1.5", "PUSH GP0;", "POP MIO;", "PUSH ONE;", "POP MIL;"});
  EXPECT_EQ(program.word("MIO"), std::bit_cast<std::uint64_t>(1.5));
  EXPECT_EQ(program.word("MIL"), 1u);
}

TEST(Language, DeletingAnEmptyRegisterIsHarmless) {
  EXPECT_EQ(
      failure_of({"DEL DFN;", "DEL MFN;", "DEL GFN;", "DEL GPS;", "DEL LFN;", "DEL NAM;",
                  "DEL OTHERFN;", "DEL LPT;", "DEL MPT;", "DEL GPT;", "DEL DPT;", "DEL PPT;"}),
      std::nullopt);
}

TEST(Language, TablesAreLoadedStoredAndDeleted) {
  const TempFile in(".csv", "a,b\n\nx,y\nz,y\n");
  const TempFile out(".csv");
  Program program({"DFN '" + in.path() + "';", "LDX DPT;", "DEL DFN;", "DFN '" + out.path() + "';",
                   "STORE DPT;", "DEL DPT;"});
  EXPECT_EQ(program.word("NXX"), 2u);
  EXPECT_EQ(program.word("DPT"), 0u);
  EXPECT_EQ(out.read(), "a,b\nx,y\nz,y\n");
}

TEST(Language, StoringOverAFileNeedsPermission) {
  const TempFile file(".csv", "a,b\n\nx,y\n");
  const Lines load = {"DFN '" + file.path() + "';", "LDX DPT;"};
  Lines refused = load;
  refused.push_back("STORE DPT;");
  EXPECT_EQ(failure_of(refused), logic_error("overwrite disabled but modelfile exists", 2));
  Lines allowed = load;
  allowed.insert(allowed.end(), {"OVW true;", "STORE DPT;"});
  EXPECT_EQ(failure_of(allowed), std::nullopt);
  EXPECT_EQ(file.read(), "a,b\nx,y\n");
}

TEST(Language, GraphsAreMadeForTheDataAndDeleted) {
  const TempFile file(".csv", "a,b,c\n\nx,y,z\n");
  const Program program({"DFN '" + file.path() + "';", "LDX DPT;", "GRA FULL;", "LDX GPT;",
                         "MOV GP0 GVX;", "MOV GP1 GEX;", "DEL GPT;"});
  EXPECT_EQ(program.real("GP0"), 3.0);
  EXPECT_EQ(program.real("GP1"), 3.0);
  EXPECT_EQ(program.word("GPT"), 0u);
}

TEST(Language, APairOfTypesThatDoesNotExistDoesNothing) {
  const TempFile file(".csv", "a,b,c\n\nx,y,z\n");
  const Program program({"idx_t UINT16;", "val_t UINT8;", "DFN '" + file.path() + "';", "LDX DPT;",
                         "GRA CHAIN;", "LDX GPT;"});
  EXPECT_EQ(program.word("DPT"), 0u);
  EXPECT_EQ(program.word("GPT"), 0u);
}

}  // namespace
