#pragma once

/// Prototypes for latent variables, drawn without repetition.

#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <vector>

#include "QZ/support/conversions.h"
#include "QZ/support/random.h"

namespace QZ {

/// A new array of rows * columns numbers below `count`, owned by the caller; that of (row, column)
/// is at column + columns * row. Drawn in this order from a pool that is refilled with 0 to count -
/// 1 when it has run dry, so that every `count` draws in a row are a permutation. The last number
/// of a pool is taken without a draw.
///
/// Throws logic_error if numbers are wanted and `count` is 0.
template <class idx_t>
idx_t* randomCenters(const idx_t& rows, const idx_t& columns, const idx_t& count,
                     std::mt19937* rng) {
  const unsigned long total = static_cast<unsigned long>(rows) * columns;
  if (total > 0 && count == 0) throw std::logic_error("there are no rows to draw centers from");
  auto centers = std::make_unique<idx_t[]>(total);
  std::vector<idx_t> unused;
  for (unsigned long i = 0; i < total; ++i) {
    if (unused.empty()) {
      unused.resize(count);
      std::iota(unused.begin(), unused.end(), idx_t(0));
    }
    const auto last = wrapping_cast<idx_t>(unused.size() - 1);
    const idx_t place = last == 0 ? 0 : draw_uniform<idx_t>(*rng, 0, last);
    centers[i] = unused[place];
    unused.erase(unused.begin() + static_cast<std::ptrdiff_t>(place));
  }
  return centers.release();
}

}  // namespace QZ
