#include "run_command.h"

#include <unistd.h>

#include <csignal>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "marginals_table.h"
#include "model_names.h"
#include "progress_bar.h"
#include "run_monitor.h"
#include "text_table.h"
#include "vm_wrapper.h"

namespace qz_tool {

namespace {

constexpr int interrupted = 130;
/// The one thing to print that is no register.
const std::string iterations_name = "iterations";

std::vector<std::string> read_lines(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);

  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
    if (line.find('\0') != std::string::npos) {
      throw ProgramError("the line holds a zero byte", lines.size());
    }
  }
  // A directory opens like a file and fails at the first read.
  if (file.bad()) throw std::runtime_error("cannot read " + path);
  return lines;
}

void check_prints(const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    if (name != iterations_name) find_register(name);
  }
}

void apply_settings(Context& context, const std::vector<std::string>& settings) {
  for (const std::string& setting : settings) {
    const auto equals = setting.find('=');
    if (equals == std::string::npos) throw UsageError("--set needs REG=VALUE, not " + setting);
    try {
      set_register(context, setting.substr(0, equals), setting.substr(equals + 1));
    } catch (const std::logic_error& error) {
      throw UsageError("--set " + setting + ": " + error.what());
    }
  }
}

void print_registers(const Context& context, const RunMonitor& monitor,
                     const std::vector<std::string>& names) {
  std::vector<std::vector<std::string>> rows;
  for (const std::string& name : names) {
    if (name == iterations_name) {
      rows.push_back({name, std::to_string(monitor.iterations()), "of the last ESTIMATE"});
      continue;
    }
    const auto& row = find_register(name);
    rows.push_back({name, register_text(context, row), register_remark(context, row)});
  }
  write_table(std::cout, rows);
}

void print_marginals(Context& context) {
  constexpr std::uint64_t no_object = 1;
  const std::uint64_t marginals = context.read("PPT");
  if (marginals <= no_object) throw std::runtime_error("--marginals: the program ran no INFER");
  if (context.read("MPT") <= no_object) {
    throw std::runtime_error("--marginals: the program keeps no model to name the marginals");
  }
  write_marginals(std::cout, names_of_loaded_model(context),
                  reinterpret_cast<const double*>(marginals));
}

}  // namespace

CLI::App* add_run_command(CLI::App& app, RunOptions& options) {
  CLI::App* run = app.add_subcommand("run", "Run a program");
  run->add_option("PROGRAM", options.program, "Text file, one statement a line")->required();
  run->add_option("--set", options.settings, "Write a register before the run")
      ->type_name("REG=VALUE")
      ->allow_extra_args(false);
  run->add_option("--print", options.prints,
                  "Print registers after the run; 'iterations' is the optimizer's count")
      ->type_name("REG,...")
      ->delimiter(',')
      ->allow_extra_args(false);
  run->add_flag("--marginals", options.marginals,
                "Print the marginals of every vertex of the last INFER");
  run->add_flag("--quiet", options.quiet, "No progress bar");
  return run;
}

int run_program(const RunOptions& options) {
  check_prints(options.prints);
  Context context;
  apply_settings(context, options.settings);
  ProgressBar bar(!options.quiet && isatty(STDERR_FILENO) == 1);
  RunMonitor monitor(context, bar);
  try {
    context.set_program(read_lines(options.program));
    std::signal(SIGINT, ctrlchandler);
    context.run();
  } catch (const ProgramError& error) {
    bar.clear();
    std::cerr << options.program << ':' << error.line() << ": " << error.what() << '\n';
    return 1;
  }
  bar.clear();

  print_registers(context, monitor, options.prints);
  if (options.marginals) print_marginals(context);
  if (__run == 0) {
    std::cerr << "qz: interrupted; the results are the best up to then\n";
    return interrupted;
  }
  return 0;
}

}  // namespace qz_tool
