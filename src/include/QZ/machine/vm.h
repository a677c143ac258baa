#pragma once

/// The register machine: every parameter, object and result of the library passes through its
/// registers, and a program of text lines drives it.

#include <atomic>
#include <list>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "QZ/machine/enumerations.h"
#include "QZ/machine/values.h"
#include "QZ/support/progress.h"

namespace QZ {

template <class idx_t>
class AbstractGraph;
template <class idx_t, class val_t>
class InferenceAlgorithm;
template <class idx_t, class val_t>
class AbstractMRF;
template <class idx_t, class val_t, bool minimize>
class Optimizer;
template <class idx_t, class val_t>
class IO;
class CategoricalData;

/// A value on the machine's stack, with the storage class of the register it came from.
struct StackEntry {
  unsigned long word;
  TypeType type;
};

/// A word in `DPT`, `GPT`, `MPT` or `PPT` that counts as present but stands for no object.
inline constexpr unsigned long placeholder = 1;

class vm_t {
 public:
  template <class enum_t>
  using NameTable = std::vector<std::pair<std::string, enum_t>>;
  struct RegisterRow {
    TypeType type;
    VarType var;
    std::string name;
  };

  vm_t();
  ~vm_t();
  vm_t(const vm_t&) = delete;
  vm_t& operator=(const vm_t&) = delete;

  // Registers (registers.cpp).

  /// The integer view of a register; a few registers are computed. Throws out_of_range "map::at"
  /// for a number that is no register.
  unsigned long get(VarType var) const;
  /// The real view of a register; `RND` and `UNI` draw. Throws as `get`.
  double getR(VarType var) const;
  /// Typed writes. Only the unsigned long form has side effects: `SEED` reseeds, `OMP` sets the
  /// thread count, `SEP` refuses "|" with out_of_range.
  void set(VarType var, unsigned long value);
  void set(VarType var, double value);
  void set(VarType var, bool value);
  void set(VarType var, char value);
  void set(VarType var, std::string* value);
  void set(VarType var, void* value);
  /// Writes the bare word under the register lock, without side effects.
  void set_word(VarType var, unsigned long word);
  /// The bare word, without computed registers. Another thread may poll during a run, so words are
  /// read and written whole.
  unsigned long word(VarType var) const { return load(registerValues.at(var)); }
  /// The storage class of a register. Throws as `get`.
  TypeType type(VarType var) const { return registerTypes.at(var); }
  /// The register whose name stands at `pos`, which moves behind it; `unknown_register` otherwise.
  VarType getVar(const std::string& line, unsigned long& pos);
  /// The parameter count of the container in `MPT`.
  unsigned long getDim() const;
  void init_storage();
  /// Releases what the registers hold and restores the defaults. Returns 1, or 0 during a run.
  unsigned char reset();

  /// The object behind a pointer register; null for 0 and for the placeholder.
  template <class object_t>
  object_t* object(VarType var) const {
    const unsigned long pointer = word(var);
    return pointer > placeholder ? reinterpret_cast<object_t*>(pointer) : nullptr;
  }
  /// As `object`, but throws logic_error "no object loaded" plus the register's name where an
  /// operation needs the object and the register holds none.
  template <class object_t>
  object_t* require_object(VarType var) const {
    object_t* found = object<object_t>(var);
    if (found == nullptr) throw_no_object(var);
    return found;
  }
  /// The function behind a callback register; null for 0.
  template <class function_t>
  function_t* function(VarType var) const {
    return reinterpret_cast<function_t*>(word(var));
  }
  ProgressCallback progress_callback() const {
    return reinterpret_cast<ProgressCallback>(word(VarType::CBP));
  }
  /// The text of a string register, or an empty one.
  std::string text(VarType var) const;
  std::mt19937& random_engine() { return *rng; }

  /// Calls `f(type_pair<idx_t, val_t>{})` for the pair in `IDX` and `VAL`; nothing for other pairs.
  template <class F>
  void for_type_pair(F&& f) const {
    dispatch_pair(static_cast<unsigned char>(get(VarType::IDX)),
                  static_cast<unsigned char>(get(VarType::VAL)), std::forward<F>(f));
  }

  // Program text (parser.cpp) and its execution (executor.cpp).

