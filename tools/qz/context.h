#pragma once

/// A context of the library as an object that cleans up behind itself.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace qz_tool {

/// A program line that failed. `what()` is the library's own message.
class ProgramError : public std::runtime_error {
 public:
  ProgramError(const std::string& message, unsigned long line)
      : std::runtime_error(message), line_(line) {}
  /// The failing line, counted from 1.
  unsigned long line() const { return line_; }

 private:
  unsigned long line_;
};

class Context {
 public:
  Context();
  ~Context();
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  /// Installs `lines` and points `LNN` at the first of them.
  void set_program(const std::vector<std::string>& lines);
  /// Runs from line `LNN` to the end. Throws ProgramError; the context is then good for reading
  /// registers and nothing else.
  void run();
  /// `set_program` and `run`.
  void run(const std::vector<std::string>& lines);

  std::uint64_t read(const std::string& name) const;
  void write(const std::string& name, std::uint64_t word);

 private:
  void* handle_;
};

}  // namespace qz_tool
