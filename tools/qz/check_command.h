#pragma once

/// `qz check`: examines a data, graph or model file before it is loaded.

#include <CLI/CLI.hpp>
#include <string>

namespace qz_tool {

struct CheckOptions {
  std::string file;
  /// table, binary, adjacency, graph or model; empty to tell from the content.
  std::string kind;
  /// Keywords of idx_t and val_t; empty to try all.
  std::string index;
  std::string value;
  std::string missing = "?";
  std::string separator = ",";
  bool no_header = false;
};

/// Declares the subcommand on `app`; parsing fills `options`.
CLI::App* add_check_command(CLI::App& app, CheckOptions& options);

/// Prints what was found and returns the exit status: 0 for a file in order, 1 for one with a
/// problem. Throws UsageError, and runtime_error for a file that cannot be read.
int check_file(const CheckOptions& options);

}  // namespace qz_tool
