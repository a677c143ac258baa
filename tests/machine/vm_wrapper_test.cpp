#include "vm_wrapper.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <bit>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "support/statements.h"

namespace {

using qz_test::message_of;

class Context : public testing::Test {
 protected:
  ~Context() override { destroy_ctx(ctx); }
  void install(const std::vector<const char*>& lines) {
    ASSERT_EQ(ctx_set_code(ctx, lines.data(), lines.size()), 1);
  }
  void* const ctx = create_ctx();
};

TEST(Exported, VersionIsFixed) { EXPECT_EQ(version(), 10063u); }

TEST(Exported, DestroyingNothingIsHarmless) { EXPECT_NO_THROW(destroy_ctx(nullptr)); }

TEST(Exported, ANullContextIsRefused) {
  const std::function<void()> calls[] = {
      [] { run_ctx(nullptr); },
      [] { reset_ctx(nullptr); },
      [] { ctx_set_code(nullptr, nullptr, 0); },
      [] { ctx_read_reg(nullptr, "MIO"); },
      [] { ctx_write_reg(nullptr, "MIO", 1); },
  };
  for (const auto& call : calls) EXPECT_EQ(message_of(call), "the context is null");
}

TEST_F(Context, RunsAProgramAndAnswers) {
  install({"GP0 2.5", "ADD GP0 ONE;"});
  EXPECT_EQ(run_ctx(ctx), 1);
  EXPECT_EQ(std::bit_cast<double>(ctx_read_reg(ctx, "GP0")), 3.5);
  EXPECT_EQ(ctx_read_reg(ctx, "LNN"), 2);
}

TEST_F(Context, TakesWordsOfAnyClass) {
  EXPECT_EQ(ctx_write_reg(ctx, "LAM", std::bit_cast<uint64_t>(0.25)), 1);
  EXPECT_EQ(std::bit_cast<double>(ctx_read_reg(ctx, "LAM")), 0.25);
  EXPECT_EQ(ctx_write_reg(ctx, "nothing", 5), 1);
  EXPECT_EQ(ctx_read_reg(ctx, "nothing"), -1);
}

TEST_F(Context, SurvivesARefusedSeparator) {
  EXPECT_EQ(message_of([&] { ctx_write_reg(ctx, "SEP", 124); }), "separator | not supported");
  EXPECT_EQ(ctx_write_reg(ctx, "SEP", 59), 1);
  install({"MIO 4"});
  EXPECT_EQ(run_ctx(ctx), 1);
}

TEST_F(Context, AnEmptyProgramRuns) {
  EXPECT_EQ(ctx_set_code(ctx, nullptr, 0), 1);
  EXPECT_EQ(run_ctx(ctx), 1);
}

TEST_F(Context, AResetRewindsAndKeepsTheProgram) {
  install({"INC MIO;"});
  EXPECT_EQ(run_ctx(ctx), 1);
  EXPECT_EQ(reset_ctx(ctx), 1);
  EXPECT_EQ(ctx_read_reg(ctx, "MIO"), 1000);
  EXPECT_EQ(ctx_read_reg(ctx, "LNN"), 0);
  EXPECT_EQ(run_ctx(ctx), 1);
  EXPECT_EQ(ctx_read_reg(ctx, "MIO"), 1001);
}

TEST_F(Context, AFailedContextOnlyReads) {
  install({"MIO 7", "ESTIMATE;"});
  EXPECT_EQ(message_of([&] { run_ctx(ctx); }), "no model loaded");
  EXPECT_EQ(run_ctx(ctx), 0);
  EXPECT_EQ(reset_ctx(ctx), 0);
  EXPECT_EQ(ctx_set_code(ctx, nullptr, 0), 0);
  EXPECT_EQ(ctx_write_reg(ctx, "MIO", 1), 0);
  EXPECT_EQ(ctx_write_reg(ctx, "SEP", 124), 0);
  EXPECT_EQ(ctx_read_reg(ctx, "MIO"), 7);
  EXPECT_EQ(ctx_read_reg(ctx, "LNN"), 1);
}

TEST(Exported, ContextsAreIndependent) {
  void* a = create_ctx();
  void* b = create_ctx();
  EXPECT_EQ(ctx_write_reg(a, "MIO", 1), 1);
  EXPECT_EQ(ctx_read_reg(b, "MIO"), 1000);
  destroy_ctx(a);
  destroy_ctx(b);
}

TEST(Interrupt, TheFirstAsksToStopAndTheSecondAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EQ(__run, 1);
  ctrlchandler(SIGINT);
  EXPECT_EQ(__run, 0);
  EXPECT_EXIT(ctrlchandler(SIGINT), testing::KilledBySignal(SIGABRT), "");
  __run = 1;
}

TEST(Interrupt, LeavesTheRunLoopAlone) {
  void* ctx = create_ctx();
  const char* lines[] = {"INC MIO;"};
  ctx_set_code(ctx, lines, 1);
  ctrlchandler(SIGINT);
  EXPECT_EQ(run_ctx(ctx), 1);
  EXPECT_EQ(__run, 0);
  EXPECT_EQ(ctx_read_reg(ctx, "MIO"), 1001);
  destroy_ctx(ctx);
  __run = 1;
}

TEST(Wrapper, IsOnePointerWithoutVirtualOperations) {
  EXPECT_EQ(sizeof(vm_wrapper), sizeof(void*));
  EXPECT_FALSE(std::is_polymorphic_v<vm_wrapper>);
  EXPECT_FALSE(std::is_copy_constructible_v<vm_wrapper>);
}

TEST(Wrapper, RunsAListThatTheMachineOwns) {
  vm_wrapper wrapper;
  std::vector<std::string> last = {"DEL GPS;"};
  wrapper.setCode(new std::vector<std::string>{"GPS 'from the first list';"});
  wrapper.run();
  wrapper.setCode(&last);
  wrapper.run();
  EXPECT_EQ(last.size(), 1u);
}

TEST(Wrapper, RunsNothingTwice) {
  std::vector<std::string> lines = {"MODEL;"};
  vm_wrapper wrapper;
  wrapper.setCode(&lines);
  EXPECT_EQ(message_of([&] { wrapper.run(); }), "no graph loaded");
  EXPECT_EQ(message_of([&] { wrapper.run(); }), "");
}

TEST(Wrapper, LeavesAListWithTheCallerAfterAFailure) {
  std::vector<std::string> lines = {"MODEL;"};
  std::vector<std::string> other = {"MIO 3"};
  vm_wrapper wrapper;
  wrapper.setCode(&lines);
  EXPECT_THROW(wrapper.run(), std::logic_error);
  wrapper.setCode(&other);
  EXPECT_EQ(other, (std::vector<std::string>{"MIO 3"}));
}

TEST(Wrapper, NeedsAProgram) {
  vm_wrapper wrapper;
  EXPECT_EQ(message_of([&] { wrapper.run(); }), "no program set");
}

}  // namespace
