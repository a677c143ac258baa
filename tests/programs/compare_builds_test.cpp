/// The script that compares two builds, with made-up benchmarks.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/process.h"

namespace {

using qz_test::Outcome;
using testing::ContainsRegex;
using testing::HasSubstr;

class CompareBuilds : public testing::Test {
 protected:
  /// A build folder with one program, which claims to have taken this many microseconds, and says
  /// in the file `order` that it has run.
  void make_build(const std::string& name, const std::string& time) {
    std::filesystem::create_directories(directory.file(name + "/bench"));
    const std::string program = directory.write(
        name + "/bench/toy_bench",
        "#!/bin/sh\necho " + name +
            " >> order\nfor a; do case $a in --benchmark_out=*) out=${a#*=};; esac; done\n"
            "echo '{\"benchmarks\": [{\"name\": \"grid\", \"run_type\": \"iteration\", "
            "\"cpu_time\": " +
            time + ", \"time_unit\": \"us\"}]}' > $out\n");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  }
  Outcome compare(std::vector<std::string> arguments) {
    arguments.insert(
        arguments.begin(),
        {"/usr/bin/env", "python3", QZ_SOURCE_DIR "/scripts/compare_builds.py", "before", "after"});
    return qz_test::run_process(arguments, directory.path());
  }
  qz_test::TempDirectory directory;
};

TEST_F(CompareBuilds, ShowsRatiosOfAlternatingRuns) {
  make_build("before", "4");
  make_build("after", "3");
  const Outcome outcome = compare({"--rounds", "5", "--limit", "1"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out,
              ContainsRegex("toy_bench/grid +4000 ns +3000 ns  0.750 \\(0.750 to 0.750\\) faster"));
  EXPECT_EQ(directory.read("order"),
            "before\nafter\nafter\nbefore\nbefore\nafter\nafter\nbefore\nbefore\nafter\n");
}

TEST_F(CompareBuilds, FailsBeyondTheLimit) {
  make_build("before", "4");
  make_build("after", "5");
  const Outcome outcome = compare({"--rounds", "1", "--limit", "1.2", "--out", "table.json"});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.out, HasSubstr("1.250 (1.250 to 1.250)\n"));
  EXPECT_THAT(directory.read("table.json"), HasSubstr("\"ratio\": 1.25"));
  EXPECT_EQ(compare({"--rounds", "1"}).status, 0);
}

TEST_F(CompareBuilds, SaysThatNothingIsBuilt) {
  make_build("before", "4");
  const Outcome outcome = compare({});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_THAT(outcome.err, HasSubstr("no benchmark in common"));
}

}  // namespace
