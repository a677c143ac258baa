#include "vm_wrapper.h"

#include <cstdlib>
#include <stdexcept>

#include "QZ/data/discretization.h"
#include "QZ/machine/vm.h"
#include "QZ/support/interrupt.h"

unsigned char __run = 1;

namespace {

QZ::vm_t& machine(void* ctx) {
  if (ctx == nullptr) throw std::logic_error("the context is null");
  return *static_cast<QZ::vm_t*>(ctx);
}

}  // namespace

void* create_ctx(void) { return new QZ::vm_t; }

void destroy_ctx(void* ctx) {
  if (ctx == nullptr) return;
  machine(ctx).end_failed_run();
  // The program of a context is always the copy that ctx_set_code made.
  machine(ctx).release_code();
  delete &machine(ctx);
}

int reset_ctx(void* ctx) { return machine(ctx).reset(); }

int ctx_set_code(void* ctx, const char* const* lines, unsigned long count) {
  return machine(ctx).setCode(lines, count);
}

int64_t ctx_read_reg(void* ctx, const char* name) { return machine(ctx).read_register(name); }

int ctx_write_reg(void* ctx, const char* name, uint64_t word) {
  return machine(ctx).write_register(name, word);
}

int run_ctx(void* ctx) { return machine(ctx).run(); }

unsigned long version(void) { return 10063; }

void ctrlchandler(int) {
  if (QZ::stop_requested()) std::abort();
  __run = 0;
}

DiscretizationModel discretize(unsigned short* out, double* in, size_t n, size_t bins) {
  return QZ::discretize(out, in, n, bins);
}

void discretize_precomputed(unsigned short* out, double* in, size_t n, DiscretizationModel model) {
  QZ::discretize_precomputed(out, in, n, model);
}

vm_wrapper::vm_wrapper() : machine_(new QZ::vm_t) {}

vm_wrapper::~vm_wrapper() { delete machine_; }

void vm_wrapper::run() { machine_->run(); }

void vm_wrapper::setCode(std::vector<std::string>* lines) { machine_->setCode(lines); }
