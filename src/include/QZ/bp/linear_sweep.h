#pragma once

/// One iteration of linear belief propagation over a run of vertices.

#include <algorithm>
#include <cstddef>
#include <limits>

#include "QZ/bp/linear_bounds.h"
#include "QZ/bp/linear_layout.h"
#include "QZ/bp/message_kernels.h"
#include "QZ/support/vector_math.h"

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

/// Scales a belief to a largest entry of 1. Returns whether its entries lie close enough together.
template <class val_t>
[[gnu::always_inline]] inline bool rescale(val_t* __restrict belief, std::size_t count,
                                           val_t smallest_ratio) {
  val_t low = belief[0];
  val_t high = belief[0];
  for (std::size_t x = 1; x < count; ++x) {
    low = belief[x] < low ? belief[x] : low;
    high = belief[x] > high ? belief[x] : high;
  }
  const val_t scale = 1 / high;
  for (std::size_t x = 0; x < count; ++x) belief[x] *= scale;
  return low >= smallest_ratio * high;
}

/// The sweep for vertices of N states, or of any numbers of states for N = 0. Returns the largest
/// change of a message entry, or `unfit_belief`.
template <bool MAX, unsigned N, class val_t>
[[gnu::always_inline]] inline val_t sweep_body(const LinearSweep<val_t>& sweep) {
  const LinearLayout& layout = *sweep.layout;
  if (sweep.range.begin == sweep.range.end) return 0;
  const LinearSlot* slot = layout.slots.data() + layout.first_slot[sweep.range.begin];
  std::size_t entry = layout.first_entry[sweep.range.begin];
  const val_t* potential =
      sweep.potentials +
      (slot == layout.slots.data() + layout.slots.size()
           ? 0
           : layout.matrix[static_cast<std::size_t>(slot - layout.slots.data())]);
  val_t moved = 0;
  bool fit = true;
  for (std::size_t v = sweep.range.begin; v < sweep.range.end; ++v) {
    const std::size_t count = N > 0 ? N : layout.states(v);
    val_t* __restrict belief = sweep.new_beliefs + layout.first_belief[v];
    for (std::size_t x = 0; x < count; ++x) belief[x] = 1;
    std::size_t pending = sweep.bounds.chunk;
    const LinearSlot* last = layout.slots.data() + layout.first_slot[v + 1];
    for (; slot != last; ++slot) {
      const std::size_t senders = N > 0 ? N : slot->states;
      val_t* __restrict out = sweep.new_messages + entry;
      const val_t* __restrict old = sweep.old_messages + entry;
      if (slot->constant != 0) {
        if (!sweep.first) std::copy(old, old + count, out);
      } else {
        MessageKernel<MAX, N, val_t>::send(sweep.old_beliefs + slot->belief,
                                           sweep.old_messages + slot->reverse, potential, senders,
                                           count, sweep.scratch, out);
      }
      for (std::size_t y = 0; y < count; ++y) {
        const val_t change = out[y] > old[y] ? out[y] - old[y] : old[y] - out[y];
        moved = change > moved ? change : moved;
        belief[y] *= out[y];
      }
      if (--pending == 0) {
        fit &= rescale(belief, count, sweep.bounds.smallest_ratio);
        pending = sweep.bounds.chunk;
      }
      entry += count;
      potential += senders * count;
    }
    fit &= rescale(belief, count, sweep.bounds.smallest_ratio);
  }
  return fit ? moved : unfit_belief<val_t>;
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
  const bool wide = vector_math::has_wide();
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
