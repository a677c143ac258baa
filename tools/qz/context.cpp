#include "context.h"

#include <exception>

#include "vm_wrapper.h"

namespace qz_tool {

Context::Context() : handle_(create_ctx()) {}

Context::~Context() { destroy_ctx(handle_); }

void Context::set_program(const std::vector<std::string>& lines) {
  std::vector<const char*> texts;
  for (const std::string& line : lines) texts.push_back(line.c_str());
  ctx_set_code(handle_, texts.data(), texts.size());
}

void Context::run() {
  try {
    run_ctx(handle_);
  } catch (const std::exception& error) {
    throw ProgramError(error.what(), read("LNN") + 1);
  }
}

void Context::run(const std::vector<std::string>& lines) {
  set_program(lines);
  run();
}

std::uint64_t Context::read(const std::string& name) const {
  return static_cast<std::uint64_t>(ctx_read_reg(handle_, name.c_str()));
}

void Context::write(const std::string& name, std::uint64_t word) {
  ctx_write_reg(handle_, name.c_str(), word);
}

}  // namespace qz_tool
