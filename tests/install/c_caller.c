/* The public header as a C program sees it. */

#include <signal.h>
#include <stdio.h>

#include "vm_wrapper.h"

int main(void) {
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
  printf("%lu %d\n", version(), __run);
  return 0;
}