  /// Handles the statement at `pos` and returns where to go on.
  unsigned long parseNext(const std::string& line, unsigned long pos);
  VarType parseVar(const std::string& line, unsigned long& pos);
  template <class enum_t>
  bool parseSetter(unsigned long& pos, const std::string& line, const std::string& what,
                   VarType var, unsigned long skip, const NameTable<enum_t>& table,
                   unsigned long first);
  /// Converts the token of an assignment by the storage class and writes it. Throws what the
  /// conversion throws, and logic_error "unknown data type" for a class that does not exist.
  void assign(VarType var, TypeType type, const std::string& token);
  template <class T>
  static std::string convertList(const std::vector<T>* list) {
    return QZ::convertList(list);
  }
  /// Carries out `currentOp`. Returns true, or throws.
  bool exec();
  /// Operations that only check what they require, and leave placeholders where they would make an
  /// object. Every run starts with this off.
  void set_dry_run(bool on) { dryRun = on; }

  // Runs (run.cpp).

  /// Runs the program from line `LNN` on. Returns 1 at its end, 0 if a run is in progress. Throws
  /// logic_error "no program set" before it starts if there is none; any later exception leaves the
  /// machine busy for good.
  unsigned char run();
  /// Installs a program and takes ownership of the list. Returns false, and leaves the list with
  /// the caller, during a run.
  bool setCode(std::vector<std::string>* lines);
  /// Replaces the program by copies of `count` texts. Returns 1, or 0 during a run.
  unsigned char setCode(const char* const* lines, unsigned long count);
  /// Deletes the program, which the destructor leaves alone: a list of lines may be the caller's.
  void release_code();
  bool has_code() const { return code != nullptr; }
  /// Whether a run is in progress or has failed.
  bool running() const {
    return std::atomic_ref(const_cast<unsigned char&>(busy)).load(std::memory_order_relaxed) != 0;
  }
  /// The word of the register with exactly this name as `ctx_read_reg` gives it; -1 for none.
  long read_register(const char* name) const;
  /// Writes the register with exactly this name. Returns 0 during a run, 1 otherwise.
  unsigned char write_register(const char* name, unsigned long word);
  bool has_register(const char* name) const;

  // Failures that a guarded call has caught (failures.cpp).

  /// Keeps what a call outside a run has thrown.
  void keep_failure(const char* message) noexcept;
  /// Keeps what `run` has thrown from a line of the program, and the line. The machine stays busy,
  /// as after any failed run, but what its registers hold can be released.
  void keep_failed_run(const char* message) noexcept;
  /// The last kept failure; an empty text without one.
  const std::string& failure_text() const { return failure_text_; }
  /// The line, counted from 0, whose statement failed; -1 for a failure outside a run.
  long failure_line() const { return failure_line_; }
  /// After a run whose failure was kept: makes the destructor release what the registers hold, and
  /// releases the arrays of the model itself, by the types that the model was made with. Does
  /// nothing otherwise.
  void end_failed_run();

  // Resources (resources.cpp, loading.cpp).

  unsigned long requireMPT() const;
  unsigned long requireGPT() const;
  unsigned long requireDPT() const;
  void freeModel();
  void freeGraph();
  void freeData();
  void freeMarginals();
  void loadData();
  void loadGraph();
  void loadModel();
  void storeGraph();
  template <class idx_t, class val_t>
  void loadData0();
  template <class idx_t, class val_t>
  void loadGraph0();
  template <class idx_t, class val_t>
  void loadModel0();

  // Operations: the plain method picks the type pair, the worker with suffix 0 does the work. One
  // file each in operations/.

  void statsFunc();
  void modelFunc();
  void estimateFunc();
  void inferFunc();
  void sampleFunc();
  void predictFunc();
  void scoreFunc();
  void initZero();
  void initGauss();
  void initLatent();
  void closedForm();
  void convertGraphST();
  void convertGraphJT();
  void convertGraphDBT();
  void getBaseGraph();
  template <class idx_t, class val_t>
  void statsFunc0();
  template <class idx_t, class val_t>
  void modelFunc0();
  template <class idx_t, class val_t>
  void estimateFunc0();
  template <class idx_t, class val_t>
  void inferFunc0();
  template <class idx_t, class val_t>
  void sampleFunc0();
  template <class idx_t, class val_t>
  void predictFunc0();
  template <class idx_t, class val_t>
  void scoreFunc0();
  template <class idx_t, class val_t>
  void initZero0();
  template <class idx_t, class val_t>
  void initGauss0();
  template <class idx_t>
  void initLatent0();
  template <class idx_t, class val_t>
  void closedFormT();
  template <class idx_t, class val_t>
  void convertGraphST0();
  template <class idx_t, class val_t>
  void convertGraphJT0();
  template <class idx_t, class val_t>
  void convertGraphDBT0();
  template <class idx_t>
  void getBaseGraph0();

