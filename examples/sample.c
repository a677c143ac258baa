/*
 * A C host program that makes up a table: it fits a model to real rows, draws new rows from it into
 * a block of its own, and stores them.
 */

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "vm_wrapper.h"

enum { rows = 4000, columns = 3, hair_colours = 4 };

static const char* const fit[] = {
    "DFN 'examples/hair_eye_color.csv';",
    "LDX DPT;",
    "GRA CHAIN;",
    "LDX GPT;",
    "MODEL;",
    "CLOSEDFORM;",
    "DEL DPT;",
    "DEL DFN;",
};

/* No perturbed maximum but 50 sweeps of Gibbs sampling over the cells of a row. The names of the
 * stored cells are those of the model. */
static const char* const sample[] = {
    "LDX DPT;",  "PAM 0;",     "GRE 50;",  "SAMPLE;", "DFN 'synthetic.csv';",
    "OVW true;", "STORE DPT;", "DEL DPT;",
};

static int run(void* ctx, const char* const* lines, size_t count) {
  return ctx_set_code(ctx, lines, count) && run_ctx(ctx);
}

int main(void) {
  /* A cell with a state of the model would stay as it is; any other number asks for a draw. */
  static uint16_t cells[rows][columns];
  memset(cells, 0xfe, sizeof cells);

  void* ctx = create_ctx();
  ctx_write_reg(ctx, "SEED", 7);
  if (!run(ctx, fit, sizeof fit / sizeof *fit)) return 1;

  ctx_write_reg(ctx, "EDP", (uint64_t)(uintptr_t)cells);
  ctx_write_reg(ctx, "NXX", rows);
  ctx_write_reg(ctx, "GPX", sizeof cells);
  if (!run(ctx, sample, sizeof sample / sizeof *sample)) return 1;
  destroy_ctx(ctx);

  /* The block is this program's, and holds the rows. */
  int counts[hair_colours] = {0};
  for (int row = 0; row < rows; ++row) ++counts[cells[row][0]];
  for (int x = 0; x < hair_colours; ++x) printf("%.3f\n", counts[x] / (double)rows);
  return 0;
}
