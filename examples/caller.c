/*
 * A C host program: runs a program, with a register written before and results read afterwards.
 */

#include <stdio.h>
#include <string.h>

#include "vm_wrapper.h"

static const char* const program[] = {
    "DFN 'examples/hair_eye_color.csv';",
    "LDX DPT;",
    "GRA CHAIN;",
    "LDX GPT;",
    "MODEL;",
    "ALG FL1;",
    "MIO 5000;",
    "EPO 1e-9;",
    "ESTIMATE;",
    "DEL DPT;",
    "INFER;",
};

/* A real register comes back as the bits of a double, and goes in the same way. */
static double read_real(void* ctx, const char* name) {
  int64_t word = 0;
  double value;
  try_ctx_read_reg(ctx, name, &word);
  memcpy(&value, &word, sizeof value);
  return value;
}

static void write_real(void* ctx, const char* name, double value) {
  uint64_t word;
  memcpy(&word, &value, sizeof word);
  try_ctx_write_reg(ctx, name, word);
}

static void report(size_t done, size_t total, const char* tag) {
  fprintf(stderr, "%s %zu/%zu\n", tag, done, total);
}

int main(void) {
  void* ctx = try_create_ctx();
  write_real(ctx, "STP", 1.0);
  try_ctx_write_reg(ctx, "CBP", (uint64_t)(uintptr_t)&report);

  /* The plain functions throw C++ exceptions, which a C program cannot catch. */
  if (try_ctx_set_code(ctx, program, sizeof program / sizeof *program) != QZ_DONE ||
      try_run_ctx(ctx) != QZ_DONE) {
    fprintf(stderr, "line %lld: %s\n", (long long)ctx_error_line(ctx) + 1, ctx_error_text(ctx));
    destroy_ctx(ctx);
    return 1;
  }

  printf("library %lu\n", version());
  printf("rows %lld\n", (long long)ctx_read_reg(ctx, "NXX"));
  printf("objective %.6f\n", read_real(ctx, "RES"));

  /* The marginals of the edges come first, one for each parameter; then those of the vertices. The
     first vertex is the hair colour, whose four states stand in the order of the table. */
  const double* marginals = (const double*)(uintptr_t)ctx_read_reg(ctx, "PPT");
  const double* hair = marginals + ctx_read_reg(ctx, "DIM");
  printf("hair %.6f %.6f %.6f %.6f\n", hair[0], hair[1], hair[2], hair[3]);

  destroy_ctx(ctx);
  return 0;
}
