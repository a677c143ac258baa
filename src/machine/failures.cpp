#include <algorithm>
#include <string>

#include "QZ/io/model_container.h"
#include "QZ/machine/vm.h"

namespace QZ {

void vm_t::keep_failure(const char* message) noexcept {
  try {
    failure_text_ = message;
  } catch (...) {
    // Short enough to need no memory.
    failure_text_ = "out of memory";
  }
  failure_line_ = -1;
}

void vm_t::keep_failed_run(const char* message) noexcept {
  keep_failure(message);
  failure_line_ = static_cast<long>(word(VarType::LNN));
  failed_run_ = true;
  runLock.unlock();
}

// The arrays are the machine's own: callers only borrow them, and no other register points there.
// Every container begins with the codes of its types, so that a program which has changed IDX or
// VAL since does no harm.
void vm_t::release_model_arrays() {
  const auto* codes = object<const unsigned char>(VarType::MPT);
  if (codes == nullptr) return;
  set(VarType::IDX, static_cast<unsigned long>(codes[0]));
  set(VarType::VAL, static_cast<unsigned long>(codes[1]));
  for_type_pair([&]<class idx_t, class val_t>(type_pair<idx_t, val_t>) {
    auto& model = *object<IO<idx_t, val_t>>(VarType::MPT);
    if (model.reservedByte != 0) return;
    delete[] model.weights;
    delete[] model.stats;
    delete[] model.states;
    delete[] model.offsets;
  });
}

void vm_t::end_failed_run() {
  if (!failed_run_) return;
  release_model_arrays();
  // An index type that does not exist would keep the graph from being released. Which one is
  // written here does not matter: the graph knows how to destroy itself.
  set(VarType::IDX, std::min(get(VarType::IDX), static_cast<unsigned long>(IdxType::UINT64)));
  failed_run_ = false;
  set_busy(false);
}

}  // namespace QZ
