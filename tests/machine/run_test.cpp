#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "QZ/machine/vm.h"
#include "support/statements.h"

namespace {

using QZ::vm_t;
using enum QZ::VarType;
using qz_test::message_of;

using Lines = std::vector<std::string>;

class Run : public testing::Test {
 protected:
  ~Run() override { vm.release_code(); }
  void install(const Lines& lines) {
    std::vector<const char*> texts;
    for (const std::string& line : lines) texts.push_back(line.c_str());
    ASSERT_EQ(vm.setCode(texts.data(), texts.size()), 1);
  }
  unsigned char run(const Lines& lines) {
    install(lines);
    return vm.run();
  }
  vm_t vm;
};

TEST_F(Run, WithoutAProgramIsRefusedAndHarmless) {
  EXPECT_THROW(vm.run(), std::logic_error);
  EXPECT_EQ(message_of([&] { vm.run(); }), "no program set");
  EXPECT_EQ(run({"MIO 5"}), 1);
  EXPECT_EQ(vm.get(MIO), 5u);
}

TEST_F(Run, AnEmptyProgramEndsAtOnce) {
  EXPECT_EQ(run({}), 1);
  EXPECT_EQ(vm.get(LNN), 0u);
}

TEST_F(Run, EveryLineAdvancesTheProgramCounter) {
  EXPECT_EQ(run({"# a comment", "", "MIO 5", "#", "MIL 6;"}), 1);
  EXPECT_EQ(vm.get(LNN), 5u);
  EXPECT_EQ(vm.get(MIO), 5u);
  EXPECT_EQ(vm.get(MIL), 6u);
}

TEST_F(Run, AFinishedProgramDoesNotRunAgain) {
  EXPECT_EQ(run({"INC MIO;"}), 1);
  EXPECT_EQ(vm.run(), 1);
  EXPECT_EQ(vm.get(MIO), 1001u);
}

TEST_F(Run, StartsFromTheProgramCounter) {
  install({"INC MIO;", "INC MIL;"});
  EXPECT_EQ(vm.write_register("LNN", 1), 1);
  EXPECT_EQ(vm.run(), 1);
  EXPECT_EQ(vm.get(MIO), 1000u);
  EXPECT_EQ(vm.get(MIL), 1001u);
}

TEST_F(Run, AProgramCounterBeyondTheEndIsAnEnd) {
  install({"INC MIO;"});
  vm.set(LNN, ~0ul);
  EXPECT_EQ(vm.run(), 1);
  EXPECT_EQ(vm.get(LNN), ~0ul);
}

TEST_F(Run, ABranchGoesOnBehindItsTarget) {
  EXPECT_EQ(run({"GP0 2", "BRA GP0;", "INC MIO;", "INC MIL;"}), 1);
  EXPECT_EQ(vm.get(MIO), 1000u);
  EXPECT_EQ(vm.get(MIL), 1001u);
}

TEST_F(Run, ABranchToTheProgramCounterDoesNothing) {
  EXPECT_EQ(run({"MIO 3", "BRA LNN;", "INC MIO;"}), 1);
  EXPECT_EQ(vm.get(MIO), 4u);
}

TEST_F(Run, AProgramEndsItselfByMovingItsCounter) {
  EXPECT_EQ(run({"GP0 100", "MOV LNN GP0;", "INC MIO;"}), 1);
  EXPECT_EQ(vm.get(MIO), 1000u);
  EXPECT_EQ(vm.get(LNN), 101u);
}

TEST_F(Run, LoopsCount) {
  // The body is line 3; the branch in line 5 goes back to it.
  EXPECT_EQ(run({"GP0 0", "GP1 10", "GP2 2", "INC GP0;", "ADD GP3 GP0;", "BLT GP0 GP1 GP2;"}), 1);
  EXPECT_EQ(vm.getR(GP0), 10.0);
  EXPECT_EQ(vm.getR(GP3), 55.0);
}

TEST_F(Run, AResetKeepsTheProgram) {
  EXPECT_EQ(run({"INC MIO;"}), 1);
  EXPECT_EQ(vm.reset(), 1);
  EXPECT_EQ(vm.get(LNN), 0u);
  EXPECT_EQ(vm.run(), 1);
  EXPECT_EQ(vm.get(MIO), 1001u);
}

TEST_F(Run, EndsADryRun) {
  vm.set_dry_run(true);
  EXPECT_EQ(run({"GRA CHAIN;", "GVX 3", "LDX GPT;"}), 1);
  EXPECT_EQ(vm.get(GEX), 2u);
}

TEST_F(Run, ANewProgramReplacesTheOldAndRewinds) {
  EXPECT_EQ(run({"INC MIO;", "INC MIO;"}), 1);
  EXPECT_EQ(run({"INC MIL;"}), 1);
  EXPECT_EQ(vm.get(MIO), 1002u);
  EXPECT_EQ(vm.get(MIL), 1001u);
}

TEST_F(Run, ANullLineThrows) {
  const char* lines[] = {"MIO 5", nullptr};
  EXPECT_THROW(vm.setCode(lines, 2), std::logic_error);
  EXPECT_THROW(vm.setCode(static_cast<const char* const*>(nullptr), 1), std::logic_error);
  EXPECT_EQ(vm.setCode(static_cast<const char* const*>(nullptr), 0), 1);
  EXPECT_EQ(vm.run(), 1);
}

TEST_F(Run, AFailureFinishesTheMachine) {
  install({"MIO 5", "nonsense"});
  EXPECT_EQ(message_of([&] { vm.run(); }), "unknown syntax error");
  EXPECT_EQ(vm.run(), 0);
  EXPECT_EQ(vm.reset(), 0);
  EXPECT_EQ(vm.write_register("MIO", 7), 0);
  const char* lines[] = {"MIO 6"};
  EXPECT_EQ(vm.setCode(lines, 1), 0);
  Lines list = {"MIO 6"};
  EXPECT_FALSE(vm.setCode(&list));
  EXPECT_EQ(vm.read_register("LNN"), 1);
  EXPECT_EQ(vm.read_register("MIO"), 5);
}

// What a caller gets from inside a run, through a callback.

TEST_F(Run, RefusesWritesFromInside) {
  static vm_t* machine;
  static std::vector<long> answers;
  machine = &vm;
  answers.clear();
  const QZ::ProgressCallback callback = [](std::size_t, std::size_t, const char*) {
    const char* lines[] = {"MIO 6"};
    answers = {machine->run(), machine->reset(), machine->setCode(lines, 1),
               machine->write_register("MIO", 7), machine->read_register("MIO")};
  };
  vm.set(CBP, reinterpret_cast<void*>(callback));
  EXPECT_EQ(run({"GVX 3", "GRA FULL;", "LDX GPT;", "INC MIO;"}), 1);
  EXPECT_EQ(answers, (std::vector<long>{0, 0, 0, 0, 1000}));
  EXPECT_EQ(vm.get(MIO), 1001u);
}

TEST_F(Run, MayBePolledFromAnotherThread) {
  vm.set(MIL, 0ul);
  std::atomic<bool> done = false;
  bool ordered = true;
  long last = 0;
  std::thread poller([&] {
    while (!done) {
      const long seen = vm.read_register("MIL");
      ordered = ordered && seen >= last;
      last = seen;
    }
  });
  EXPECT_EQ(run({"MIO 20000", "GP2 1", "INC MIL;", "BLT MIL MIO GP2;"}), 1);
  done = true;
  poller.join();
  EXPECT_EQ(vm.get(MIL), 20000u);
  EXPECT_TRUE(ordered);
}

// Registers by name.

TEST_F(Run, ReadsRegistersByTheirWholeName) {
  EXPECT_EQ(vm.read_register("MIO"), 1000);
  EXPECT_EQ(vm.read_register("ONE"), 1);
  EXPECT_EQ(vm.read_register("DEV"), 0);
  for (const char* name : {"DEVICE", "MI", "MIO ", "mio", ""}) {
    EXPECT_EQ(vm.read_register(name), -1) << name;
  }
  EXPECT_EQ(vm.read_register(nullptr), -1);
  vm.set(MIO, ~0ul);
  EXPECT_EQ(vm.read_register("MIO"), -1);
}

TEST_F(Run, ReadsRandomRegistersAsStored) {
  EXPECT_EQ(vm.read_register("RND"), 0);
  EXPECT_EQ(vm.read_register("UNI"), 0);
}

TEST_F(Run, WritesRegistersByTheirWholeName) {
  EXPECT_EQ(vm.write_register("MIO", 3), 1);
  EXPECT_EQ(vm.get(MIO), 3u);
  for (const char* name : {"DEVICE", "MI", ""}) EXPECT_EQ(vm.write_register(name, 9), 1) << name;
  EXPECT_EQ(vm.write_register(nullptr, 9), 1);
  EXPECT_EQ(vm.get(DEV), 0u);
  EXPECT_THROW(vm.write_register("SEP", 124), std::out_of_range);
  EXPECT_EQ(vm.write_register("SEP", 59), 1);
}

// Lists that the machine takes over.

TEST(RunList, BelongsToTheMachine) {
  vm_t vm;
  EXPECT_TRUE(vm.setCode(new Lines{"INC MIO;"}));
  EXPECT_EQ(vm.run(), 1);
  auto* second = new Lines{"INC MIL;"};
  EXPECT_TRUE(vm.setCode(second));
  EXPECT_TRUE(vm.setCode(second));
  EXPECT_EQ(vm.run(), 1);
  EXPECT_EQ(vm.get(MIO), 1001u);
  EXPECT_EQ(vm.get(MIL), 1001u);
  vm.release_code();
}

TEST(RunList, OutlivesTheMachine) {
  Lines lines = {"INC MIO;"};
  {
    vm_t vm;
    EXPECT_TRUE(vm.setCode(&lines));
    EXPECT_EQ(vm.run(), 1);
  }
  EXPECT_EQ(lines, (Lines{"INC MIO;"}));
}

}  // namespace
