#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "QZ/machine/vm.h"
#include "support/statements.h"
#include "support/temp_file.h"

namespace {

using QZ::vm_t;
using enum QZ::VarType;
using qz_test::execute;
using qz_test::message_of;
using qz_test::TempFile;

class Executor : public testing::Test {
 protected:
  void execute(const std::string& line) { qz_test::execute(vm, line); }
  std::string failure(const std::string& line) {
    return message_of([&] { execute(line); });
  }
  vm_t vm;
};

TEST_F(Executor, StoresANumberAsTheClassOfItsTargetHasIt) {
  vm.set(GP0, 3.75);
  execute("MOV MIO GP0;");
  EXPECT_EQ(vm.get(MIO), 3u);
  vm.set(GP0, -3.75);
  execute("MOV MIO GP0;");
  EXPECT_EQ(vm.get(MIO), 0u);
  vm.set(GP0, 1e30);
  execute("MOV MIO GP0;");
  EXPECT_EQ(vm.get(MIO), ~0ul);
  vm.set(GP0, std::numeric_limits<double>::quiet_NaN());
  execute("MOV MIO GP0;");
  EXPECT_EQ(vm.get(MIO), 0u);
  vm.set(MIO, 12ul);
  execute("MOV GP1 MIO;");
  EXPECT_EQ(vm.getR(GP1), 12.0);
}

TEST_F(Executor, LosesLowBitsAbove53) {
  vm.set(MIL, (1ul << 53) + 1);
  execute("MOV MIO MIL;");
  EXPECT_EQ(vm.get(MIO), 1ul << 53);
  execute("INC MIL;");
  EXPECT_EQ(vm.get(MIL), 1ul << 53);
}

TEST_F(Executor, MovesAPointerByItsIntegerValue) {
  vm.set(EIP, 4096ul);
  execute("MOV HPT EIP;");
  EXPECT_EQ(vm.get(HPT), 4096u);
}

TEST_F(Executor, MovesThroughTheIntegerWriteWithItsSideEffects) {
  vm.set(GP0, 11.0);
  execute("MOV SEED GP0;");
  vm_t other;
  other.set(SEED, 11ul);
  EXPECT_EQ(vm.getR(UNI), other.getR(UNI));
}

TEST_F(Executor, AddsAndMultipliesIntoTheFirst) {
  vm.set(GP0, 1.5);
  vm.set(MIO, 4ul);
  execute("ADD GP0 MIO;");
  EXPECT_EQ(vm.getR(GP0), 5.5);
  execute("MUL GP0 GP0;");
  EXPECT_EQ(vm.getR(GP0), 30.25);
  execute("MUL MIO GP0;");
  EXPECT_EQ(vm.get(MIO), 121u);
  execute("ADD MIO ONE;");
  EXPECT_EQ(vm.get(MIO), 122u);
}

TEST_F(Executor, ReadsABooleanOperandAsARealNumber) {
  vm.set(GP0, 2.0);
  execute("ADD GP0 HED;");
  EXPECT_EQ(vm.getR(GP0), 2.0 + std::bit_cast<double>(1ul));
}

TEST_F(Executor, StepsByOne) {
  execute("INC MIO;");
  EXPECT_EQ(vm.get(MIO), 1001u);
  vm.set(MIO, 1ul);
  execute("DEC MIO;");
  EXPECT_EQ(vm.get(MIO), 0u);
  execute("DEC MIO;");
  EXPECT_EQ(vm.get(MIO), 0u);
  execute("INC GP0;");
  EXPECT_EQ(vm.getR(GP0), 1.0);
  execute("DEC GP0;");
  execute("DEC GP0;");
  EXPECT_EQ(vm.getR(GP0), -1.0);
  vm.set(MIO, ~0ul);
  execute("INC MIO;");
  EXPECT_EQ(vm.get(MIO), ~0ul);
}

TEST_F(Executor, StepsAnyOtherClassAsARealNumber) {
  execute("INC HED;");
  EXPECT_EQ(vm.getR(HED), std::bit_cast<double>(1ul) + 1.0);
}

TEST_F(Executor, BranchesByWritingTheProgramCounter) {
  vm.set(MIL, 41ul);
  execute("BRA MIL;");
  EXPECT_EQ(vm.get(LNN), 41u);
  vm.set(GP0, 7.9);
  execute("BRA GP0;");
  EXPECT_EQ(vm.get(LNN), 7u);
  vm.set(GP0, -1.0);
  execute("BRA GP0;");
  EXPECT_EQ(vm.get(LNN), 0u);
}

TEST_F(Executor, BranchesOnConditionsOfNumbers) {
  const auto taken = [&](const std::string& line) {
    vm.set(LNN, 1ul);
    execute(line);
    return vm.get(LNN) == 20;
  };
  vm.set(GP9, 20.0);
  vm.set(GP0, 0.0);
  vm.set(GP1, 0.5);
  vm.set(MIO, 0ul);
  EXPECT_FALSE(taken("BNZ GP0 GP9;"));
  EXPECT_FALSE(taken("BNZ MIO GP9;"));
  EXPECT_TRUE(taken("BNZ GP1 GP9;"));
  EXPECT_TRUE(taken("BLT GP0 GP1 GP9;"));
  EXPECT_FALSE(taken("BLT GP1 GP1 GP9;"));
  EXPECT_FALSE(taken("BLT GP1 GP0 GP9;"));
  EXPECT_TRUE(taken("BLT GP1 ONE GP9;"));
  EXPECT_FALSE(taken("BNE GP0 MIO GP9;"));
  EXPECT_TRUE(taken("BNE GP0 GP1 GP9;"));
  vm.set(GP2, std::numeric_limits<double>::quiet_NaN());
  EXPECT_TRUE(taken("BNE GP2 GP2 GP9;"));
  EXPECT_TRUE(taken("BNZ GP2 GP9;"));
  EXPECT_FALSE(taken("BLT GP2 GP1 GP9;"));
}

TEST_F(Executor, ReadsTheTargetEvenIfItDoesNotBranch) {
  vm_t other;
  vm.set(SEED, 4ul);
  other.set(SEED, 4ul);
  execute("BNZ GP0 UNI;");
  other.getR(UNI);
  EXPECT_EQ(vm.getR(UNI), other.getR(UNI));
  EXPECT_EQ(vm.get(LNN), 0u);
}

TEST_F(Executor, DrawsForEveryOperandThatIsRandom) {
  vm_t other;
  vm.set(SEED, 4ul);
  other.set(SEED, 4ul);
  execute("ADD GP0 UNI;");
  EXPECT_EQ(vm.getR(GP0), other.getR(UNI));
}

TEST_F(Executor, PopsInTheOrderOfAStack) {
  vm.set(GP0, 1.0);
  vm.set(GP1, 2.0);
  execute("PUSH GP0;");
  execute("PUSH GP1;");
  execute("POP GP2;");
  execute("POP GP3;");
  EXPECT_EQ(vm.getR(GP2), 2.0);
  EXPECT_EQ(vm.getR(GP3), 1.0);
}

TEST_F(Executor, PopsByTheClassOfTheEntry) {
  vm.set(GP0, 1.5);
  execute("PUSH GP0;");
  execute("POP MIO;");
  EXPECT_EQ(vm.get(MIO), std::bit_cast<unsigned long>(1.5));
  execute("PUSH ONE;");
  execute("POP GP1;");
  EXPECT_EQ(vm.word(GP1), 1u);
}

TEST_F(Executor, PopsOneByteOfABoolean) {
  vm.set(HED, 0x1ff01ul);
  execute("PUSH HED;");
  execute("POP MIO;");
  EXPECT_EQ(vm.get(MIO), 1u);
}

TEST_F(Executor, PopsABooleanOrPointerWithoutSideEffects) {
  vm.set(HPT, 124ul);
  execute("PUSH HPT;");
  execute("POP SEP;");
  EXPECT_EQ(vm.get(SEP), 124u);
  vm.set(MIO, 124ul);
  execute("PUSH MIO;");
  EXPECT_EQ(failure("POP SEP;"), "separator | not supported");
}

TEST_F(Executor, LosesAPushedCharacter) {
  execute("PUSH SEP;");
  execute("POP MIO;");
  EXPECT_EQ(vm.get(MIO), 1000u);
  EXPECT_EQ(failure("POP MIO;"), "the stack is empty");
}

TEST_F(Executor, SharesAPushedText) {
  execute("MFN 'a';");
  execute("PUSH MFN;");
  execute("POP GFN;");
  EXPECT_EQ(vm.get(MFN), vm.get(GFN));
  vm.set(GFN, 0ul);
}

TEST_F(Executor, EmptiesTheStack) {
  execute("PUSH ONE;");
  execute("CLEARSTACK;");
  EXPECT_EQ(failure("POP GP0;"), "the stack is empty");
}

TEST_F(Executor, AResetEmptiesTheStack) {
  execute("PUSH ONE;");
  vm.reset();
  EXPECT_EQ(failure("POP GP0;"), "the stack is empty");
}

TEST_F(Executor, TestsRequirementsInOrder) {
  const std::pair<const char*, const char*> firsts[] = {
      {"ESTIMATE;", "no model loaded"},     {"STATS;", "no model loaded"},
      {"MODEL;", "no graph loaded"},        {"INFER;", "no graph loaded"},
      {"PREDICT;", "no model loaded"},      {"SCORE;", "no model loaded"},
      {"SAMPLE;", "no model loaded"},       {"STGRAPH;", "no graph loaded"},
      {"JUNCTIONTREE;", "no graph loaded"}, {"BOLTZMANNTREE;", "no graph loaded"},
      {"BASEGRAPH;", "no graph loaded"},    {"INITLATENT;", "no graph loaded"},
      {"CLOSEDFORM;", "no graph loaded"},   {"INITGAUSS;", "no model loaded"},
      {"INITZERO;", "no model loaded"}};
  for (const auto& [line, message] : firsts) EXPECT_EQ(failure(line), message) << line;
}

TEST_F(Executor, TestsTheSecondRequirementToo) {
  vm.set(GPT, QZ::placeholder);
  EXPECT_EQ(failure("MODEL;"), "no data loaded");
  EXPECT_EQ(failure("INITLATENT;"), "no data loaded");
  EXPECT_EQ(failure("INFER;"), "no model loaded");
  EXPECT_EQ(failure("CLOSEDFORM;"), "no model loaded");
  vm.set(GPT, 0ul);
  vm.set(MPT, QZ::placeholder);
  EXPECT_EQ(failure("STATS;"), "no graph loaded");
  EXPECT_EQ(failure("PREDICT;"), "no data loaded");
  EXPECT_EQ(failure("SCORE;"), "no data loaded");
}

// Dry runs.

TEST_F(Executor, ADryRunLeavesPlaceholders) {
  vm.set_dry_run(true);
  vm.set(GPT, QZ::placeholder);
  vm.set(DPT, QZ::placeholder);
  execute("MODEL;");
  EXPECT_EQ(vm.word(MPT), QZ::placeholder);
  execute("INFER;");
  EXPECT_EQ(vm.word(PPT), QZ::placeholder);
  vm.set(DPT, 0ul);
  execute("SAMPLE;");
  EXPECT_EQ(vm.word(DPT), QZ::placeholder);
  vm.set(MPT, QZ::placeholder);
  execute("STATS;");
  EXPECT_EQ(vm.word(MPT), QZ::placeholder);
}

TEST_F(Executor, ADryRunChecksAndDoesNothingElse) {
  vm.set_dry_run(true);
  EXPECT_EQ(failure("ESTIMATE;"), "no model loaded");
  vm.set(GPT, QZ::placeholder);
  vm.set(DPT, QZ::placeholder);
  vm.set(MPT, QZ::placeholder);
  for (const char* line :
       {"ESTIMATE;", "PREDICT;", "SCORE;", "STGRAPH;", "BOLTZMANNTREE;", "JUNCTIONTREE;",
        "BASEGRAPH;", "INITLATENT;", "CLOSEDFORM;", "INITGAUSS;", "INITZERO;"}) {
    EXPECT_EQ(failure(line), "") << line;
  }
  EXPECT_EQ(vm.word(RES), 0u);
}

TEST_F(Executor, ADryRunLoadsAndDeletesPlaceholders) {
  vm.set_dry_run(true);
  const TempFile file(".any", "x");
  for (const char* name : {"MFN", "GFN", "DFN"}) execute(name + (" '" + file.path() + "';"));
  execute("LDX MPT;");
  EXPECT_EQ(vm.word(MPT), QZ::placeholder);
  EXPECT_EQ(vm.word(GPT), QZ::placeholder);
  execute("DEL GPT;");
  execute("LDX GPT;");
  EXPECT_EQ(vm.word(GPT), QZ::placeholder);
  execute("LDX DPT;");
  EXPECT_EQ(vm.word(DPT), QZ::placeholder);
  vm.set(PPT, QZ::placeholder);
  for (const char* name : {"MPT", "GPT", "DPT", "PPT"}) execute(std::string("DEL ") + name + ";");
  for (const auto var : {MPT, GPT, DPT, PPT}) EXPECT_EQ(vm.word(var), 0u);
}

TEST_F(Executor, ADryRunStoresNothing) {
  vm.set_dry_run(true);
  const TempFile file(".any");
  for (const char* name : {"MFN", "GFN", "DFN"}) execute(name + (" '" + file.path() + "';"));
  for (const auto var : {MPT, GPT, DPT}) vm.set(var, QZ::placeholder);
  for (const char* name : {"MPT", "GPT", "DPT"}) execute(std::string("STORE ") + name + ";");
  EXPECT_EQ(file.read(), "");
  file.write("kept");
  EXPECT_EQ(failure("STORE MPT;"), "overwrite disabled but modelfile exists");
}

// A placeholder where an object is read.

TEST_F(Executor, APlaceholderIsRefusedWhereAnObjectIsRead) {
  const TempFile file(".any");
  for (const char* name : {"MFN", "GFN", "DFN"}) execute(name + (" '" + file.path() + "';"));
  execute("GRA CHAIN;");
  for (const auto var : {MPT, GPT, DPT}) vm.set(var, QZ::placeholder);
  EXPECT_EQ(failure("STORE MPT;"), "no object loaded MPT");
  EXPECT_EQ(failure("STORE GPT;"), "no object loaded MPT");
  EXPECT_EQ(failure("STORE DPT;"), "no object loaded DPT");
  EXPECT_EQ(failure("LDX GPT;"), "no object loaded MPT");
}

TEST_F(Executor, AGraphIsNotStoredWithoutAModel) {
  const TempFile file(".any");
  execute("GFN '" + file.path() + "';");
  vm.set(GVX, 3ul);
  execute("GRA CHAIN;");
  execute("LDX GPT;");
  EXPECT_EQ(failure("STORE GPT;"), "no model loaded");
}

}  // namespace
