/// The command line of QZ. It reaches the library through the exported functions alone, so whatever
/// it does another host program can do as well.

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <string>

#include "check_command.h"
#include "run_command.h"
#include "vm_wrapper.h"

namespace {

constexpr int wrong_usage = 2;

std::string version_text() {
  const unsigned long number = version();
  return "qz " + std::to_string(number / 10000) + "." + std::to_string(number / 100 % 100) + "." +
         std::to_string(number % 100);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Probabilistic graphical models over categorical data"};
  app.set_version_flag("--version", version_text());
  app.require_subcommand(1);

  qz_tool::RunOptions run_options;
  const CLI::App* run = qz_tool::add_run_command(app, run_options);
  qz_tool::CheckOptions check_options;
  const CLI::App* check = qz_tool::add_check_command(app, check_options);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : wrong_usage;
  }
  try {
    if (run->parsed()) return qz_tool::run_program(run_options);
    return check->parsed() ? qz_tool::check_file(check_options) : wrong_usage;
  } catch (const qz_tool::UsageError& error) {
    std::cerr << "qz: " << error.what() << '\n';
    return wrong_usage;
  } catch (const std::exception& error) {
    std::cerr << "qz: " << error.what() << '\n';
    return 1;
  }
}
