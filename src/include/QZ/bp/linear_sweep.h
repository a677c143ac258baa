#pragma once

/// One iteration of linear belief propagation over a run of vertices.

#include <algorithm>
#include <cstddef>
#include <limits>

#include "QZ/bp/linear_bounds.h"
#include "QZ/bp/linear_layout.h"
#include "QZ/bp/message_kernels.h"
#include "QZ/support/pack.h"
#include "QZ/support/wide_registers.h"

namespace QZ {

/// The arguments of an iteration. Reads one generation of messages and beliefs and completes the
/// other one for the vertices in `range`.
template <class val_t>
struct LinearSweep {
  const LinearLayout* layout;
  BeliefBounds<val_t> bounds;
  Range<std::size_t> range;
  const val_t* potentials;
  const val_t* old_messages;
  val_t* new_messages;
  const val_t* old_beliefs;
  val_t* new_beliefs;
  /// Entries for as many states as a vertex has at most.
  val_t* scratch;
  /// The first iteration finds constant messages where it would write them.
  bool first;
};

/// What a sweep returns for a belief whose entries lie too far apart.
template <class val_t>
inline constexpr val_t unfit_belief = std::numeric_limits<val_t>::infinity();

namespace linear {

/// The sweep for vertices of N states, or of any numbers of states for N = 0. Returns the largest
/// change of a message entry, or `unfit_belief`.
template <bool MAX, unsigned N, class val_t>
[[gnu::always_inline]] inline val_t sweep_body(const LinearSweep<val_t> sweep) {
  constexpr unsigned lanes = N == 2 ? 2 : pack_lanes;
  using pack = Pack<val_t, lanes>;
  using pack_t = typename pack::type;
  using Kernel = MessageKernel<MAX, N, val_t>;
  const LinearLayout& layout = *sweep.layout;
  const std::size_t begin = sweep.range.begin;
  if (begin == sweep.range.end) return 0;
  const LinearSlot* slot = layout.slots.data() + layout.first_slot[begin];
  std::size_t entry = layout.first_entry[begin];
  pack_t moved{};
  bool fit = true;
  for (std::size_t v = begin; v < sweep.range.end; ++v) {
    const std::size_t states = N > 0 ? N : layout.states[v];
    const std::size_t packs = N > 0 ? (N + lanes - 1) / lanes : (states + lanes - 1) / lanes;
    val_t* belief = sweep.new_beliefs + layout.first_belief[v];
    for (std::size_t i = 0; i < packs; ++i) pack::at(belief + i * lanes) = pack_t{} + 1;
    const LinearSlot* last = layout.slots.data() + layout.first_slot[v + 1];
    std::size_t pending = sweep.bounds.chunk;
    while (slot != last) {
      val_t* out = sweep.new_messages + entry;
      const val_t* old = sweep.old_messages + entry;
      if (slot->constant != 0) [[unlikely]] {
        if (!sweep.first) std::copy(old, old + packs * lanes, out);
      } else {
        Kernel::send(sweep.old_beliefs + slot->belief, sweep.old_messages + slot->reverse,
                     sweep.potentials + LinearSlot::unit * slot->matrix, slot->transposed,
                     {slot->states, states, sweep.scratch}, out);
      }
      for (std::size_t i = 0; i < packs; ++i) {
        // Copies, because numbers in memory lie less aligned than packs that are passed on.
        const pack_t message = pack::at(out + i * lanes);
        const pack_t before = pack::at(old + i * lanes);
        pack::raise_distance(moved, message, before);
        pack::at(belief + i * lanes) *= message;
      }
      ++slot;
      entry += packs * lanes;
      if (--pending != 0 && slot != last) continue;
      pending = sweep.bounds.chunk;
      // A largest entry of 1, and the look at how far the others lie below it.
      val_t low = belief[0];
      val_t high = belief[0];
      for (std::size_t x = 1; x < states; ++x) {
        low = belief[x] < low ? belief[x] : low;
        high = belief[x] > high ? belief[x] : high;
      }
      fit &= low >= sweep.bounds.smallest_ratio * high;
      const val_t scale = 1 / high;
      for (std::size_t i = 0; i < packs; ++i) {
        pack::at(belief + i * lanes) *= scale;
      }
    }
  }
  val_t most = 0;
  for (unsigned i = 0; i < lanes; ++i) most = moved[i] > most ? moved[i] : most;
  return fit ? most : unfit_belief<val_t>;
}

template <bool MAX, unsigned N, class val_t>
val_t sweep_plain(const LinearSweep<val_t>& sweep) {
  return sweep_body<MAX, N>(sweep);
}

#ifdef __x86_64__
template <bool MAX, unsigned N, class val_t>
[[gnu::target("avx2")]] val_t sweep_wide(const LinearSweep<val_t>& sweep) {
  return sweep_body<MAX, N>(sweep);
}
#else
template <bool MAX, unsigned N, class val_t>
val_t sweep_wide(const LinearSweep<val_t>& sweep) {
  return sweep_body<MAX, N>(sweep);
}
#endif

}  // namespace linear

template <class val_t>
using LinearSweepFunction = val_t (*)(const LinearSweep<val_t>&);

/// The sweep for a model whose vertices all have `states` states, 0 if they differ.
template <class val_t>
LinearSweepFunction<val_t> linear_sweep_function(bool max, std::size_t states) {
  const bool wide = has_wide_registers();
  const auto pick = [&]<bool MAX, unsigned N>() -> LinearSweepFunction<val_t> {
    return wide ? linear::sweep_wide<MAX, N, val_t> : linear::sweep_plain<MAX, N, val_t>;
  };
  const auto pick_mode = [&]<unsigned N>() -> LinearSweepFunction<val_t> {
    return max ? pick.template operator()<true, N>() : pick.template operator()<false, N>();
  };
  switch (states) {
    case 2:
      return pick_mode.template operator()<2>();
    case 3:
      return pick_mode.template operator()<3>();
    case 4:
      return pick_mode.template operator()<4>();
    case 8:
      return pick_mode.template operator()<8>();
    default:
      return pick_mode.template operator()<0>();
  }
}

}  // namespace QZ
