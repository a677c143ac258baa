/// The exported functions from which no exception escapes.

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "QZ/inference/engine.h"
#include "support/temp_file.h"
#include "vm_wrapper.h"

namespace {

using qz_test::TempFile;
using Lines = std::vector<std::string>;

/// A context that is used by guarded calls alone.
class Guarded {
 public:
  Guarded() : ctx_(try_create_ctx()) {}
  ~Guarded() { destroy_ctx(ctx_); }
  Guarded(const Guarded&) = delete;
  Guarded& operator=(const Guarded&) = delete;

  int set_code(const Lines& lines) {
    std::vector<const char*> texts;
    for (const std::string& line : lines) texts.push_back(line.c_str());
    return try_ctx_set_code(ctx_, texts.data(), texts.size());
  }
  int run(const Lines& lines) {
    EXPECT_EQ(set_code(lines), QZ_DONE);
    return try_run_ctx(ctx_);
  }
  template <class function_t>
  void set_function(const char* name, function_t* function) {
    EXPECT_EQ(try_ctx_write_reg(ctx_, name, reinterpret_cast<std::uint64_t>(function)), QZ_DONE);
  }
  std::int64_t read(const char* name) {
    std::int64_t word = -2;
    EXPECT_EQ(try_ctx_read_reg(ctx_, name, &word), QZ_DONE) << name;
    return word;
  }
  std::string error() { return ctx_error_text(ctx_); }
  std::int64_t line() { return ctx_error_line(ctx_); }
  void* context() { return ctx_; }

