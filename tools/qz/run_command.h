#pragma once

/// `qz run`: carries out a program file and shows what it leaves behind.

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "registers.h"

namespace qz_tool {

struct RunOptions {
  std::string program;
  /// REG=VALUE, written before the run.
  std::vector<std::string> settings;
  /// Registers, or `iterations`, to print after the run.
  std::vector<std::string> prints;
  bool marginals = false;
  bool quiet = false;
};

/// Declares the subcommand on `app`; parsing fills `options`.
CLI::App* add_run_command(CLI::App& app, RunOptions& options);

/// Carries the subcommand out and returns the exit status: 0, 1 after a failed program, 130 if the
/// run was interrupted and ended early with the best it had. Throws UsageError and runtime_error.
int run_program(const RunOptions& options);

}  // namespace qz_tool
