/// Writes the generated parts of the documents in a folder anew.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "generated_blocks.h"

namespace {

using documents::Generators;

std::string read(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

/// The text with every generated block made anew. Throws for a block that has no end, or a name
/// that has no generator.
std::string regenerate(const std::string& text, const Generators& generators) {
  const std::string opening = "<!-- generated: ";
  const std::string closing = " -->\n";
  const std::string end = "<!-- end -->";
  std::string result;
  std::size_t done = 0;
  for (std::size_t at; (at = text.find(opening, done)) != std::string::npos;) {
    const std::size_t name_begin = at + opening.size();
    const std::size_t name_end = text.find(closing, name_begin);
    const std::size_t block_end = text.find(end, name_begin);
    if (name_end == std::string::npos || block_end == std::string::npos) {
      throw std::runtime_error("a generated block has no end");
    }
    const std::string name = text.substr(name_begin, name_end - name_begin);
    const auto generator = generators.find(name);
    if (generator == generators.end()) throw std::runtime_error("nothing generates " + name);
    result += text.substr(done, name_end + closing.size() - done) + generator->second();
    done = block_end;
  }
  return result + text.substr(done);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: qz_documents FOLDER\n";
    return 2;
  }
  Generators generators = documents::register_tables();
  generators.merge(documents::file_examples());
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    if (entry.path().extension() != ".md") continue;
    try {
      const std::string text = read(entry.path());
      const std::string made = regenerate(text, generators);
      if (made != text) std::ofstream(entry.path(), std::ios::binary) << made;
    } catch (const std::exception& error) {
      std::cerr << entry.path().filename().string() << ": " << error.what() << '\n';
      return EXIT_FAILURE;
    }
  }
  return EXIT_SUCCESS;
}
