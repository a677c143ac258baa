#pragma once

/// What all fuzz targets share: lawful ends, claims about what was read, files without a disk.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

#include "QZ/support/assertion.h"

/// The entry point of a target. Called once per input; a crash is a finding.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace qz_fuzz {

/// Stands for the end of the process by a named assertion.
class NamedAssertion : public std::logic_error {
 public:
  using std::logic_error::logic_error;
};

/// Does `work`, which may also end by a standard exception or a named assertion: then the result is
/// false. Anything else ends the process.
template <class Work>
bool ends_well(Work&& work) {
  const auto previous =
      std::exchange(QZ::assertion_handler, [](const char* text) { throw NamedAssertion(text); });
  bool well = true;
  try {
    std::forward<Work>(work)();
  } catch (const std::exception&) {
    well = false;
  }
  QZ::assertion_handler = previous;
  return well;
}

/// Ends the process unless the property holds.
inline void claim(bool holds, const char* text) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", text);
  std::abort();
}

/// The bytes of an input, taken from the front.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : next_(reinterpret_cast<const char*>(data)), left_(size) {}

  bool empty() const { return left_ == 0; }
  /// The next byte, or 0 behind the end.
  unsigned byte() {
    if (empty()) return 0;
    --left_;
    return static_cast<unsigned char>(*next_++);
  }
  std::string rest() const { return {next_, left_}; }

 private:
  const char* next_;
  std::size_t left_;
};

/// A file in memory that has a path.
class MemoryFile {
 public:
  explicit MemoryFile(const std::string& content = "") : file_(memfd_create("qz", 0)) {
    if (file_ < 0) throw std::runtime_error("no file in memory");
    path_ = "/proc/self/fd/" + std::to_string(file_);
    std::ofstream(path_, std::ios::binary) << content;
  }
  ~MemoryFile() { close(file_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  const std::string& path() const { return path_; }
  std::string content() const {
    std::ifstream in(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

 private:
  int file_;
  std::string path_;
};

}  // namespace qz_fuzz
