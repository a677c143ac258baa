#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/graph/abstract_graph.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/vm.h"
#include "QZ/machine/vocabulary.h"

namespace QZ {

unsigned long vm_t::requireMPT() const {
  if (word(VarType::MPT) == 0) throw std::logic_error("no model loaded");
  return word(VarType::MPT);
}

unsigned long vm_t::requireGPT() const {
  if (word(VarType::GPT) == 0) throw std::logic_error("no graph loaded");
  return word(VarType::GPT);
}

unsigned long vm_t::requireDPT() const {
  if (word(VarType::DPT) == 0) throw std::logic_error("no data loaded");
  return word(VarType::DPT);
}

void vm_t::throw_no_object(VarType var) const {
  for (const auto& row : vocabulary::registers) {
    if (row.var == var) throw std::logic_error(std::string("no object loaded ") + row.name);
  }
  throw std::logic_error("no object loaded");
}

// A program may have copied the word, by MOV or over the stack, to where it would be released
// again.
void vm_t::forget(unsigned long word) {
  using enum VarType;
  if (word <= placeholder) return;
  for (const VarType var : {DPT, GPT, MPT, PPT, LPT, MFN, GFN, DFN, OTHERFN, GPS, LFN, NAM}) {
    if (this->word(var) == word) set_word(var, 0);
  }
  for (StackEntry& entry : valueStack) {
    const bool points = entry.type == TypeType::T_STRING || entry.type == TypeType::T_POINTER;
    if (points && entry.word == word) entry.word = 0;
  }
}

// The graph and the arrays that the container points to stay: other registers may hold them.
void vm_t::freeModel() {
  for_type_pair([&]<class idx_t, class val_t>(type_pair<idx_t, val_t>) {
    auto* container = object<IO<idx_t, val_t>>(VarType::MPT);
    if (container == nullptr || container->reservedByte != 0) return;
    delete container;
    forget(word(VarType::MPT));
  });
  set_word(VarType::MPT, 0);
}

void vm_t::freeGraph() {
  if (object<void>(VarType::GPT) != nullptr) {
    const auto index = static_cast<unsigned char>(get(VarType::IDX));
    const bool known = dispatch_index(index, [&]<class idx_t>(std::type_identity<idx_t>) {
      delete object<AbstractGraph<idx_t>>(VarType::GPT);
    });
    if (!known) throw std::logic_error("unsupported storage type");
    forget(word(VarType::GPT));
  }
  set(VarType::GPT, 0ul);
}

void vm_t::freeData() {
  delete object<CategoricalData>(VarType::DPT);
  forget(word(VarType::DPT));
  set_word(VarType::DPT, 0);
}

void vm_t::freeMarginals() {
  // An array of plain numbers, of whatever width.
  ::operator delete[](object<void>(VarType::PPT));
  forget(word(VarType::PPT));
  set_word(VarType::PPT, 0);
}

void vm_t::release_string(VarType var) {
  delete object<std::string>(var);
  forget(word(var));
  set(var, static_cast<std::string*>(nullptr));
}

void vm_t::release_layers() {
  delete object<std::vector<unsigned long>>(VarType::LPT);
  forget(word(VarType::LPT));
  set(VarType::LPT, 0ul);
}

}  // namespace QZ
