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
/// rows of `padded_length`, for N = 2 in rows of 2; the potentials have one such row per sender
/// state. Numbers are positive and finite. Behind the states of the receiver, potentials are 0, and
/// so are the entries of the message.
template <bool MAX, unsigned N, class val_t>
struct MessageKernel {
  using pack = Pack<val_t, pack_lanes>;
  using pack_t = typename pack::type;

  /// `senders` is the state count of the sender, `packs` the number of packs of the receiver.
  /// `belief` is multiplied by the message, and each number of `moved` is raised to the distance of
  /// an entry from the old one. `cavity` is scratch for the sender's states.
  [[gnu::always_inline]] static void send(const val_t* __restrict sender_belief,
                                          const val_t* __restrict reverse,
                                          const val_t* __restrict potential, std::size_t senders,
                                          std::size_t packs, val_t* __restrict cavity,
                                          val_t* __restrict out) {
    const std::size_t rows = N > 0 ? N : senders;
    const std::size_t count = N > 0 ? padded_length(N) / pack_lanes : packs;
    const std::size_t length = count * pack_lanes;
    // Behind the states of the sender this divides 0 by 0, and nobody reads the result.
    for (std::size_t x = 0; x < rows; x += pack_lanes) {
      pack::at(cavity + x) = pack::at(sender_belief + x) / pack::at(reverse + x);
    }
    pack_t total{};
    for (std::size_t i = 0; i < count; ++i) {
      const val_t* column = potential + i * pack_lanes;
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
      pack::at(out + i * pack_lanes) = even;
    }
    const val_t scale = 1 / ((total[0] + total[1]) + (total[2] + total[3]));
    for (std::size_t i = 0; i < count; ++i) {
      pack::at(out + i * pack_lanes) *= scale;
    }
  }

 private:
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

  [[gnu::always_inline]] static void send(const val_t* __restrict sender_belief,
                                          const val_t* __restrict reverse,
                                          const val_t* __restrict potential, std::size_t,
                                          std::size_t, val_t*, val_t* __restrict out) {
    // The cavity times both entries of the reverse message; a common factor cancels, and two states
    // need no division.
    const val_t c0 = sender_belief[0] * reverse[1];
    const val_t c1 = sender_belief[1] * reverse[0];
    typename pack::type entry = pack::at(potential) * c0;
    const typename pack::type other = pack::at(potential + 2) * c1;
    if constexpr (MAX) {
      pack::raise(entry, other);
    } else {
      entry += other;
    }
    pack::at(out) = entry * (1 / (entry[0] + entry[1]));
  }
};

}  // namespace QZ
