#ifndef QZ_VM_WRAPPER_H
#define QZ_VM_WRAPPER_H

/*
 * The way into the library, for C and C++.
 *
 * A context is a register machine: give it a program of text lines, write parameters into its named
 * registers, run it, and read results back from registers. One thread works with a context at a
 * time; another may only poll it with ctx_read_reg.
 *
 * Errors are C++ exceptions of the kinds std::logic_error and std::out_of_range, which pass through
 * these functions. A context whose run has thrown is finished: it can be read (register LNN holds
 * the failing line) and destroyed, and refuses everything else.
 *
 * A host that cannot catch C++ exceptions takes the functions whose names begin with try_ instead.
 */

#include <stddef.h>
#include <stdint.h>

#include "QZ/data/discretization_model.h"

#ifdef __cplusplus
#include <string>
#include <vector>
#endif

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

/*
 * 1 at first. The long loops of the operations stop early once it is 0; nothing in the library sets
 * it back. Shared by all contexts of the process.
 */
extern unsigned char __run;

/* Makes a context, which the caller owns until destroy_ctx. */
void* create_ctx(void);

/*
 * Releases a context; null is ignored. What a run had loaded that failed in run_ctx is not
 * released; what one had loaded that failed in try_run_ctx is.
 */
void destroy_ctx(void* ctx);

/*
 * Releases what the registers hold and restores their defaults; the program stays, and starts from
 * its first line again. Returns 1, or 0 during a run.
 */
int reset_ctx(void* ctx);

/*
 * Installs copies of `count` lines as the program, to be run from its first line. Returns 1, or 0
 * during a run. A null line throws.
 */
int ctx_set_code(void* ctx, const char* const* lines, unsigned long count);

/*
 * The 64-bit word of the register with exactly this name: an integer, the bits of a double, or a
 * pointer, as the register's class has it. -1 for an unknown name. Takes no lock.
 */
int64_t ctx_read_reg(void* ctx, const char* name);

/*
 * Writes the word of a register, whatever its class: a double as its bits, a pointer as its value.
 * A write of SEED reseeds, one of OMP sets the thread count, and "|" for SEP throws. Texts are set
 * by program lines, not here. Returns 0 during a run and 1 otherwise, also for an unknown name.
 */
int ctx_write_reg(void* ctx, const char* name, uint64_t word);

/*
 * Runs the program from the line in register LNN to its end, on the calling thread. Returns 1, or 0
 * at once during a run.
 */
int run_ctx(void* ctx);

/* 10063. */
unsigned long version(void);

/*
 * A signal handler for the caller to install: the first signal clears __run, the second aborts.
 */
void ctrlchandler(int signal);

/*
 * Turns a column of n numbers into categories: learns at most `bins` bins from it and writes the
 * category of each number to `out`. A column with no more distinct numbers than bins gets a bin for
 * each; otherwise the bins hold about equally many, and equal numbers stay together. The two arrays
 * of the result are made with new[] and belong to the caller. No bins at all throw.
 */
DiscretizationModel discretize(unsigned short* out, double* in, size_t n, size_t bins);

/*
 * Writes the categories of n further numbers under a model that was learned before. Numbers beyond
 * the first or last bin count to it; one in a gap between bins ends the process.
 */
void discretize_precomputed(unsigned short* out, double* in, size_t n, DiscretizationModel model);

/*
 * The same functions for hosts that cannot catch: no exception leaves them. Each keeps the text of
 * what it has caught with the context, or with the calling thread where there is no context. A
 * broken invariant, which ends the process elsewhere, is such a failure here too.
 */
enum {
  QZ_FAILED = -1, /* see ctx_error_text */
  QZ_REFUSED = 0, /* during a run, and for good after a run that has failed */
  QZ_DONE = 1
};

/* As create_ctx, but null where that throws. */
void* try_create_ctx(void);

/* As reset_ctx. */
int try_reset_ctx(void* ctx);

/* As ctx_set_code. A null line fails and leaves the program as it was. */
int try_ctx_set_code(void* ctx, const char* const* lines, unsigned long count);

/*
 * Writes what ctx_read_reg returns to `word`. Fails, without keeping a text, where there is no
 * register of this name, so another thread may poll a running context with it.
 */
int try_ctx_read_reg(void* ctx, const char* name, int64_t* word);

/* As ctx_write_reg, but fails where there is no register of this name. */
int try_ctx_write_reg(void* ctx, const char* name, uint64_t word);

/*
 * As run_ctx. A context whose run has failed is finished: it can be read, asked for its error, and
 * destroyed. destroy_ctx then releases its table, graph, marginals and model, with the model's
 * arrays: copy what is still needed first.
 */
int try_run_ctx(void* ctx);

/* As discretize, with the result in `model`. The failure is kept with the thread. */
int try_discretize(unsigned short* out, double* in, size_t n, size_t bins,
                   DiscretizationModel* model);

/* As discretize_precomputed; a number in a gap between bins fails. Kept with the thread. */
int try_discretize_precomputed(unsigned short* out, double* in, size_t n,
                               DiscretizationModel model);

/*
 * The text of the last failure that was kept with this context, or, for null, with the calling
 * thread; empty if there was none. Good until the next call of a try_ function on the same context
 * or thread, or until the context is destroyed.
 */
const char* ctx_error_text(void* ctx);

/* The failing line of that run, counted from 0; -1 where no run has failed. */
int64_t ctx_error_line(void* ctx);

#ifdef __cplusplus
}

namespace QZ {
class vm_t;
}

/// The same machine for C++ callers.
class vm_wrapper {
 public:
  vm_wrapper();
  /// Releases the machine. The installed list of lines is left as it is.
  ~vm_wrapper();
  vm_wrapper(const vm_wrapper&) = delete;
  vm_wrapper& operator=(const vm_wrapper&) = delete;

  /// Runs the program from the line in register `LNN` to its end.
  void run();

  /// Installs a program, to be run from its first line. The list belongs to the machine from now
  /// on, which deletes it when another one takes its place. During a run nothing happens, and the
  /// list stays the caller's.
  void setCode(std::vector<std::string>* lines);

 private:
  QZ::vm_t* machine_;
};
#endif

#pragma GCC visibility pop

#endif
