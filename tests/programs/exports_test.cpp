/// What the shared library gives out, and its header in C.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "support/process.h"

namespace {

using qz_test::Outcome;

const std::string source = QZ_SOURCE_DIR;

Outcome shell(const std::string& command) {
  const qz_test::TempDirectory directory;
  return qz_test::run_process({"/bin/sh", "-c", command}, directory.path());
}

std::vector<std::string> sorted_lines(std::istream& in) {
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  return lines;
}

TEST(Exports, AreTheKeptListAndNothingElse) {
  const Outcome symbols = shell("nm -D --defined-only '" QZ_LIBRARY "' | cut -d ' ' -f 2-");
  ASSERT_EQ(symbols.status, 0) << symbols.err;
  std::istringstream found(symbols.out);
  std::ifstream kept(source + "/tests/golden/exports.txt");
  EXPECT_EQ(sorted_lines(found), sorted_lines(kept));
}

TEST(Exports, AreDeclaredForC) {
  const Outcome compiler =
      shell("cc -std=c11 -Wall -Wextra -pedantic -Werror -fsyntax-only -I '" + source +
            "/src' -I '" + source + "/src/include' '" + source + "/tests/install/c_caller.c'");
  EXPECT_EQ(compiler.status, 0) << compiler.err;
}

}  // namespace
