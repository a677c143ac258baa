/// The exported functions from which no exception escapes.

#include <cxxabi.h>

#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "QZ/data/discretization.h"
#include "QZ/machine/vm.h"
#include "QZ/support/assertion.h"
#include "vm_wrapper.h"

namespace {

/// What failed on this thread without a context to keep it.
thread_local std::string thread_failure;

void keep_with_thread(const char* message) noexcept {
  try {
    thread_failure = message;
  } catch (...) {
    thread_failure = "out of memory";
  }
}

/// While it lives, a broken invariant on this thread is an exception.
class InvariantsThrow {
 public:
  InvariantsThrow() = default;
  ~InvariantsThrow() { QZ::assertion_handler = before_; }
  InvariantsThrow(const InvariantsThrow&) = delete;
  InvariantsThrow& operator=(const InvariantsThrow&) = delete;

 private:
  static void leave(const char* text) {
    throw std::logic_error("broken invariant: " + std::string(text));
  }
  const QZ::AssertionHandler before_ = std::exchange(QZ::assertion_handler, &leave);
};

/// Does `work`, and hands the text of what it throws to `keep`. Returns the status of `work`, or
/// `QZ_FAILED`.
template <class Work, class Keep>
int guarded(Work&& work, Keep&& keep) {
  try {
    const InvariantsThrow invariants_throw;
    return work();
  } catch (const abi::__forced_unwind&) {
    // A thread that is being cancelled; it must not be stopped on its way.
    throw;
  } catch (const std::exception& error) {
    keep(error.what());
  } catch (...) {
    keep("an exception that has no text");
  }
  return QZ_FAILED;
}

/// As above, for work on a machine that is not running. The machine keeps the failure.
template <class Work>
int guarded_on(void* ctx, Work&& work) {
  if (ctx == nullptr) {
    keep_with_thread("the context is null");
    return QZ_FAILED;
  }
  auto& vm = *static_cast<QZ::vm_t*>(ctx);
  if (vm.running()) return QZ_REFUSED;
  return guarded([&] { return work(vm); }, [&](const char* text) { vm.keep_failure(text); });
}

}  // namespace

void* try_create_ctx(void) {
  void* made = nullptr;
  guarded(
      [&] {
        made = create_ctx();
        return QZ_DONE;
      },
      keep_with_thread);
  return made;
}

int try_reset_ctx(void* ctx) {
  return guarded_on(ctx, [](QZ::vm_t& vm) { return int{vm.reset()}; });
}

int try_ctx_set_code(void* ctx, const char* const* lines, unsigned long count) {
  return guarded_on(ctx, [&](QZ::vm_t& vm) {
    for (unsigned long i = 0; lines != nullptr && i < count; ++i) {
      if (lines[i] == nullptr) throw std::logic_error("line " + std::to_string(i) + " is null");
    }
    return int{vm.setCode(lines, count)};
  });
}

int try_ctx_read_reg(void* ctx, const char* name, int64_t* word) {
  if (ctx == nullptr || name == nullptr || word == nullptr) return QZ_FAILED;
  const auto& vm = *static_cast<QZ::vm_t*>(ctx);
  return guarded(
      [&] {
        if (!vm.has_register(name)) return int{QZ_FAILED};
        *word = vm.read_register(name);
        return int{QZ_DONE};
      },
      [](const char*) {});
}

int try_ctx_write_reg(void* ctx, const char* name, uint64_t word) {
  return guarded_on(ctx, [&](QZ::vm_t& vm) {
    if (name == nullptr) throw std::logic_error("the register's name is null");
    if (!vm.has_register(name)) throw std::logic_error("no register is named " + std::string(name));
    return int{vm.write_register(name, word)};
  });
}

int try_run_ctx(void* ctx) {
  return guarded_on(ctx, [](QZ::vm_t& vm) {
    if (!vm.has_code()) throw std::logic_error("no program set");
    return guarded([&] { return int{vm.run()}; },
                   [&](const char* text) { vm.keep_failed_run(text); });
  });
}

int try_discretize(unsigned short* out, double* in, size_t n, size_t bins,
                   DiscretizationModel* model) {
  return guarded(
      [&] {
        *model = QZ::discretize(out, in, n, bins);
        return int{QZ_DONE};
      },
      keep_with_thread);
}

int try_discretize_precomputed(unsigned short* out, double* in, size_t n,
                               DiscretizationModel model) {
  return guarded(
      [&] {
        QZ::discretize_precomputed(out, in, n, model);
        return int{QZ_DONE};
      },
      keep_with_thread);
}

const char* ctx_error_text(void* ctx) {
  if (ctx == nullptr) return thread_failure.c_str();
  return static_cast<QZ::vm_t*>(ctx)->failure_text().c_str();
}

int64_t ctx_error_line(void* ctx) {
  return ctx == nullptr ? -1 : static_cast<QZ::vm_t*>(ctx)->failure_line();
}
