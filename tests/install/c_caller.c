/* The public header as a C program sees it. */

#include <signal.h>
#include <stdio.h>

#include "vm_wrapper.h"

/* 0 if the contract's functions do what they say. */
static int call_plainly(void) {
  const char* lines[] = {"GP0 1.5", "ADD GP0 ONE;"};
  double column[] = {1.5, 9.0, 2.5, 8.0};
  unsigned short categories[4];
  DiscretizationModel model = discretize(categories, column, 4, 2);
  void* ctx = create_ctx();
  signal(SIGINT, ctrlchandler);
  if (ctx_set_code(ctx, lines, 2) != 1 || ctx_write_reg(ctx, "MIO", 5) != 1) return 1;
  if (run_ctx(ctx) != 1 || ctx_read_reg(ctx, "LNN") != 2 || reset_ctx(ctx) != 1) return 1;
  destroy_ctx(ctx);
  discretize_precomputed(categories, column, 4, model);
  if (model.num_intervals != 2 || categories[0] != 0 || categories[1] != 1) return 1;
  return 0;
}

/* 0 if a program that fails on its last line leaves this program alive. */
static int call_guarded(void) {
  const char* lines[] = {"# a model without a graph",
                         "GVX 4",
                         "GRA CHAIN;",
                         "LDX GPT;",
                         "DEL GPT;",
                         "MIO 5",
                         "",
                         "INFER;"};
  int64_t word = 0;
  void* ctx = try_create_ctx();
  if (ctx == NULL || try_ctx_write_reg(ctx, "SEP", '|') != QZ_FAILED) return 1;
  if (try_ctx_set_code(ctx, lines, 8) != QZ_DONE || try_run_ctx(ctx) != QZ_FAILED) return 1;
  if (try_ctx_read_reg(ctx, "MIO", &word) != QZ_DONE || word != 5) return 1;
  if (try_run_ctx(ctx) != QZ_REFUSED || try_reset_ctx(ctx) != QZ_REFUSED) return 1;
  printf("%lld: %s\n", (long long)ctx_error_line(ctx), ctx_error_text(ctx));
  destroy_ctx(ctx);
  return 0;
}

int main(void) {
  printf("%lu %d\n", version(), __run);
  return call_plainly() + call_guarded();
}
