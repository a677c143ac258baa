/// The documents are what the sources and the library make of them, and what they show works.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "QZ/machine/vocabulary.h"
#include "support/process.h"

namespace {

using qz_test::Outcome;
using qz_test::run_process;
using qz_test::TempDirectory;

const std::filesystem::path source = QZ_SOURCE_DIR;

std::string read(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// The fenced blocks of a document, each with what stands behind its opening marks.
struct Block {
  std::string kind;
  std::string text;
};

std::vector<Block> blocks_of(const std::string& document) {
  std::vector<Block> blocks;
  std::istringstream in(document);
  bool inside = false;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("```")) {
      inside = !inside;
      if (inside) blocks.push_back({line.substr(3), ""});
    } else if (inside) {
      blocks.back().text += line + "\n";
    }
  }
  return blocks;
}

TEST(Documents, AreUpToDate) {
  const TempDirectory directory;
  std::filesystem::copy(source / "docs", directory.file("docs"));
  const Outcome outcome = run_process({QZ_DOCUMENTS, "docs"}, directory.path());
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  std::size_t compared = 0;
  for (const auto& entry : std::filesystem::directory_iterator(source / "docs")) {
    const std::string name = entry.path().filename();
    EXPECT_TRUE(directory.read("docs/" + name) == read(entry.path()))
        << "make docs would change " << name;
    ++compared;
  }
  EXPECT_GE(compared, 5u);
}

TEST(Documents, LeadToFilesThatExist) {
  std::vector<std::filesystem::path> documents{source / "README.md", source / "CONTRIBUTING.md",
                                               source / "bench/README.md"};
  for (const auto& entry : std::filesystem::directory_iterator(source / "docs")) {
    documents.push_back(entry.path());
  }
  for (const auto& document : documents) {
    const std::string text = read(document);
    for (std::size_t at = 0; (at = text.find("](", at)) != std::string::npos;) {
      at += 2;
      const std::string target = text.substr(at, text.find_first_of(")#", at) - at);
      EXPECT_TRUE(std::filesystem::exists(document.parent_path() / target))
          << document.filename() << " leads to " << target;
    }
  }
}

TEST(Documents, DescribeEveryOperation) {
  const std::string language = read(source / "docs/LANGUAGE.md");
  for (const auto& operation : QZ::vocabulary::operations) {
    const std::string name = std::string("`") + operation.name;
    const std::string end = operation.operands == 0 ? ";`" : " ";
    EXPECT_NE(language.find(name + end), std::string::npos) << operation.name;
  }
}

/// A path may begin at the source folder or among the headers.
TEST(Documents, NameSourcesThatExist) {
  std::size_t named = 0;
  for (const char* document : {"docs/TOUR.md", "docs/REGISTERS.md", "README.md"}) {
    const std::string text = read(source / document);
    for (std::size_t at = 0; (at = text.find('`', at)) != std::string::npos;) {
      const std::size_t end = text.find('`', at + 1);
      const std::string name = text.substr(at + 1, end - at - 1);
      at = end + 1;
      if (name.find('/') == std::string::npos || name.find_first_of(" $<") != std::string::npos) {
        continue;
      }
      if (!name.ends_with(".h") && !name.ends_with(".cpp")) continue;
      EXPECT_TRUE(std::filesystem::exists(source / name) ||
                  std::filesystem::exists(source / "src/include/QZ" / name))
          << document << " names " << name;
      ++named;
    }
  }
  EXPECT_GT(named, 20u);
}

/// Commands in a document run where its reader stands: in the source folder, after a build.
class Readme : public testing::Test {
 protected:
  Readme() {
    std::filesystem::create_directory_symlink(source / "examples", directory.file("examples"));
    std::filesystem::create_directories(directory.file("build/release"));
    std::filesystem::create_symlink(QZ_TOOL, directory.file("build/release/qz"));
  }
  TempDirectory directory;
};

/// Whether two printed texts say the same: word by word, numbers to nine digits. The last digits of
/// a sum depend on the number of threads.
testing::AssertionResult say_the_same(const std::string& shown, const std::string& printed) {
  std::istringstream left(shown);
  std::istringstream right(printed);
  for (std::string a, b;;) {
    const bool more = static_cast<bool>(left >> a);
    if (more != static_cast<bool>(right >> b)) return testing::AssertionFailure() << printed;
    if (!more) return testing::AssertionSuccess();
    char* end = nullptr;
    const double x = std::strtod(a.c_str(), &end);
    const bool number = *end == '\0';
    if (number ? std::abs(x - std::strtod(b.c_str(), nullptr)) > 1e-9 * std::abs(x) : a != b) {
      return testing::AssertionFailure() << a << " is " << b;
    }
  }
}

TEST_F(Readme, ShowsWhatItsCommandsPrint) {
  std::size_t commands = 0;
  for (const Block& block : blocks_of(read(source / "README.md"))) {
    if (!block.text.starts_with("$ build/release/qz ")) continue;
    const std::size_t end = block.text.find('\n');
    const std::string command = block.text.substr(2, end - 2);
    const Outcome outcome = run_process({"/bin/sh", "-c", command}, directory.path());
    EXPECT_EQ(outcome.status, 0) << command << "\n" << outcome.err;
    EXPECT_TRUE(say_the_same(block.text.substr(end + 1), outcome.out)) << command;
    ++commands;
  }
  EXPECT_GE(commands, 1u);
}

TEST_F(Readme, ShowsWhatTheDemoPrints) {
  // The recipe without its build: what it echoes, and what it runs.
  std::istringstream makefile(read(source / "Makefile"));
  std::string printed;
  std::string line;
  while (std::getline(makefile, line) && !line.starts_with("demo:")) {
  }
  while (std::getline(makefile, line) && line.starts_with("\t@")) {
    if (line.starts_with("\t@cmake")) continue;
    std::string command = line.substr(2);
    if (command.starts_with("$(QZ)")) command.replace(0, 5, "build/release/qz");
    const Outcome outcome = run_process({"/bin/sh", "-c", command}, directory.path());
    EXPECT_EQ(outcome.status, 0) << line << outcome.err;
    printed += outcome.out;
  }
  const auto blocks = blocks_of(read(source / "README.md"));
  ASSERT_FALSE(blocks.empty());
  EXPECT_TRUE(say_the_same(blocks.front().text, printed));
}

TEST_F(Readme, ShowsTheProgramsThatItNames) {
  const std::string readme = read(source / "README.md");
  std::size_t programs = 0;
  for (const Block& block : blocks_of(readme)) {
    if (block.kind != "qz") continue;
    EXPECT_EQ(block.text, read(source / "examples/first.qz"));
    ++programs;
  }
  EXPECT_EQ(programs, 1u);
}

/// The programs of docs/LANGUAGE.md run by themselves, from the source folder.
TEST_F(Readme, AndTheLanguageShowsProgramsThatRun) {
  std::size_t programs = 0;
  for (const Block& block : blocks_of(read(source / "docs/LANGUAGE.md"))) {
    if (block.kind != "qz") continue;
    directory.write("program.qz", block.text);
    const Outcome outcome = run_process({QZ_TOOL, "run", "program.qz"}, directory.path());
    EXPECT_EQ(outcome.status, 0) << block.text << outcome.err;
    ++programs;
  }
  EXPECT_GE(programs, 3u);
}

}  // namespace