  /// The engine that the registers ask for, on the graph, states and weights of the container in
  /// `MPT`. The caller owns it.
  template <class idx_t, class val_t>
  InferenceAlgorithm<idx_t, val_t>* getIA();
  /// The model that the registers ask for, around an engine that it borrows. The caller owns it.
  template <class idx_t, class val_t>
  AbstractMRF<idx_t, val_t>* getMOD(InferenceAlgorithm<idx_t, val_t>* engine);
  /// Builds the optimizer in `OPT`, runs it on `model` (an AbstractMRF) and writes `RES`. The
  /// caller owns the optimizer.
  template <class idx_t, class val_t>
  Optimizer<idx_t, val_t, true>* learn(void* model);

 private:
  /// What an operation requires, what it does, and the register that a dry run fills instead.
  struct Work {
    OpType op;
    std::vector<unsigned long (vm_t::*)() const> requirements;
    void (vm_t::*work)();
    VarType filled = unknown_register;
  };
  static const std::vector<Work>& works();

  [[noreturn]] void throw_no_object(VarType var) const;
  static unsigned long load(const unsigned long& word) {
    return std::atomic_ref(const_cast<unsigned long&>(word)).load(std::memory_order_relaxed);
  }
  void set_busy(bool on) { std::atomic_ref(busy).store(on ? 1 : 0, std::memory_order_relaxed); }
  void release_string(VarType var);
  void release_layers();
  /// Empties every register and stack entry that holds the word of an object that has been
  /// released.
  void forget(unsigned long word);
  void release_model_arrays();
  unsigned long graph_size(VarType var) const;

  bool parse_operation(const std::string& line, unsigned long& pos);
  bool parse_setting(const std::string& line, unsigned long& pos);
  unsigned long parse_assignment(const std::string& line, unsigned long pos);
  void run_line(const std::string& line);

  double number(VarType var) const;
  void store_number(VarType var, double value);
  void step(VarType var, double amount);
  unsigned long target(VarType var) const;
  void branch(bool taken, VarType to);
  void push(VarType var);
  void pop(VarType var);
  void exec_work();
  void load_resource(VarType var);
  void store_resource(VarType var);
  void delete_resource(VarType var);
  void require_file(VarType var) const;
  void refuse_overwrite(VarType var, const char* message) const;

  NameTable<OpType> ops0;
  NameTable<OpType> ops1;
  NameTable<OpType> ops2;
  NameTable<OpType> ops3;
  NameTable<InfType> infNames;
  NameTable<OptType> optNames;
  NameTable<IdxType> idxNames;
  NameTable<ValType> valNames;
  NameTable<ReparamType> reparamNames;
  NameTable<GraphExport> exportNames;
  NameTable<GraphType> graphNames;
  std::vector<RegisterRow> registerTable;
  std::map<VarType, std::set<std::string>> registerAliases;
  std::mutex registerLock;
  std::mt19937* rng;
  std::vector<std::string>* code = nullptr;
  std::mutex runLock;
  unsigned char busy = 0;
  OpType currentOp = OpType::SET;
  VarType arg0 = VarType::GRA;
  VarType arg1 = VarType::GRA;
  VarType arg2 = VarType::GRA;
  unsigned char pending = 0;
  unsigned char dryRun = 0;
  std::map<VarType, unsigned long> registerValues;
  std::map<VarType, unsigned long> reservedValues;
  std::list<StackEntry> valueStack;
  std::list<StackEntry> reservedStack;
  std::map<VarType, TypeType> registerTypes;
  bool failed_run_ = false;
  long failure_line_ = -1;
  std::string failure_text_;
};

}  // namespace QZ
