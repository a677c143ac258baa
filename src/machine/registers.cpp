#include <omp.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <exception>
#include <limits>
#include <mutex>
#include <random>
#include <span>
#include <stdexcept>
#include <string>

#include "QZ/data/categorical_data.h"
#include "QZ/graph/abstract_graph.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/vm.h"
#include "QZ/machine/vocabulary.h"

namespace QZ {

namespace {

template <class enum_t>
vm_t::NameTable<enum_t> name_table(std::span<const vocabulary::Keyword<enum_t>> keywords) {
  vm_t::NameTable<enum_t> table;
  for (const auto& keyword : keywords) table.emplace_back(keyword.name, keyword.value);
  return table;
}

vm_t::NameTable<OpType> operations_with(unsigned operands) {
  vm_t::NameTable<OpType> table;
  for (const auto& operation : vocabulary::operations) {
    if (operation.operands == operands) table.emplace_back(operation.name, operation.op);
  }
  return table;
}

unsigned int clock_seed() {
  return static_cast<unsigned int>(std::chrono::system_clock::now().time_since_epoch().count());
}

}  // namespace

vm_t::vm_t()
    : ops0(operations_with(0)),
      ops1(operations_with(1)),
      ops2(operations_with(2)),
      ops3(operations_with(3)),
      infNames(name_table(vocabulary::engines)),
      optNames(name_table(vocabulary::optimizers)),
      idxNames(name_table(vocabulary::index_types)),
      valNames(name_table(vocabulary::value_types)),
      reparamNames(name_table(vocabulary::parametrisations)),
      exportNames(name_table(vocabulary::exports)),
      graphNames(name_table(vocabulary::graphs)),
      rng(new std::mt19937(clock_seed())) {
  for (const auto& row : vocabulary::registers) {
    registerTable.push_back({row.type, row.var, row.name});
  }
  for (const auto& alias : vocabulary::aliases) registerAliases[alias.var].insert(alias.name);
  init_storage();
}

vm_t::~vm_t() {
  try {
    reset();
  } catch (const std::exception&) {
    // An index type that does not exist: what the registers hold cannot be told, and stays.
  }
  delete rng;
}

void vm_t::init_storage() {
  for (const auto& row : vocabulary::registers) {
    registerTypes[row.var] = row.type;
    registerValues[row.var] = row.initial;
  }
  registerValues[VarType::OMP] = static_cast<unsigned long>(omp_get_max_threads());
}

unsigned char vm_t::reset() {
  using enum VarType;
  if (running()) return 0;
  for (const VarType name : {MFN, GPS, GFN, DFN, OTHERFN}) release_string(name);
  freeMarginals();
  release_layers();
  freeData();
  freeGraph();
  freeModel();
  valueStack.clear();
  registerTypes.clear();
  registerValues.clear();
  init_storage();
  return 1;
}

// The computed registers. Another thread may ask for them during a run.
unsigned long vm_t::get(VarType var) const {
  using enum VarType;
  switch (var) {
    case GVX:
    case GEX:
      return graph_size(var);
    case DIM:
      return word(MPT) == 0 ? word(DIM) : getDim();
    case NXX:
      return word(DPT) == placeholder ? 1 : word(NXX);
    case ONE:
      return 1;
    default:
      return word(var);
  }
}

unsigned long vm_t::graph_size(VarType var) const {
  if (word(VarType::MPT) == placeholder) return 1;
  unsigned long size = word(var);
  if (dryRun || object<void>(VarType::GPT) == nullptr) return size;
  const auto index = static_cast<unsigned char>(word(VarType::IDX));
  dispatch_index(index, [&]<class idx_t>(std::type_identity<idx_t>) {
    const auto* graph = object<AbstractGraph<idx_t>>(VarType::GPT);
    size = var == VarType::GVX ? graph->vertices() : graph->edges();
  });
  return size;
}

unsigned long vm_t::getDim() const {
  if (word(VarType::MPT) == placeholder) return 1;
  unsigned long dim = 0;
  for_type_pair([&]<class idx_t, class val_t>(type_pair<idx_t, val_t>) {
    const auto* container = object<IO<idx_t, val_t>>(VarType::MPT);
    if (container != nullptr) dim = container->dim;
  });
  return dim;
}

double vm_t::getR(VarType var) const {
  if (var == VarType::RND) {
    // A fresh distribution, so that its second variate is never kept for the next read.
    return std::normal_distribution<double>(0.0, getR(VarType::SDE))(*rng);
  }
  if (var == VarType::UNI) return std::uniform_real_distribution<double>(0.0, 1.0)(*rng);
  return std::bit_cast<double>(word(var));
}

void vm_t::set_word(VarType var, unsigned long word) {
  const std::lock_guard lock(registerLock);
  std::atomic_ref(registerValues[var]).store(word, std::memory_order_relaxed);
}

void vm_t::set(VarType var, unsigned long value) {
  if (var == VarType::SEED) rng->seed(static_cast<unsigned int>(value));
  if (var == VarType::OMP) {
    omp_set_num_threads(
        static_cast<int>(std::min<unsigned long>(value, std::numeric_limits<int>::max())));
  }
  if (var == VarType::SEP && static_cast<unsigned char>(value) == '|') {
    throw std::out_of_range("separator | not supported");
  }
  set_word(var, value);
}

void vm_t::set(VarType var, double value) { set_word(var, std::bit_cast<unsigned long>(value)); }

void vm_t::set(VarType var, bool value) { set_word(var, value ? 1 : 0); }

void vm_t::set(VarType var, char value) { set_word(var, static_cast<unsigned char>(value)); }

void vm_t::set(VarType var, std::string* value) {
  set_word(var, reinterpret_cast<unsigned long>(value));
}

void vm_t::set(VarType var, void* value) { set_word(var, reinterpret_cast<unsigned long>(value)); }

std::string vm_t::text(VarType var) const {
  const auto* text = object<std::string>(var);
  return text == nullptr ? std::string() : *text;
}

// Names are matched as prefixes in table order: the first row that fits decides.
VarType vm_t::getVar(const std::string& line, unsigned long& pos) {
  const auto moves_behind = [&](const std::string& name) {
    if (line.compare(pos, name.size(), name) != 0) return false;
    pos += name.size();
    return true;
  };
  for (const RegisterRow& row : registerTable) {
    if (moves_behind(row.name)) return row.var;
    const auto aliases = registerAliases.find(row.var);
    if (aliases == registerAliases.end()) continue;
    if (std::any_of(aliases->second.begin(), aliases->second.end(), moves_behind)) return row.var;
  }
  return unknown_register;
}

long vm_t::read_register(const char* name) const {
  if (name == nullptr) return -1;
  for (const RegisterRow& row : registerTable) {
    if (row.name != name) continue;
    const bool bare = row.type == TypeType::T_STRING || row.type == TypeType::T_POINTER;
    return static_cast<long>(bare ? word(row.var) : get(row.var));
  }
  return -1;
}

bool vm_t::has_register(const char* name) const {
  return std::any_of(registerTable.begin(), registerTable.end(),
                     [&](const RegisterRow& row) { return row.name == name; });
}

unsigned char vm_t::write_register(const char* name, unsigned long word) {
  if (running()) return 0;
  if (name == nullptr) return 1;
  for (const RegisterRow& row : registerTable) {
    if (row.name == name) set(row.var, word);
  }
  return 1;
}

}  // namespace QZ
