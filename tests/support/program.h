#pragma once

/// Whole register programs, and how they fail.

#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/door.h"
#include "support/leak_pause.h"

namespace qz_test {

/// The exception that ended a program.
struct Failure {
  /// "logic_error", "out_of_range" or "invalid_argument".
  std::string kind;
  std::string message;
  /// The line that failed.
  unsigned long line;

  bool operator==(const Failure&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Failure& failure) {
  return out << failure.kind << " \"" << failure.message << "\" in line " << failure.line;
}

class Program : public Door {
 public:
  Program() = default;
  explicit Program(const std::vector<std::string>& lines) { run(lines); }

  void* context() const { return ctx_; }

  /// Installs and runs the lines. Nothing if they run to their end, otherwise how they failed.
  std::optional<Failure> attempt(const std::vector<std::string>& lines) {
    const auto failure = [&](const char* kind, const std::exception& error) {
      return Failure{kind, error.what(), word("LNN")};
    };
    // What a failed run had in hand stays with nobody.
    const LeakPause pause;
    try {
      run(lines);
    } catch (const std::out_of_range& error) {
      return failure("out_of_range", error);
    } catch (const std::invalid_argument& error) {
      return failure("invalid_argument", error);
    } catch (const std::logic_error& error) {
      return failure("logic_error", error);
    }
    return std::nullopt;
  }

  /// The text of a string register.
  std::string text(const char* name) const {
    const auto* text = reinterpret_cast<const std::string*>(word(name));
    return text == nullptr ? std::string() : *text;
  }
};

/// How the lines fail on a fresh context.
inline std::optional<Failure> failure_of(const std::vector<std::string>& lines) {
  return Program().attempt(lines);
}

/// Expectations for `failure_of`.
inline std::optional<Failure> logic_error(const std::string& message, unsigned long line = 0) {
  return Failure{"logic_error", message, line};
}
inline std::optional<Failure> out_of_range(const std::string& message, unsigned long line = 0) {
  return Failure{"out_of_range", message, line};
}
inline std::optional<Failure> invalid_argument(const std::string& message, unsigned long line = 0) {
  return Failure{"invalid_argument", message, line};
}

}  // namespace qz_test
