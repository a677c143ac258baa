#pragma once

/// Single statements on a machine, without a program.

#include <functional>
#include <stdexcept>
#include <string>

#include "QZ/machine/vm.h"

namespace qz_test {

/// Parses and carries out one line, as a run does.
inline void execute(QZ::vm_t& vm, const std::string& line) {
  for (unsigned long pos = 0; pos < line.size();) pos = vm.parseNext(line, pos);
}

/// The message of the exception that `action` throws; empty if it throws none.
inline std::string message_of(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

}  // namespace qz_test
