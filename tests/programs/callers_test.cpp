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

TEST_F(Caller, LearnsATreeAndRanksItsEdges) {
  const Outcome outcome = run(QZ_TREE);
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "0.098698 Sex - Survived\n0.093730 Class - Sex\n0.033695 Class - Age\n");
  EXPECT_EQ(directory.read("tree.tgf"), "1 Class\n2 Sex\n3 Age\n4 Survived\n#\n1 2\n1 3\n2 4\n");
}

TEST_F(Caller, LearnsTheTreeOfAnotherTable) {
  directory.write("table.csv", "a,b,c\n\n0,0,0\n1,1,0\n0,0,1\n1,1,1\n");
  const Outcome outcome =
      qz_test::run_process({QZ_TREE, "table.csv", "other.tgf"}, directory.path());
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out.substr(0, 15), "0.693147 a - b\n");
  EXPECT_EQ(directory.read("other.tgf").substr(0, 14), "1 a\n2 b\n3 c\n#\n");
}

TEST_F(Caller, SaysWhichTableIsNotThere) {
  const Outcome outcome = qz_test::run_process({QZ_TREE, "nothing.csv"}, directory.path());
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.err.find("nothing.csv"), std::string::npos) << outcome.err;
}

TEST_F(Caller, StoresAModelInBytesNextToOneInDoubles) {
  const Outcome outcome = run(QZ_SMALL_MODEL);
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "bytes 155\ndoubles 631\nlargest difference of a probability 32/255\n");
  EXPECT_EQ(directory.read("bytes.model").size(), 155u);
  EXPECT_EQ(directory.read("doubles.model").size(), 631u);
}

}  // namespace
