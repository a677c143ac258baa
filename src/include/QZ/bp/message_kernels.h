#pragma once

/// The arithmetic of one message in the linear domain: a small vector times a small matrix.

#include <cstddef>

#include "QZ/support/pack.h"

namespace QZ {

/// Lanes of the packs that rows of any other length than 2 are made of.
inline constexpr unsigned pack_lanes = 4;

/// The length of a row of `states` entries when rows are made of whole packs.
constexpr std::size_t padded_length(std::size_t states) {
  return (states + pack_lanes - 1) / pack_lanes * pack_lanes;
}

/// One message m(y) = c * sum over x of cavity(x) * potential(x, y), or the largest term instead of
/// the sum with MAX, with c such that the entries sum to 1.
///
/// N is the state count of both ends, or 0 for any counts. Entries of beliefs and messages come in
/// rows of `padded_length`, for N = 2 in rows of 2. The matrix of an edge serves both directions: a
/// row holds the potentials of one state of the sender, or, transposed, of the receiver, and is as
/// long as a row of the other end. Numbers are positive and finite. Behind the states, potentials
/// are 0, and so are the entries of the message.
template <bool MAX, unsigned N, class val_t>
struct MessageKernel {
  using pack = Pack<val_t, pack_lanes>;
  using pack_t = typename pack::type;

  /// State counts of both ends, and a place for one row of the sender.
  struct Ends {
    std::size_t senders;
    std::size_t receivers;
    val_t* scratch;
  };

  [[gnu::always_inline]] static void send(const val_t* __restrict sender_belief,
                                          const val_t* __restrict reverse,
                                          const val_t* __restrict potential, bool transposed,
                                          const Ends& ends, val_t* __restrict out) {
    const std::size_t senders = N > 0 ? N : ends.senders;
    const std::size_t receivers = N > 0 ? N : ends.receivers;
    val_t* __restrict cavity = ends.scratch;
    for (std::size_t x = 0; x < senders; x += pack_lanes) {
      pack_t quotient = pack::at(sender_belief + x) / pack::at(reverse + x);
      // Behind the states this was 0 over 0.
      if (x + pack_lanes > senders) keep_first(quotient, senders - x);
      pack::at(cavity + x) = quotient;
    }
    pack_t total{};
    if (transposed) {
      multiply_rows(cavity, padded_length(senders), potential, receivers, out, total);
    } else {
      multiply_columns(cavity, senders, potential, padded_length(receivers), out, total);
    }
    const val_t scale = 1 / ((total[0] + total[1]) + (total[2] + total[3]));
    for (std::size_t y = 0; y < receivers; y += pack_lanes) pack::at(out + y) *= scale;
  }

 private:
  /// Every row of the matrix belongs to a state of the sender.
  [[gnu::always_inline]] static void multiply_columns(const val_t* __restrict cavity,
                                                      std::size_t rows,
                                                      const val_t* __restrict potential,
                                                      std::size_t length, val_t* __restrict out,
                                                      pack_t& total) {
    for (std::size_t y = 0; y < length; y += pack_lanes) {
      const val_t* column = potential + y;
      // Two running sums, so that an addition need not wait for the one before.
      pack_t even = pack::at(column) * cavity[0];
      pack_t odd{};
      std::size_t x = 1;
      for (; x + 1 < rows; x += 2) {
        take(odd, pack::at(column + x * length) * cavity[x]);
        take(even, pack::at(column + (x + 1) * length) * cavity[x + 1]);
      }
      if (x < rows) take(odd, pack::at(column + x * length) * cavity[x]);
      take(even, odd);
      total += even;
      pack::at(out + y) = even;
    }
  }

  /// Every row of the matrix belongs to a state of the receiver.
  [[gnu::always_inline]] static void multiply_rows(const val_t* __restrict cavity,
                                                   std::size_t length,
                                                   const val_t* __restrict potential,
                                                   std::size_t rows, val_t* __restrict out,
                                                   pack_t& total) {
    for (std::size_t y = 0; y < rows; y += pack_lanes) {
      // Behind the last row the last one is taken again, and its sum dropped.
      const auto row = [&](std::size_t k) {
        return potential + (y + k < rows ? y + k : rows - 1) * length;
      };
      const val_t* const p0 = row(0);
      const val_t* const p1 = row(1);
      const val_t* const p2 = row(2);
      const val_t* const p3 = row(3);
      pack_t r0 = pack::at(p0) * pack::at(cavity);
      pack_t r1 = pack::at(p1) * pack::at(cavity);
      pack_t r2 = pack::at(p2) * pack::at(cavity);
      pack_t r3 = pack::at(p3) * pack::at(cavity);
      for (std::size_t x = pack_lanes; x < length; x += pack_lanes) {
        const pack_t factor = pack::at(cavity + x);
        take(r0, pack::at(p0 + x) * factor);
        take(r1, pack::at(p1 + x) * factor);
        take(r2, pack::at(p2 + x) * factor);
        take(r3, pack::at(p3 + x) * factor);
      }
      // Within each row, then across: lane k ends as the sum of row k.
      pack_t r01 = __builtin_shufflevector(r0, r1, 0, 4, 2, 6);
      pack_t r23 = __builtin_shufflevector(r2, r3, 0, 4, 2, 6);
      take(r01, __builtin_shufflevector(r0, r1, 1, 5, 3, 7));
      take(r23, __builtin_shufflevector(r2, r3, 1, 5, 3, 7));
      pack_t sums = __builtin_shufflevector(r01, r23, 0, 1, 4, 5);
      take(sums, __builtin_shufflevector(r01, r23, 2, 3, 6, 7));
      if (y + pack_lanes > rows) keep_first(sums, rows - y);
      total += sums;
      pack::at(out + y) = sums;
    }
  }

  /// Sets all but the first `count` lanes to 0.
  [[gnu::always_inline]] static void keep_first(pack_t& lanes, std::size_t count) {
    lanes = pack_t{0, 1, 2, 3} < static_cast<val_t>(count) ? lanes : pack_t{};
  }

  [[gnu::always_inline]] static void take(pack_t& into, const pack_t& term) {
    if constexpr (MAX) {
      pack::raise(into, term);
    } else {
      into += term;
    }
  }
};

template <bool MAX, class val_t>
struct MessageKernel<MAX, 2, val_t> {
  using pack = Pack<val_t, 2>;
  using pack_t = typename pack::type;

  struct Ends {
    std::size_t senders;
    std::size_t receivers;
    val_t* scratch;
  };

  [[gnu::always_inline]] static void send(const val_t* __restrict sender_belief,
                                          const val_t* __restrict reverse,
                                          const val_t* __restrict potential, bool transposed,
                                          const Ends&, val_t* __restrict out) {
    // The cavity times both entries of the reverse message; a common factor cancels, and two states
    // need no division.
    const val_t c0 = sender_belief[0] * reverse[1];
    const val_t c1 = sender_belief[1] * reverse[0];
    pack_t entry;
    pack_t other;
    if (transposed) {
      const pack_t row0 = pack::at(potential) * pack_t{c0, c1};
      const pack_t row1 = pack::at(potential + 2) * pack_t{c0, c1};
      entry = __builtin_shufflevector(row0, row1, 0, 2);
      other = __builtin_shufflevector(row0, row1, 1, 3);
    } else {
      entry = pack::at(potential) * c0;
      other = pack::at(potential + 2) * c1;
    }
    if constexpr (MAX) {
      pack::raise(entry, other);
    } else {
      entry += other;
    }
    pack::at(out) = entry * (1 / (entry[0] + entry[1]));
  }
};

}  // namespace QZ
