/// The host programs in examples/, as a user would build and run them.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/process.h"

namespace {

using qz_test::Outcome;

class Caller : public testing::Test {
 protected:
  Outcome run(const char* program) const {
    std::filesystem::create_directory_symlink(std::string(QZ_SOURCE_DIR) + "/examples",
                                              directory.file("examples"));
    return qz_test::run_process({program}, directory.path());
  }

  qz_test::TempDirectory directory;
};

TEST_F(Caller, InCReadsResultsFromRegisters) {
  const Outcome outcome = run(QZ_CALLER_C);
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  // 108, 286, 71 and 127 of 592 students.
  EXPECT_EQ(outcome.out,
            "library 10063\nrows 592\nobjective 3.079933\n"
            "hair 0.182432 0.483108 0.119932 0.214527\n");
}

TEST_F(Caller, InCppGetsFilesAndExceptions) {
  const Outcome outcome = run(QZ_CALLER_CPP);
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "1 Hair\n2 Eye\n3 Sex\n#\n2 1\n3 1\nerror: no graph loaded\n");
}

}  // namespace
