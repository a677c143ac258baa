#pragma once

/// The inverse of a small dense matrix.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "QZ/support/assertion.h"
#include "QZ/support/fused.h"

namespace QZ {

/// Writes the inverse of the n by n matrix `in` to `out`, both row-major, by Gauss-Jordan
/// elimination with partial pivoting; of equal pivots the first row is taken. `out` may be `in`.
/// Returns 0. A column without a pivot, in a singular matrix, stops at the assertion "false".
template <class idx_t, class val_t>
int invert(val_t*& out, const val_t* const& in, const idx_t& n) {
  static_assert(std::is_integral_v<idx_t> && std::is_floating_point_v<val_t>);
  const std::size_t size = static_cast<std::size_t>(n);
  const std::size_t width = 2 * size;
  std::vector<std::unique_ptr<val_t[]>> rows(size);
  for (std::size_t i = 0; i < size; ++i) {
    rows[i] = std::make_unique<val_t[]>(width);
    std::copy_n(in + i * size, size, rows[i].get());
    rows[i][size + i] = 1;
  }
  for (std::size_t c = 0; c < size; ++c) {
    std::size_t best = c;
    for (std::size_t r = c + 1; r < size; ++r) {
      if (std::abs(rows[r][c]) > std::abs(rows[best][c])) best = r;
    }
    assert_that(rows[best][c] != 0, "false", door::poly);
    std::swap(rows[c], rows[best]);
    val_t* const pivot_row = rows[c].get();
    const val_t pivot = pivot_row[c];
    for (std::size_t i = 0; i < width; ++i) pivot_row[i] /= pivot;
    for (std::size_t r = 0; r < size; ++r) {
      if (r == c) continue;
      val_t* const row = rows[r].get() + c;
      add_scaled(row, row, -row[0], pivot_row + c, width - c);
    }
  }
  for (std::size_t i = 0; i < size; ++i) std::copy_n(rows[i].get() + size, size, out + i * size);
  return 0;
}

}  // namespace QZ
