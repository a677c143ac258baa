#pragma once

/// The arithmetic of one message in the linear domain: a small vector times a small matrix.

#include <cstddef>

namespace QZ {

/// One message m(y) = c * sum over x of cavity(x) * potential(x, y), or the largest term instead of
/// the sum with MAX, with c such that the entries sum to 1.
///
/// N > 0 fixes the state counts of both ends at compile time; N = 0 takes them from the arguments.
/// `belief` and `reverse` have one entry per sender state, `potential` is row-major with one row
/// per sender state, `out` has one entry per receiver state. All entries are positive and finite.
template <bool MAX, unsigned N, class val_t>
struct MessageKernel {
  [[gnu::always_inline]] static void send(const val_t* __restrict belief,
                                          const val_t* __restrict reverse,
                                          const val_t* __restrict potential, std::size_t,
                                          std::size_t, val_t*, val_t* __restrict out) {
    val_t cavity[N];
    if constexpr (N == 2) {
      // A common factor of the cavity cancels, so two states need no division.
      cavity[0] = belief[0] * reverse[1];
      cavity[1] = belief[1] * reverse[0];
    } else {
      for (unsigned x = 0; x < N; ++x) cavity[x] = belief[x] / reverse[x];
    }
    val_t entry[N];
    for (unsigned y = 0; y < N; ++y) entry[y] = cavity[0] * potential[y];
    for (unsigned x = 1; x < N; ++x) {
      for (unsigned y = 0; y < N; ++y) {
        const val_t term = cavity[x] * potential[x * N + y];
        entry[y] = MAX ? (term > entry[y] ? term : entry[y]) : entry[y] + term;
      }
    }
    val_t sum = entry[0];
    for (unsigned y = 1; y < N; ++y) sum += entry[y];
    const val_t scale = 1 / sum;
    for (unsigned y = 0; y < N; ++y) out[y] = entry[y] * scale;
  }
};

template <bool MAX, class val_t>
struct MessageKernel<MAX, 0, val_t> {
  /// `cavity` is scratch for one entry per sender state.
  [[gnu::always_inline]] static void send(const val_t* __restrict belief,
                                          const val_t* __restrict reverse,
                                          const val_t* __restrict potential, std::size_t senders,
                                          std::size_t receivers, val_t* __restrict cavity,
                                          val_t* __restrict out) {
    for (std::size_t x = 0; x < senders; ++x) cavity[x] = belief[x] / reverse[x];
    for (std::size_t y = 0; y < receivers; ++y) out[y] = cavity[0] * potential[y];
    std::size_t x = 1;
    // Four rows at a time, so that an entry is loaded and stored once for four terms.
    for (; x + 4 <= senders; x += 4) {
      const val_t* row = potential + x * receivers;
      for (std::size_t y = 0; y < receivers; ++y) {
        const val_t t0 = cavity[x] * row[y];
        const val_t t1 = cavity[x + 1] * row[receivers + y];
        const val_t t2 = cavity[x + 2] * row[2 * receivers + y];
        const val_t t3 = cavity[x + 3] * row[3 * receivers + y];
        out[y] = MAX ? larger(out[y], larger(larger(t0, t1), larger(t2, t3)))
                     : out[y] + ((t0 + t1) + (t2 + t3));
      }
    }
    for (; x < senders; ++x) {
      const val_t* row = potential + x * receivers;
      for (std::size_t y = 0; y < receivers; ++y) {
        const val_t term = cavity[x] * row[y];
        out[y] = MAX ? larger(out[y], term) : out[y] + term;
      }
    }
    val_t sum = 0;
    for (std::size_t y = 0; y < receivers; ++y) sum += out[y];
    const val_t scale = 1 / sum;
    for (std::size_t y = 0; y < receivers; ++y) out[y] *= scale;
  }

 private:
  [[gnu::always_inline]] static val_t larger(val_t a, val_t b) { return a > b ? a : b; }
};

}  // namespace QZ
