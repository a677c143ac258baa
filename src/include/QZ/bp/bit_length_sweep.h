#pragma once

/// One iteration of bit-length propagation over a run of vertices.

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "QZ/bp/linear_layout.h"
#include "QZ/bp/power_kernel.h"
#include "QZ/bp/power_sum.h"
#include "QZ/support/pack.h"
#include "QZ/support/wide_registers.h"

namespace QZ {

/// The arguments of an iteration. Reads one generation of messages and beliefs and completes the
/// other one for the vertices in `range`.
template <class word_t>
struct BitLengthSweep {
  const LinearLayout* layout;
  Range<std::size_t> range;
  /// The weights of the first slot of `range`, bytes or words; those of the others follow.
  const void* weights;
  const word_t* old_messages;
  word_t* new_messages;
  const word_t* old_beliefs;
  word_t* new_beliefs;
  /// Entries for as many states as a vertex has at most.
  word_t* cavity;
  /// Maximum marginals.
  bool max;
  /// The first iteration finds constant messages where it would write them.
  bool first;
};

namespace bit_length {

/// Lowers a message of `states` entries so that its smallest one is 0, and clears what lies behind.
template <unsigned lanes, class word_t>
[[gnu::always_inline]] inline void lower_to_zero(word_t* out, std::size_t states,
                                                 std::size_t packs) {
  using pack = Pack<word_t, lanes>;
  using pack_t = typename pack::type;
  pack_t position;
  for (unsigned i = 0; i < lanes; ++i) position[i] = i;
  const pack_t none = pack_t{} - 1;
  const bool padded = states < packs * lanes;
  const auto in_last = position < static_cast<word_t>(states - (packs - 1) * lanes);
  pack_t least = none;
  for (std::size_t i = 0; i < packs; ++i) {
    pack_t entries = pack::at(out + i * lanes);
    if (padded && i + 1 == packs) entries = in_last ? entries : none;
    least = entries < least ? entries : least;
  }
  for (unsigned step = lanes / 2; step > 0; step /= 2) {
    pack_t other{};
    pack::permute(other, least, position ^ step);
    least = other < least ? other : least;
  }
  for (std::size_t i = 0; i < packs; ++i) pack::at(out + i * lanes) -= least;
  if (padded) {
    word_t* last = out + (packs - 1) * lanes;
    pack::at(last) = in_last ? pack_t(pack::at(last)) : pack_t{};
  }
}

/// The entries of a message of `stride` places; false if a sum is not certain. N is the number of
/// states at either end, or 0 for any numbers.
template <unsigned N, unsigned lanes, class word_t, class cell_t, word_t mask>
[[gnu::always_inline]] inline bool send(const word_t* cavity, const cell_t* weights,
                                        std::size_t senders, std::size_t stride, bool max,
                                        word_t* out) {
  bool certain = true;
  std::size_t y = 0;
  if constexpr (N == 0 && sizeof(word_t) == 4) {
    using Twice = PowerKernel<N, 2 * lanes, word_t, cell_t, mask>;
    for (; y + 2 * lanes <= stride; y += 2 * lanes) {
      certain &= Twice::send(cavity, weights, senders, stride, y, max, out);
    }
  }
  using Kernel = PowerKernel<N, lanes, word_t, cell_t, mask>;
  for (; y < stride; y += lanes) {
    certain &= Kernel::send(cavity, weights, senders, stride, y, max, out);
  }
  return certain;
}

/// The message again with sums of any size.
template <class word_t, class cell_t>
[[gnu::noinline]] void send_exactly(const word_t* cavity, const cell_t* weights,
                                    std::size_t senders, std::size_t stride, word_t mask,
                                    word_t* out) {
  for (std::size_t y = 0; y < stride; ++y) {
    const std::size_t place = sizeof(cell_t) == 1 ? byte_place(y, stride) : y;
    const auto exponent = [&](std::size_t x) {
      return static_cast<word_t>(cavity[x] + weights[x * stride + place]) & mask;
    };
    out[y] = static_cast<word_t>(power_sum_length(senders, exponent)) & mask;
  }
}

/// The sweep for vertices of N states, or of any numbers of states for N = 0. Returns the largest
/// change of a message entry.
template <unsigned N, class word_t, class cell_t, word_t mask>
[[gnu::always_inline]] inline word_t sweep_body(const BitLengthSweep<word_t> sweep) {
  constexpr unsigned lanes = N == 2 ? 2 : N == 8 && sizeof(word_t) == 4 ? 8 : 4;
  using pack = Pack<word_t, lanes>;
  using pack_t = typename pack::type;
  const LinearLayout& layout = *sweep.layout;
  const std::size_t begin = sweep.range.begin;
  if (begin == sweep.range.end) return 0;
  const LinearSlot* slot = layout.slots.data() + layout.first_slot[begin];
  const auto* weights = static_cast<const cell_t*>(sweep.weights);
  std::size_t entry = layout.first_entry[begin];
  pack_t moved{};
  for (std::size_t v = begin; v < sweep.range.end; ++v) {
    const std::size_t states = N > 0 ? N : layout.states[v];
    const std::size_t packs = N > 0 ? N / lanes : (states + lanes - 1) / lanes;
    // Known numbers of entries stay in registers on their way to memory.
    word_t few[N > 0 ? N : 1];
    word_t belief_of_few[N > 0 ? N : 1];
    word_t* const belief = N > 0 ? belief_of_few : sweep.new_beliefs + layout.first_belief[v];
    for (std::size_t i = 0; i < packs; ++i) pack::at(belief + i * lanes) = pack_t{};
    const LinearSlot* last = layout.slots.data() + layout.first_slot[v + 1];
    for (; slot != last; ++slot, entry += packs * lanes) {
      const std::size_t senders = N > 0 ? N : slot->states;
      const word_t* old = sweep.old_messages + entry;
      word_t* const out = N > 0 ? few : sweep.new_messages + entry;
      if (slot->constant != 0) [[unlikely]] {
        const word_t* from = sweep.first ? sweep.new_messages + entry : old;
        if (N > 0 || !sweep.first) std::copy(from, from + packs * lanes, out);
      } else {
        const word_t* from = sweep.old_beliefs + slot->belief;
        const word_t* reverse = sweep.old_messages + slot->reverse;
        for (std::size_t x = 0; x < senders; x += lanes) {
          pack::at(sweep.cavity + x) = pack::at(from + x) - pack::at(reverse + x);
        }
        if (!send<N, lanes, word_t, cell_t, mask>(sweep.cavity, weights, senders, packs * lanes,
                                                  sweep.max, out)) [[unlikely]] {
          send_exactly(sweep.cavity, weights, senders, packs * lanes, mask, out);
        }
        lower_to_zero<lanes>(out, states, packs);
      }
      weights += senders * packs * lanes;
      for (std::size_t i = 0; i < packs; ++i) {
        // Copies, because numbers in memory lie less aligned than packs that are passed on.
        const pack_t message = pack::at(out + i * lanes);
        const pack_t before = pack::at(old + i * lanes);
        const pack_t high = message > before ? message : before;
        const pack_t low = message < before ? message : before;
        pack::raise(moved, high - low);
        pack::at(belief + i * lanes) += message;
        if constexpr (N > 0) pack::at(sweep.new_messages + entry + i * lanes) = message;
      }
    }
    if constexpr (N > 0) {
      std::copy(belief, belief + N, sweep.new_beliefs + layout.first_belief[v]);
    }
  }
  word_t most = 0;
  for (unsigned i = 0; i < lanes; ++i) most = moved[i] > most ? moved[i] : most;
  return most;
}

template <unsigned N, class word_t, class cell_t, word_t mask>
word_t sweep_plain(const BitLengthSweep<word_t>& sweep) {
  return sweep_body<N, word_t, cell_t, mask>(sweep);
}

#ifdef __x86_64__
template <unsigned N, class word_t, class cell_t, word_t mask>
[[gnu::target("avx2")]] word_t sweep_wide(const BitLengthSweep<word_t>& sweep) {
  return sweep_body<N, word_t, cell_t, mask>(sweep);
}
#else
template <unsigned N, class word_t, class cell_t, word_t mask>
word_t sweep_wide(const BitLengthSweep<word_t>& sweep) {
  return sweep_body<N, word_t, cell_t, mask>(sweep);
}
#endif

}  // namespace bit_length

template <class word_t>
using BitLengthSweepFunction = word_t (*)(const BitLengthSweep<word_t>&);

/// The sweep over weights of type `cell_t`, wrapping at the width of `mask`, for a model whose
/// vertices all have `states` states, 0 if they differ.
template <class word_t, class cell_t, word_t mask>
BitLengthSweepFunction<word_t> bit_length_sweep_function(std::size_t states) {
  const auto pick = []<unsigned N>() -> BitLengthSweepFunction<word_t> {
    return has_wide_registers() ? bit_length::sweep_wide<N, word_t, cell_t, mask>
                                : bit_length::sweep_plain<N, word_t, cell_t, mask>;
  };
  switch (states) {
    case 2:
      return pick.template operator()<2>();
    case 4:
      return pick.template operator()<4>();
    case 8:
      return pick.template operator()<8>();
    default:
      return pick.template operator()<0>();
  }
}

}  // namespace QZ
