#include <stdexcept>
#include <string>

#include "QZ/data/categorical_data.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/file_list.h"
#include "QZ/machine/vm.h"
#include "QZ/support/conversions.h"

namespace QZ {

bool vm_t::exec() {
  pending = 0;
  switch (currentOp) {
    case OpType::MOV:
      store_number(arg0,
                   type(arg1) == TypeType::T_REAL ? getR(arg1) : static_cast<double>(get(arg1)));
      break;
    case OpType::ADD:
      store_number(arg0, number(arg0) + number(arg1));
      break;
    case OpType::MUL:
      store_number(arg0, number(arg0) * number(arg1));
      break;
    case OpType::INC:
      step(arg0, 1.0);
      break;
    case OpType::DEC:
      step(arg0, -1.0);
      break;
    case OpType::BRA:
      branch(true, arg0);
      break;
    case OpType::BNZ:
      branch(number(arg0) != 0.0, arg1);
      break;
    case OpType::BLT:
      branch(number(arg0) < number(arg1), arg2);
      break;
    case OpType::BNE:
      branch(number(arg0) != number(arg1), arg2);
      break;
    case OpType::PUSH:
      push(arg0);
      break;
    case OpType::POP:
      pop(arg0);
      break;
    case OpType::CLEARSTACK:
      valueStack.clear();
      break;
    case OpType::LDX:
      load_resource(arg0);
      break;
    case OpType::STORE:
      store_resource(arg0);
      break;
    case OpType::DEL:
      delete_resource(arg0);
      break;
    default:
      exec_work();
  }
  return true;
}

// All arithmetic passes through double. The real view comes first in any case, so that RND and UNI
// draw at every use.
double vm_t::number(VarType var) const {
  const double real = getR(var);
  return type(var) == TypeType::T_UINT ? static_cast<double>(get(var)) : real;
}

void vm_t::store_number(VarType var, double value) {
  if (type(var) == TypeType::T_REAL) {
    set(var, value);
  } else {
    set(var, saturating_cast<unsigned long>(value));
  }
}

// Unlike store_number, a register that is neither integer nor real is stepped as a real number.
void vm_t::step(VarType var, double amount) {
  if (type(var) == TypeType::T_UINT) {
    set(var, saturating_cast<unsigned long>(static_cast<double>(get(var)) + amount));
  } else {
    set(var, getR(var) + amount);
  }
}

unsigned long vm_t::target(VarType var) const {
  return type(var) == TypeType::T_UINT ? get(var) : saturating_cast<unsigned long>(getR(var));
}

// The target is read even if the branch is not taken: it may draw, or turn out to be no register.
void vm_t::branch(bool taken, VarType to) {
  const unsigned long line = target(to);
  if (taken) set(VarType::LNN, line);
}

void vm_t::push(VarType var) { valueStack.push_back({get(var), type(var)}); }

// The class that the value had when it was pushed decides how it is written.
void vm_t::pop(VarType var) {
  if (valueStack.empty()) throw std::logic_error("the stack is empty");
  const StackEntry entry = valueStack.back();
  valueStack.pop_back();
  switch (entry.type) {
    case TypeType::T_UINT:
      return set(var, entry.word);
    case TypeType::T_BOOL:
      return set_word(var, static_cast<unsigned char>(entry.word));
    case TypeType::T_STRING:
    case TypeType::T_REAL:
    case TypeType::T_POINTER:
      return set_word(var, entry.word);
    case TypeType::T_CHAR:
      // A character does not come back from the stack.
      return;
  }
}

const std::vector<vm_t::Work>& vm_t::works() {
  using enum VarType;
  constexpr auto model = &vm_t::requireMPT;
  constexpr auto graph = &vm_t::requireGPT;
  constexpr auto data = &vm_t::requireDPT;
  static const std::vector<Work> table = {
      {OpType::ESTIMATE, {model}, &vm_t::estimateFunc},
      {OpType::STATS, {model, graph}, &vm_t::statsFunc, MPT},
      {OpType::MODEL, {graph, data}, &vm_t::modelFunc, MPT},
      {OpType::INFER, {graph, model}, &vm_t::inferFunc, PPT},
      {OpType::PREDICT, {model, data}, &vm_t::predictFunc},
      {OpType::SCORE, {model, data}, &vm_t::scoreFunc},
      {OpType::SAMPLE, {model}, &vm_t::sampleFunc, DPT},
      {OpType::STGRAPH, {graph}, &vm_t::convertGraphST},
      {OpType::BOLTZMANNTREE, {graph}, &vm_t::convertGraphDBT},
      {OpType::JUNCTIONTREE, {graph}, &vm_t::convertGraphJT},
      {OpType::BASEGRAPH, {graph}, &vm_t::getBaseGraph},
      {OpType::INITLATENT, {graph, data}, &vm_t::initLatent},
      {OpType::CLOSEDFORM, {graph, model}, &vm_t::closedForm},
      {OpType::INITGAUSS, {model}, &vm_t::initGauss},
      {OpType::INITZERO, {model}, &vm_t::initZero},
  };
  return table;
}

void vm_t::exec_work() {
  for (const Work& row : works()) {
    if (row.op != currentOp) continue;
    for (const auto requirement : row.requirements) (this->*requirement)();
    if (!dryRun) {
      (this->*row.work)();
    } else if (row.filled != unknown_register) {
      set(row.filled, placeholder);
    }
    return;
  }
}

void vm_t::require_file(VarType var) const {
  const std::string name = text(var);
  if (!file_exists(name)) throw std::logic_error("file " + name + " does not exist");
}

void vm_t::load_resource(VarType var) {
  using enum VarType;
  const std::string op = std::to_string(static_cast<unsigned>(currentOp));
  const bool from_file = get(GRA) == static_cast<unsigned long>(GraphType::FILE);
  switch (var) {
    case MPT:
      if (word(MFN) == 0) throw std::logic_error(op + " requires a loaded model");
      require_file(MFN);
      if (!dryRun) return loadModel();
      set(MPT, placeholder);
      return set(GPT, placeholder);
    case GPT:
      if (from_file && word(EAP) == 0) {
        if (word(GFN) == 0) throw std::logic_error(op + " requires an adjacency matrix file");
        require_file(GFN);
      }
      return dryRun ? set(GPT, placeholder) : loadGraph();
    case DPT:
      if (word(EDP) == 0) {
        if (word(DFN) == 0) throw std::logic_error(op + " requires a data filename");
        require_file(DFN);
      }
      return dryRun ? set(DPT, placeholder) : loadData();
    default:
      throw std::logic_error("cannot load unknown data");
  }
}

void vm_t::refuse_overwrite(VarType var, const char* message) const {
  const bool overwrite = static_cast<unsigned char>(get(VarType::OVW)) != 0;
  if (!overwrite && file_exists(text(var))) throw std::logic_error(message);
}

void vm_t::store_resource(VarType var) {
  using enum VarType;
  switch (var) {
    case MPT:
      // The word "data" is meant here, though a model is missing.
      if (word(MPT) == 0) throw std::logic_error("no data loaded");
      if (word(MFN) == 0) throw std::logic_error("no model filename provided");
      refuse_overwrite(MFN, "overwrite disabled but modelfile exists");
      if (dryRun) return;
      return for_type_pair([&]<class idx_t, class val_t>(type_pair<idx_t, val_t>) {
        require_object<IO<idx_t, val_t>>(MPT)->store(text(MFN));
      });
    case GPT:
      if (get(FMT) == static_cast<unsigned long>(GraphExport::FG) &&
          (word(MPT) == 0 || word(GPT) == 0 || word(GFN) == 0)) {
        throw std::logic_error("model or graph missing");
      }
      if (word(GPT) == 0 || word(GFN) == 0) {
        throw std::logic_error("graph of graphfile missing");
      }
      refuse_overwrite(GFN, "overwrite disabled but graphfile exists");
      return dryRun ? void() : storeGraph();
    case DPT:
      if (word(DPT) == 0) throw std::logic_error("no data loaded");
      if (word(DFN) == 0) throw std::logic_error("no data filename provided");
      // The text of a model file is the required one here too.
      refuse_overwrite(DFN, "overwrite disabled but modelfile exists");
      return dryRun ? void() : require_object<CategoricalData>(DPT)->store(text(DFN));
    default:
      throw std::logic_error("cannot store");
  }
}

void vm_t::delete_resource(VarType var) {
  using enum VarType;
  switch (var) {
    case MFN:
    case GFN:
    case DFN:
    case GPS:
    case LFN:
    case NAM:
      return release_string(var);
    case OTHERFN:
      // Released only while a data file is named, and forgotten in any case.
      return word(DFN) != 0 ? release_string(OTHERFN) : set_word(OTHERFN, 0);
    case LPT:
      return release_layers();
    case MPT:
      return dryRun ? set(MPT, 0ul) : freeModel();
    case GPT:
      return dryRun ? set(GPT, 0ul) : freeGraph();
    case DPT:
      return dryRun ? set(DPT, 0ul) : freeData();
    case PPT:
      return dryRun ? set(PPT, 0ul) : freeMarginals();
    default:
      throw std::logic_error("cannot release memory of unknown type");
  }
}

}  // namespace QZ
