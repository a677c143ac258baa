/// Small files, written by the library and shown byte by byte.

#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "QZ/graph/chain.h"
#include "byte_walk.h"
#include "generated_blocks.h"
#include "vm_wrapper.h"

namespace documents {

namespace {

/// A folder that is gone at the end.
class Folder {
 public:
  Folder()
      : path_(std::filesystem::temp_directory_path() /
              ("qz_documents_" + std::to_string(getpid()))) {
    std::filesystem::create_directory(path_);
  }
  ~Folder() { std::filesystem::remove_all(path_); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string file(const std::string& name) const { return (path_ / name).string(); }
  std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(file(name), std::ios::binary) << content;
    return file(name);
  }
  std::string read(const std::string& name) const {
    std::ifstream in(file(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

 private:
  std::filesystem::path path_;
};

/// A program that has run, and its registers.
class Run {
 public:
  explicit Run(const std::vector<std::string>& lines) : ctx_(create_ctx()) {
    std::vector<const char*> texts;
    for (const std::string& line : lines) texts.push_back(line.c_str());
    ctx_set_code(ctx_, texts.data(), texts.size());
    if (try_run_ctx(ctx_) != QZ_DONE) throw std::runtime_error(ctx_error_text(ctx_));
  }
  ~Run() { destroy_ctx(ctx_); }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;

  std::int64_t word(const char* name) const { return ctx_read_reg(ctx_, name); }

 private:
  void* ctx_;
};

const char* const table = "Tea,Milk\n\nyes,no\nyes,yes\nno,no\n";

std::vector<std::string> fit_lines(const Folder& folder) {
  return {"DFN '" + folder.write("table.csv", table) + "';",
          "idx_t UINT16;",
          "val_t FLT32;",
          "OVW true;",
          "LDX DPT;",
          "GRA CHAIN;",
          "LDX GPT;",
          "MODEL;",
          "CLOSEDFORM;"};
}

std::string fenced(const std::string& text) { return "```\n" + text + "```\n"; }

std::string csv() { return fenced(table); }

std::string binary_table() {
  const std::string magic("qzbin$\0#", 8);
  std::string bytes = magic;
  for (const std::uint64_t count : {3, 2, 4}) {
    bytes.append(reinterpret_cast<const char*>(&count), sizeof count);
  }
  bytes += std::string("\1\0\3\2\0\0", 6);
  const Folder folder;
  // It is what the reader takes it for.
  if (Run({"DFN '" + folder.write("table.bin", bytes) + "';", "LDX DPT;"}).word("NXX") != 3) {
    throw std::runtime_error("the binary table is not read");
  }
  ByteWalk walk(bytes);
  walk.raw(8, "magic");
  walk.number<std::uint64_t>("rows N");
  walk.number<std::uint64_t>("columns n");
  walk.number<std::uint64_t>("categories K");
  for (int row = 0; row < 3; ++row) walk.raw(2, "cells of row " + std::to_string(row));
  return walk.finish();
}

void walk_graph(ByteWalk& walk) {
  walk.number<std::uint16_t>("vertices n");
  const auto edges = walk.number<std::uint16_t>("edges m");
  for (int e = 0; e < edges; ++e) {
    walk.number<std::uint16_t>("edge " + std::to_string(e) + ", s");
    walk.number<std::uint16_t>("edge " + std::to_string(e) + ", t");
  }
}

std::string graph_file() {
  const Folder folder;
  QZ::Chain<std::uint16_t>(3).store(folder.file("chain.graph"));
  ByteWalk walk(folder.read("chain.graph"));
  walk_graph(walk);
  return walk.finish();
}

std::string model_file() {
  const Folder folder;
  auto lines = fit_lines(folder);
  lines.insert(lines.end(), {"MFN '" + folder.file("tea.model") + "';", "STORE MPT;"});
  const Run run(lines);
  ByteWalk walk(folder.read("tea.model"));
  walk_graph(walk);
  walk.number<std::uint16_t>("kind of graph");
  walk.text(walk.number<std::uint64_t>("bytes of the layer text"), "layer text");
  walk.text(walk.number<std::uint64_t>("bytes of the reserved text"), "reserved text");
  walk.number<std::uint16_t>("time slices");
  walk.number<std::uint16_t>("parametrisation");
  walk.number<std::uint16_t>("rows of data");
  walk.number<std::uint16_t>("reserved");
  for (int v = 0; v < 2; ++v) {
    const std::string vertex = "vertex " + std::to_string(v) + ", ";
    const auto states = walk.number<std::uint16_t>(vertex + "states");
    walk.zero_text(vertex + "name");
    for (int x = 0; x < states; ++x) {
      walk.zero_text(vertex + "state " + std::to_string(x));
    }
  }
  walk.number<std::uint16_t>("parameters");
  for (int v = 0; v < 2; ++v) {
    for (int x = 0; x < 2; ++x) {
      walk.number<float>("count of vertex " + std::to_string(v) + ", state " + std::to_string(x));
    }
  }
  for (const char* what : {"count", "weight"}) {
    for (const char* pair : {"(0, 0)", "(0, 1)", "(1, 0)", "(1, 1)"}) {
      walk.number<float>(what + std::string(" of edge 0, states ") + pair);
    }
  }
  return walk.finish();
}

std::string marginals() {
  const Folder folder;
  auto lines = fit_lines(folder);
  lines.insert(lines.end(), {"DEL DPT;", "INFER;"});
  const Run run(lines);
  const auto* block = reinterpret_cast<const double*>(run.word("PPT"));
  const char* const meanings[] = {"edge 0, states (0, 0)", "edge 0, states (0, 1)",
                                  "edge 0, states (1, 0)", "edge 0, states (1, 1)",
                                  "vertex 0, state 0",     "vertex 0, state 1",
                                  "vertex 1, state 0",     "vertex 1, state 1"};
  std::ostringstream out;
  out << "entry  value     of\n" << std::fixed << std::setprecision(4);
  for (int i = 0; i < 8; ++i) out << i << "      " << block[i] << "    " << meanings[i] << '\n';
  return fenced(out.str());
}

/// What `STORE GPT;` writes in one of its forms.
std::string exported(const std::string& form) {
  const Folder folder;
  auto lines = fit_lines(folder);
  lines.insert(lines.end(),
               {"FMT " + form + ";", "GFN '" + folder.file("tea.graph") + "';", "STORE GPT;"});
  const Run run(lines);
  return fenced(folder.read("tea.graph"));
}

}  // namespace

Generators file_examples() {
  return {{"CSV table", csv},
          {"binary table", binary_table},
          {"graph file", graph_file},
          {"model file", model_file},
          {"marginals", marginals},
          {"ADJ", [] { return exported("ADJ"); }},
          {"TGF", [] { return exported("TGF"); }},
          {"FG", [] { return exported("FG"); }}};
}

}  // namespace documents
