#pragma once

/// A context behind the exported functions, for tests that run whole programs.

#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "vm_wrapper.h"

namespace qz_test {

class Door {
 public:
  Door() : ctx_(create_ctx()) {}
  ~Door() { destroy_ctx(ctx_); }
  Door(const Door&) = delete;
  Door& operator=(const Door&) = delete;

  /// Installs `lines` and runs them; exceptions pass through.
  int run(const std::vector<std::string>& lines) {
    std::vector<const char*> texts;
    for (const std::string& line : lines) texts.push_back(line.c_str());
    ctx_set_code(ctx_, texts.data(), texts.size());
    return run_ctx(ctx_);
  }
  std::uint64_t word(const char* name) const {
    return static_cast<std::uint64_t>(ctx_read_reg(ctx_, name));
  }
  double real(const char* name) const { return std::bit_cast<double>(word(name)); }
  void write(const char* name, std::uint64_t value) { ctx_write_reg(ctx_, name, value); }
  void write(const char* name, double value) { write(name, std::bit_cast<std::uint64_t>(value)); }
  /// The block of marginals in `PPT`.
  const double* marginals() const { return reinterpret_cast<const double*>(word("PPT")); }

 protected:
  void* ctx_;
};

}  // namespace qz_test
