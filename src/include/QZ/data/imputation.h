#pragma once

/// Random states in the place of missing cells.

#include <algorithm>
#include <random>

#include "QZ/data/categorical_data.h"
#include "QZ/support/assertion.h"
#include "QZ/support/conversions.h"
#include "QZ/support/random.h"

namespace QZ {

/// A number from 0 to states - 1, drawn in `idx_t`. With no states at all it is any number.
template <class idx_t>
idx_t draw_state(std::mt19937& rng, idx_t states) {
  return draw_uniform<idx_t>(rng, 0, wrapping_sub<idx_t>(states, 1));
}

/// Writes `draw(c)` into each missing cell of the first `columns` columns of the rows [begin, end),
/// row by row with ascending columns. Asserts "col<n+H && row<N", and what
/// `CategoricalData::set` asserts of the number drawn.
template <class Draw>
void impute(CategoricalData& data, unsigned long columns, unsigned long begin, unsigned long end,
            const Draw& draw) {
  if (begin == end) return;
  assert_that(columns <= data.n + data.H && end <= data.N, "col<n+H && row<N", door::data);
  const auto any_missing = [](const unsigned short* cells, unsigned long count) {
    unsigned short found = 0;
    for (unsigned long i = 0; i < count; ++i) found |= cells[i] == CategoricalData::MIS_VAL;
    return found != 0;
  };
  const bool with_hidden = columns > data.n;
  // A few rows at a time: complete ones are only looked through.
  const unsigned long step = 1 + 512 / (data.n + data.H + 1);
  for (unsigned long first = begin; first < end; first += step) {
    const unsigned long last = std::min(first + step, end);
    const unsigned long rows = last - first;
    if (!any_missing(data.data + first * data.n, rows * data.n) &&
        !(with_hidden && any_missing(data.hidden + first * data.H, rows * data.H))) {
      continue;
    }
    for (unsigned long row = first; row < last; ++row) {
      for (unsigned long c = 0; c < columns; ++c) {
        if (data.get(c, row) == CategoricalData::MIS_VAL) data.set(draw(c), c, row);
      }
    }
  }
}

}  // namespace QZ
