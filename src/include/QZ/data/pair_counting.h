#pragma once

/// Counting of states and of pairs of states over the rows of a block.

#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

#include "QZ/data/column_block.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// Adds a number of ones: what adding them one by one gives. An integer wraps at its width; a
/// floating value stops where one more no longer changes it, a float at 2^24.
template <class val_t>
void add_ones(val_t& value, unsigned long ones) {
  if constexpr (std::is_floating_point_v<val_t>) {
    constexpr auto limit = static_cast<double>(1ul << std::numeric_limits<val_t>::digits);
    // Whole numbers up to the limit: the sum in double is exact.
    value =
        static_cast<val_t>(std::min(static_cast<double>(value) + static_cast<double>(ones), limit));
  } else {
    value = wrapping_cast<val_t>(value + ones);
  }
}

/// Adds the rows of the block with column `c` in state x to stats[x].
template <class val_t>
void add_state_counts(const ColumnBlock& block, unsigned long c, val_t* stats) {
  if (block.has_bits(c)) {
    for (unsigned long x = 0; x < block.states(c); ++x) add_ones(stats[x], block.counts(c)[x]);
    return;
  }
  const unsigned short* x = block.numbers(c);
  for (unsigned long row = 0; row < block.rows(); ++row) add_ones(stats[x[row]], 1);
}

/// The pair counts of two columns with bit sets. The last row and column of the table are what the
/// others leave of the counts of single states.
template <class val_t>
void add_pair_counts_by_bits(const ColumnBlock& block, unsigned long s, unsigned long t,
                             val_t* stats) {
  constexpr unsigned long widest = 64;
  unsigned long left[widest];
  const unsigned long last_s = block.states(s) - 1;
  const unsigned long last_t = block.states(t) - 1;
  std::copy(block.counts(t), block.counts(t) + last_t + 1, left);
  for (unsigned long xs = 0; xs < last_s; ++xs, stats += last_t + 1) {
    unsigned long rest = block.counts(s)[xs];
    for (unsigned long xt = 0; xt < last_t; ++xt) {
      const unsigned long both = block.common(block.bits(s, xs), block.bits(t, xt));
      add_ones(stats[xt], both);
      left[xt] -= both;
      rest -= both;
    }
    add_ones(stats[last_t], rest);
    left[last_t] -= rest;
  }
  for (unsigned long xt = 0; xt <= last_t; ++xt) add_ones(stats[xt], left[xt]);
}

/// The pair counts of two columns with numbers. A small table is counted twice over, for even and
/// odd rows, so that equal neighbours do not wait for each other.
template <class val_t>
void add_pair_counts_by_numbers(const ColumnBlock& block, unsigned long s, unsigned long t,
                                val_t* stats) {
  constexpr unsigned long most = 4096;
  const unsigned short* a = block.numbers(s);
  const unsigned short* b = block.numbers(t);
  const unsigned long rows = block.rows();
  const unsigned long width = block.states(t);
  const unsigned long entries = block.states(s) * width;
  if (entries > most || entries > rows) {
    for (unsigned long row = 0; row < rows; ++row) add_ones(stats[a[row] * width + b[row]], 1);
    return;
  }
  unsigned int even[most];
  unsigned int odd[most];
  std::fill(even, even + entries, 0);
  std::fill(odd, odd + entries, 0);
  unsigned long row = 0;
  for (; row + 2 <= rows; row += 2) {
    ++even[a[row] * width + b[row]];
    ++odd[a[row + 1] * width + b[row + 1]];
  }
  if (row < rows) ++even[a[row] * width + b[row]];
  for (unsigned long i = 0; i < entries; ++i) add_ones(stats[i], even[i] + odd[i]);
}

/// Adds the rows of the block with the columns (s, t) in states (xs, xt) to
/// stats[xs * states(t) + xt].
template <class val_t>
void add_pair_counts(const ColumnBlock& block, unsigned long s, unsigned long t, val_t* stats) {
  if (block.has_bits(s) && block.has_bits(t)) {
    add_pair_counts_by_bits(block, s, t, stats);
  } else {
    add_pair_counts_by_numbers(block, s, t, stats);
  }
}

/// Adds the counts of all columns and of `pairs` pairs of columns over the block, with a team of
/// threads. Each block of `stats` is written by one thread.
///
/// The counts of column column_of(i) go to stats + offsets[i]; those of pair e, whose columns
/// pair_of(e) names as first and second, to stats + offsets[columns + e].
template <class idx_t, class val_t, class ColumnOf, class PairOf>
void add_counts(const ColumnBlock& block, const ColumnOf& column_of, unsigned long pairs,
                const PairOf& pair_of, const idx_t* offsets, val_t* stats) {
  const unsigned long columns = block.columns();
#pragma omp parallel
  {
    const auto [first_column, last_column] = my_share<unsigned long>(columns);
    for (unsigned long i = first_column; i < last_column; ++i) {
      add_state_counts(block, column_of(i), stats + offsets[i]);
    }
    const auto [first_pair, last_pair] = my_share<unsigned long>(pairs);
    for (unsigned long e = first_pair; e < last_pair; ++e) {
      const auto [s, t] = pair_of(e);
      add_pair_counts(block, s, t, stats + offsets[columns + e]);
    }
  }
}

}  // namespace QZ
