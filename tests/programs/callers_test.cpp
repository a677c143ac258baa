/// The host programs in examples/, as a user would build and run them.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>
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

TEST_F(Caller, InCDrawsATableThatLooksLikeTheFirst) {
  const Outcome outcome = run(QZ_SAMPLE_C);
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  std::istringstream shares(outcome.out);
  // Five standard deviations of a share of 4000 rows.
  for (const double students : {108, 286, 71, 127}) {
    const double expected = students / 592;
    double share = 0;
    shares >> share;
    EXPECT_NEAR(share, expected, 5 * std::sqrt(expected * (1 - expected) / 4000));
  }
  std::map<std::string, int> rows;
  std::istringstream table(directory.read("synthetic.csv"));
  int count = 0;
  for (std::string row; std::getline(table, row); ++count) ++rows[row];
  EXPECT_EQ(count, 4000);
  // The chain has blue eyes with blond hair at 94 of 592, and 114 women among 215 with blue eyes.
  const double expected = 94.0 / 592 * 114 / 215;
  EXPECT_NEAR(rows["Blond,Blue,Female"] / 4000.0, expected,
              5 * std::sqrt(expected * (1 - expected) / 4000));
}

TEST_F(Caller, InCppGetsFilesAndExceptions) {
  const Outcome outcome = run(QZ_CALLER_CPP);
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "1 Hair\n2 Eye\n3 Sex\n#\n2 1\n3 1\nerror: no graph loaded\n");
}

}  // namespace