 private:
  void* ctx_;
};

const char* const table =
    "a,b,c\n\nx,x,y\nx,y,y\ny,y,x\ny,x,x\nx,x,x\ny,y,y\nx,y,x\ny,x,y\nx,x,y\ny,y,x\n";

/// The lines that fit a model to the table in `file`.
Lines model_lines(const TempFile& file, const std::string& graph) {
  return {"DFN '" + file.path() + "';", "LDX DPT;", "GRA " + graph + ";", "LDX GPT;", "MODEL;"};
}

Lines operator+(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

TEST(GuardedCalls, RunAProgramToItsEnd) {
  Guarded guarded;
  EXPECT_EQ(guarded.run({"MIO 5", "INC MIO;"}), QZ_DONE);
  EXPECT_EQ(guarded.read("MIO"), 6);
  EXPECT_EQ(guarded.error(), "");
  EXPECT_EQ(guarded.line(), -1);
  EXPECT_EQ(try_reset_ctx(guarded.context()), QZ_DONE);
  EXPECT_EQ(guarded.read("MIO"), 1000);
  EXPECT_EQ(try_run_ctx(guarded.context()), QZ_DONE);
}

TEST(GuardedCalls, KeepTextAndLineOfWhatARunThrows) {
  Guarded guarded;
  EXPECT_EQ(guarded.run({"# nothing is loaded", "", "MIO 5", "INFER;", "MIO 6"}), QZ_FAILED);
  EXPECT_EQ(guarded.error(), "no graph loaded");
  EXPECT_EQ(guarded.line(), 3);
  EXPECT_EQ(guarded.read("LNN"), 3);
  EXPECT_EQ(guarded.read("MIO"), 5);
}

TEST(GuardedCalls, CatchWhatTheStandardLibraryThrows) {
  Guarded number;
  EXPECT_EQ(number.run({"MIO five"}), QZ_FAILED);
  EXPECT_EQ(number.error(), "stoul");
  Guarded memory;
  EXPECT_EQ(memory.run({"GVX 9223372036854775809", "GRA CHAIN;", "LDX GPT;"}), QZ_FAILED);
  EXPECT_EQ(memory.error(), "std::bad_alloc");
  EXPECT_EQ(memory.line(), 2);
}

TEST(GuardedCalls, AFailedRunFinishesItsContext) {
  Guarded guarded;
  ASSERT_EQ(guarded.run({"nonsense"}), QZ_FAILED);
  EXPECT_EQ(try_run_ctx(guarded.context()), QZ_REFUSED);
  EXPECT_EQ(guarded.set_code({"MIO 5"}), QZ_REFUSED);
  EXPECT_EQ(try_ctx_write_reg(guarded.context(), "MIO", 5), QZ_REFUSED);
  EXPECT_EQ(try_reset_ctx(guarded.context()), QZ_REFUSED);
  // The plain functions answer as after any failed run.
  EXPECT_EQ(run_ctx(guarded.context()), 0);
  EXPECT_EQ(ctx_write_reg(guarded.context(), "MIO", 5), 0);
  EXPECT_EQ(reset_ctx(guarded.context()), 0);
  EXPECT_EQ(guarded.read("MIO"), 1000);
  EXPECT_EQ(guarded.error(), "unknown syntax error");
  EXPECT_EQ(guarded.line(), 0);
}

TEST(GuardedCalls, AreRefusedAfterARunThatThrewItsException) {
  void* ctx = create_ctx();
  const char* const lines[] = {"nonsense"};
  ASSERT_EQ(ctx_set_code(ctx, lines, 1), 1);
  EXPECT_THROW(run_ctx(ctx), std::logic_error);
  EXPECT_EQ(try_run_ctx(ctx), QZ_REFUSED);
  EXPECT_EQ(try_reset_ctx(ctx), QZ_REFUSED);
  EXPECT_EQ(std::string(ctx_error_text(ctx)), "");
  destroy_ctx(ctx);
}

TEST(GuardedCalls, AFailureOutsideARunLeavesTheContextUsable) {
  Guarded guarded;
  EXPECT_EQ(try_run_ctx(guarded.context()), QZ_FAILED);
  EXPECT_EQ(guarded.error(), "no program set");
  EXPECT_EQ(try_ctx_write_reg(guarded.context(), "SEP", '|'), QZ_FAILED);
  EXPECT_EQ(guarded.error(), "separator | not supported");
  EXPECT_EQ(try_ctx_write_reg(guarded.context(), "XYZ", 1), QZ_FAILED);
  EXPECT_EQ(guarded.error(), "no register is named XYZ");
  EXPECT_EQ(try_ctx_write_reg(guarded.context(), nullptr, 1), QZ_FAILED);
  EXPECT_EQ(guarded.line(), -1);
  EXPECT_EQ(guarded.run({"MIO 5"}), QZ_DONE);
}

TEST(GuardedCalls, ANullLineLeavesTheProgramAsItWas) {
  Guarded guarded;
  ASSERT_EQ(guarded.set_code({"MIO 5"}), QZ_DONE);
  const char* const lines[] = {"MIO 6", nullptr};
  EXPECT_EQ(try_ctx_set_code(guarded.context(), lines, 2), QZ_FAILED);
  EXPECT_EQ(guarded.error(), "line 1 is null");
  EXPECT_EQ(try_ctx_set_code(guarded.context(), nullptr, 2), QZ_FAILED);
  EXPECT_EQ(try_run_ctx(guarded.context()), QZ_DONE);
  EXPECT_EQ(guarded.read("MIO"), 5);
}

TEST(GuardedCalls, TellAnUnknownRegisterFromOneThatHoldsAllOnes) {
  Guarded guarded;
  ASSERT_EQ(try_ctx_write_reg(guarded.context(), "GPX", ~std::uint64_t(0)), QZ_DONE);
  EXPECT_EQ(guarded.read("GPX"), -1);
  std::int64_t word = 7;
  EXPECT_EQ(try_ctx_read_reg(guarded.context(), "XYZ", &word), QZ_FAILED);
  EXPECT_EQ(try_ctx_read_reg(guarded.context(), nullptr, &word), QZ_FAILED);
  EXPECT_EQ(try_ctx_read_reg(nullptr, "GPX", &word), QZ_FAILED);
  EXPECT_EQ(word, 7);
}

TEST(GuardedCalls, WithoutAContextFailAndKeepTheTextWithTheThread) {
  EXPECT_EQ(try_run_ctx(nullptr), QZ_FAILED);
  EXPECT_EQ(std::string(ctx_error_text(nullptr)), "the context is null");
  EXPECT_EQ(ctx_error_line(nullptr), -1);
  std::thread([] { EXPECT_EQ(std::string(ctx_error_text(nullptr)), ""); }).join();
}

TEST(GuardedCalls, ABrokenInvariantIsAFailure) {
  Guarded guarded;
  EXPECT_EQ(guarded.run({"GVX 3", "CEN 3", "GRA STAR;", "LDX GPT;"}), QZ_FAILED);
  EXPECT_EQ(guarded.error(), "broken invariant: _c>=0 && _c<_n");
  EXPECT_EQ(guarded.line(), 3);
}

TEST(GuardedCallsDeathTest, ABrokenInvariantStillEndsAPlainRun) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EQ(Guarded().run({"CEN 3", "GRA STAR;", "LDX GPT;"}), QZ_FAILED);
  const char* const lines[] = {"CEN 3", "GRA STAR;", "LDX GPT;"};
  void* ctx = create_ctx();
  ctx_set_code(ctx, lines, 3);
  EXPECT_DEATH(run_ctx(ctx), "_c>=0 && _c<_n");
  destroy_ctx(ctx);
}

TEST(GuardedCalls, DiscretizeOrSayWhyNot) {
  double column[] = {1.5, 9.0, 2.5, 8.0};
  unsigned short categories[4];
  DiscretizationModel model{};
  EXPECT_EQ(try_discretize(categories, column, 4, 0, &model), QZ_FAILED);
  EXPECT_EQ(std::string(ctx_error_text(nullptr)), "discretization needs at least one bin");
  ASSERT_EQ(try_discretize(categories, column, 4, 2, &model), QZ_DONE);
  EXPECT_EQ(model.num_intervals, 2u);
  EXPECT_EQ(try_discretize_precomputed(categories, column, 4, model), QZ_DONE);
  EXPECT_EQ(categories[1], 1);
  // Between the bins.
  model.intervals[1] = -0.5;
  model.intervals[2] = 0.5;
  double middle[] = {5.25};
  EXPECT_EQ(try_discretize_precomputed(categories, middle, 1, model), QZ_FAILED);
  EXPECT_EQ(std::string(ctx_error_text(nullptr)), "broken invariant: found");
  delete[] model.intervals;
  delete[] model.moments;
}

// Callbacks that throw, also from within a team of threads.

void throw_at_once(std::size_t, std::size_t, const char* tag) { throw std::runtime_error(tag); }
void throw_a_number(std::size_t, std::size_t, const char*) { throw 5; }

class GuardedTeams : public testing::TestWithParam<const char*> {
 protected:
  /// Runs the lines with a progress callback.
  int run(const Lines& lines, void (*progress)(std::size_t, std::size_t, const char*)) {
    guarded.set_function("CBP", progress);
    return guarded.run(Lines{std::string("OMP ") + GetParam()} + lines);
  }
  TempFile file{".csv", table};
  Guarded guarded;
};

INSTANTIATE_TEST_SUITE_P(Threads, GuardedTeams, testing::Values("1", "2", "4"));

TEST_P(GuardedTeams, CatchWhatProgressThrowsInACompleteGraph) {
  EXPECT_EQ(run({"GVX 20", "GRA FULL;", "LDX GPT;"}, throw_at_once), QZ_FAILED);
  EXPECT_EQ(guarded.error(), "GRAPH");
  EXPECT_EQ(guarded.line(), 3);
  EXPECT_EQ(guarded.read("GPT"), 0);
}

TEST_P(GuardedTeams, CatchWhatProgressThrowsInSampling) {
  EXPECT_EQ(run(model_lines(file, "CHAIN") + Lines{"SAMPLE;"}, throw_at_once), QZ_FAILED);
  EXPECT_EQ(guarded.error(), "SAMPLE");
}

TEST_P(GuardedTeams, CatchWhatProgressThrowsInCounting) {
  EXPECT_EQ(run(Lines{"KXX 3"} + model_lines(file, "CLIQUES"), throw_at_once), QZ_FAILED);
  EXPECT_EQ(guarded.error(), "STATE");
}

TEST_P(GuardedTeams, CatchWhatHasNoText) {
  EXPECT_EQ(run(model_lines(file, "CHAIN") + Lines{"SCORE;"}, throw_a_number), QZ_FAILED);
  EXPECT_EQ(guarded.error(), "an exception that has no text");
}

TEST_P(GuardedTeams, CatchAnUnknownEngineInSampling) {
  EXPECT_EQ(run(model_lines(file, "CHAIN") + Lines{"INF 9", "SAMPLE;"}, nullptr), QZ_FAILED);
  EXPECT_EQ(guarded.error(), "unknown inference algorithm");
}

/// An engine of a caller whose marginals fail.
class FailingEngine : public QZ::InferenceAlgorithm<unsigned long, double> {
 public:
  using InferenceAlgorithm::InferenceAlgorithm;
  void infer(const unsigned long&) override {}
  void vertex_marginal(const unsigned long&, const unsigned long&, double&,
                       double&) const override {
    throw std::runtime_error("no marginal of a vertex");
  }
  void edge_marginal(const unsigned long&, const unsigned long&, const unsigned long&, double&,
                     double&) const override {
    throw std::runtime_error("no marginal of an edge");
  }
};

QZ::InferenceAlgorithm<unsigned long, double>* make_failing_engine(
    QZ::AbstractGraph<unsigned long>** graph, unsigned long** states, std::mt19937* rng,
    double* weights) {
  return new FailingEngine(*graph, *states, weights, rng);
}

TEST_P(GuardedTeams, CatchWhatTheMarginalsOfACallersEngineThrow) {
  guarded.set_function("EXT0", make_failing_engine);
  EXPECT_EQ(run(model_lines(file, "CHAIN") + Lines{"ALG EXTI;", "ALG GD;", "STP 1", "ESTIMATE;"},
                nullptr),
            QZ_FAILED);
  EXPECT_EQ(guarded.error(), "no marginal of an edge");
}

// What a failed run had loaded.

/// The bytes in use after `times` contexts have run the lines, failed and been destroyed.
std::size_t bytes_after(int times, const Lines& lines) {
  for (int i = 0; i < times; ++i) EXPECT_EQ(Guarded().run(lines), QZ_FAILED);
  return mallinfo2().uordblks;
}

/// Runs that fail with all of table, graph, model and marginals loaded, and do not lose them.
void expect_release(const Lines& lines) {
  // The first runs fill what is kept once per process.
  const std::size_t before = bytes_after(2, lines);
  EXPECT_LT(bytes_after(40, lines), before + 20000);
}

TEST(GuardedCalls, AFailedContextReleasesWhatItHasLoaded) {
  const TempFile file(".csv", table);
  std::string wide = "c0";
  for (int c = 1; c < 200; ++c) wide += ",c" + std::to_string(c);
  const std::string row(399, 'x');
  wide += "\n\n";
  for (const char state : {'x', 'y', 'x', 'y'}) {
    for (int c = 0; c < 200; ++c) wide += std::string(c == 0 ? "" : ",") + state;
    wide += "\n";
  }
  const TempFile wide_file(".csv", wide);
  for (const char* types : {"val_t FLT64;", "val_t UINT64;"}) {
    expect_release(Lines{"OMP 1", types} + model_lines(wide_file, "CHAIN") +
                   Lines{"INFER;", "nonsense"});
  }
  expect_release(Lines{"OMP 1"} + model_lines(wide_file, "CHOWLIU") + Lines{"nonsense"});
}

TEST(GuardedCalls, AFailedContextReleasesAModelWhoseTypesTheProgramHasForgotten) {
  const TempFile file(".csv", table);
  for (const char* index : {"idx_t UINT8;", "IDX 9", "val_t UINT8;"}) {
    Guarded guarded;
    EXPECT_EQ(guarded.run(model_lines(file, "CHAIN") + Lines{index, "nonsense"}), QZ_FAILED);
  }
}

TEST(GuardedCalls, WhatAProgramHasCopiedIsReleasedOnce) {
  const TempFile file(".csv", table);
  for (const Lines& lines :
       {Lines{"MOV GFN DFN;"}, Lines{"MOV OTHERFN DFN;", "DEL DFN;"}, Lines{"MOV HPT DPT;"},
        Lines{"PUSH GPT;", "DEL GPT;", "POP GPT;"}, Lines{"MOV HPT MPT;", "DEL MPT;"},
        Lines{"PUSH DFN;", "POP MFN;", "DEL MFN;", "DEL DFN;"}}) {
    Guarded failed;
    EXPECT_EQ(failed.run(model_lines(file, "CHAIN") + lines + Lines{"nonsense"}), QZ_FAILED);
    Guarded finished;
    EXPECT_EQ(finished.run(model_lines(file, "CHAIN") + lines), QZ_DONE);
    EXPECT_EQ(try_reset_ctx(finished.context()), QZ_DONE);
  }
}

TEST(GuardedCalls, AFailedContextLeavesTheCallersObjectsAlone) {
  std::string text = table;
  std::vector<unsigned long> edges{0, 1, 1, 2};
  {
    Guarded guarded;
    guarded.set_function("EDP", &text);
    guarded.set_function("EAP", edges.data());
    EXPECT_EQ(guarded.run({"LDX DPT;", "GVX 3", "GEX 2", "LDX GPT;", "MODEL;", "nonsense"}),
              QZ_FAILED);
    EXPECT_EQ(guarded.line(), 5);
  }
  EXPECT_EQ(text, table);
  EXPECT_EQ(edges, (std::vector<unsigned long>{0, 1, 1, 2}));
}

TEST(GuardedCalls, AFailedContextReleasesAGraphThatTheModelSharesOnce) {
  const TempFile file(".csv", table);
  const TempFile model(".model");
  for (const Lines& lines : {Lines{"LDX GPT;", "nonsense"}, Lines{"DEL GPT;", "nonsense"},
                             Lines{"DEL MPT;", "nonsense"}, Lines{"JUNCTIONTREE;", "nonsense"},
                             Lines{"MFN '" + model.path() + "';", "OVW true;", "STORE MPT;",
                                   "DEL MPT;", "DEL GPT;", "LDX MPT;", "nonsense"}}) {
    Guarded guarded;
    EXPECT_EQ(guarded.run(model_lines(file, "CHAIN") + lines), QZ_FAILED);
    EXPECT_EQ(guarded.error(), "unknown syntax error");
  }
}

}  // namespace
