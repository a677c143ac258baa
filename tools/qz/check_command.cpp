#include "check_command.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <vector>

#include "QZ/machine/vocabulary.h"
#include "check_files.h"
#include "registers.h"

namespace qz_tool {

namespace {

/// A pair of types as program text names it.
struct NamedTypes {
  std::string index;
  std::string value;
  TypeWidths widths;
};

std::string read_bytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string bytes{std::istreambuf_iterator<char>(file), {}};
  // A directory opens like a file and fails at the first read.
  if (!file.is_open() || file.bad()) throw std::runtime_error("cannot read " + path);
  return bytes;
}

char character(const std::string& option, const std::string& text) {
  if (text.size() != 1) throw UsageError(option + " takes one character");
  return text.front();
}

/// The pairs that the options leave open, those that programs start with first.
std::vector<NamedTypes> possible_types(const CheckOptions& options) {
  std::vector<NamedTypes> types;
  constexpr std::size_t widths[] = {8, 4, 2, 1};
  for (const std::size_t width : widths) {
    const std::string index = "UINT" + std::to_string(8 * width);
    if (!options.index.empty() && options.index != index) continue;
    const NamedTypes pairs[] = {{index, "FLT64", {width, 8, true}},
                                {index, "FLT32", {width, 4, true}},
                                {index, index, {width, width, false}}};
    for (const NamedTypes& pair : pairs) {
      const bool asked = options.value.empty() || options.value == pair.value ||
                         (options.value == "FLTMPREC" && pair.value == "FLT64");
      if (asked) types.push_back(pair);
    }
  }
  if (types.empty()) {
    throw UsageError("there is no pair of --index " + options.index + " and --value " +
                     options.value);
  }
  return types;
}

std::string kind_of(const std::string& bytes) {
  if (is_binary_data(bytes)) return "binary";
  // Numbers in binary files are short of digits and full of zero bytes.
  if (bytes.find('\0') == std::string::npos) return "table";
  return "binary file";
}

int report(const CheckOptions& options, const Findings& findings) {
  findings.write(std::cout, options.file);
  return findings.sound() ? 0 : 1;
}

struct Reading {
  Findings findings;
  std::string types;
};

/// What the file is with each possible pair of types.
std::vector<Reading> readings(const CheckOptions& options, const std::string& kind,
                              const std::string& bytes) {
  std::vector<Reading> list;
  for (const NamedTypes& types : possible_types(options)) {
    // A graph has no values: one reading per index type.
    const std::string name = "idx_t " + types.index;
    if (kind != "model" && (list.empty() || list.back().types != name)) {
      list.push_back({check_graph(bytes, types.widths.index), name});
    }
    if (kind != "model") continue;
    list.push_back({check_model(bytes, types.widths), name + ", val_t " + types.value});
  }
  return list;
}

/// The reading that raises no question, if there is one, or explains every byte, or is lawful; the
/// first otherwise.
const Reading& best_of(const std::vector<Reading>& list) {
  for (const auto claim : {&Findings::plain, &Findings::is_whole, &Findings::sound}) {
    const auto found = std::find_if(list.begin(), list.end(), [&](const Reading& reading) {
      return (reading.findings.*claim)();
    });
    if (found != list.end()) return *found;
  }
  return list.front();
}

int report_best(const CheckOptions& options, const std::vector<Reading>& list) {
  const Reading& best = best_of(list);
  std::cout << options.file << ": read with " << best.types << '\n';
  const int status = report(options, best.findings);
  if (status != 0 && list.size() > 1) {
    std::cout << options.file
              << ": no other types fit either; --index and --value say which are meant\n";
  }
  return status;
}

}  // namespace

CLI::App* add_check_command(CLI::App& app, CheckOptions& options) {
  CLI::App* check = app.add_subcommand("check", "Examine a data, graph or model file");
  check->add_option("FILE", options.file, "The file")->required();
  check->add_option("--as", options.kind, "What it is, where that cannot be told from its content")
      ->check(CLI::IsMember({"table", "binary", "adjacency", "graph", "model"}));
  check->add_option("--index", options.index, "Index type of a graph or model, as in idx_t")
      ->check(CLI::IsMember({"UINT8", "UINT16", "UINT32", "UINT64"}));
  check->add_option("--value", options.value, "Value type of a model, as in val_t")
      ->check(CLI::IsMember({"UINT8", "UINT16", "UINT32", "UINT64", "FLT32", "FLT64", "FLTMPREC"}));
  check->add_option("--missing", options.missing, "First character of a missing cell")
      ->type_name("CHAR");
  check->add_option("--separator", options.separator, "Separator of adjacency text")
      ->type_name("CHAR");
  check->add_flag("--no-header", options.no_header, "The table has no line of column names");
  return check;
}

int check_file(const CheckOptions& options) {
  const TableForm form{!options.no_header, character("--missing", options.missing)};
  const char separator = character("--separator", options.separator);
  const std::string bytes = read_bytes(options.file);
  const std::string kind = options.kind.empty() ? kind_of(bytes) : options.kind;
  if (kind == "table") return report(options, check_table(bytes, form));
  if (kind == "adjacency") return report(options, check_adjacency(bytes, separator));
  if (kind == "binary") return report(options, check_binary_data(bytes));
  if (kind == "graph" || kind == "model") {
    return report_best(options, readings(options, kind, bytes));
  }
  // A graph file is the beginning of a model file, so that a whole graph is the better guess.
  const auto list = readings(options, "graph", bytes);
  const bool is_graph = std::any_of(
      list.begin(), list.end(), [](const Reading& reading) { return reading.findings.plain(); });
  return report_best(options, is_graph ? list : readings(options, "model", bytes));
}

}  // namespace qz_tool
