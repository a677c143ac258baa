#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "QZ/machine/vm.h"

namespace QZ {

// Nothing here guards the lock or the busy mark: a run that throws keeps both, which is how a
// failed machine refuses all further work.
unsigned char vm_t::run() {
  if (running()) return 0;
  if (code == nullptr) throw std::logic_error("no program set");
  runLock.lock();
  if (failed_run_) {
    // The run that this one has waited for.
    runLock.unlock();
    return 0;
  }
  set_busy(true);
  dryRun = 0;
  while (get(VarType::LNN) < code->size()) {
    run_line(std::string(code->at(get(VarType::LNN))));
    // Read anew: a branch may have written it, and goes on behind its target.
    set_word(VarType::LNN, get(VarType::LNN) + 1);
  }
  set_busy(false);
  runLock.unlock();
  return 1;
}

void vm_t::run_line(const std::string& line) {
  if (line.starts_with('#')) return;
  for (unsigned long pos = 0; pos < line.size();) pos = parseNext(line, pos);
  if (pending != 0) throw std::logic_error("unexpected end of line");
}

bool vm_t::setCode(std::vector<std::string>* lines) {
  if (running()) return false;
  set_word(VarType::LNN, 0);
  if (code != lines) delete code;
  code = lines;
  return true;
}

unsigned char vm_t::setCode(const char* const* lines, unsigned long count) {
  if (running()) return 0;
  if (lines == nullptr && count > 0) throw std::logic_error("the list of lines is null");
  std::unique_ptr<std::vector<std::string>> made;
  if (code == nullptr) made = std::make_unique<std::vector<std::string>>();
  std::vector<std::string>& list = code == nullptr ? *made : *code;
  list.clear();
  list.reserve(count);
  for (unsigned long i = 0; i < count; ++i) list.emplace_back(lines[i]);
  if (running()) return 1;
  set(VarType::LNN, 0ul);
  if (made != nullptr) code = made.release();
  return 1;
}

void vm_t::release_code() {
  delete code;
  code = nullptr;
}

}  // namespace QZ
