#pragma once

/// How the linear form of propagation arranges a model: by receiving vertex, so that a thread that
/// owns a vertex writes its messages and its belief, and nobody else's, in one stream.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "QZ/bp/message_kernels.h"
#include "QZ/graph/abstract_graph.h"
#include "QZ/support/parallel.h"

namespace QZ {

/// One directed message. Its own entries follow those of the slot before.
struct LinearSlot {
  /// First entry of the message that goes the other way.
  std::uint32_t reverse;
  /// First belief entry of the sender.
  std::uint32_t belief;
  /// First entry of the edge's matrix, in units of `unit` entries.
  std::uint32_t matrix;
  std::uint32_t states : 30;
  /// Whether the receiver is the first end of the edge, to which the rows of the matrix belong.
  std::uint32_t transposed : 1;
  /// Whether the sender is clamped in the current inference, so that the message never changes.
  std::uint32_t constant : 1;

  static constexpr std::size_t unit = 2;
};

/// The slots of a graph, vertex after vertex in the order of `in_edge`. Does not change while the
/// graph and the state counts do not; only the `constant` marks belong to one inference.
///
/// The entries of a belief or a message take up a whole number of packs, `stride(v)` places for
/// states[v] entries. The matrix of an edge (s, t) has states[s] rows of stride(t) places.
struct LinearLayout {
  std::vector<LinearSlot> slots;
  /// The vertex that sends the message of a slot.
  std::vector<std::uint32_t> sender;
  /// Number of the message that a slot stands for, 2e for the one to the second endpoint of e and
  /// 2e + 1 for the one to the first.
  std::vector<std::uint32_t> message_of_slot;
  /// First entry of the matrix of each edge, and the total.
  std::vector<std::size_t> first_matrix;
  std::vector<std::uint32_t> states;
  /// First slot, message entry and belief entry of each vertex, and the totals.
  std::vector<std::uint32_t> first_slot;
  std::vector<std::uint32_t> first_entry;
  std::vector<std::uint32_t> first_belief;
  /// Work up to each vertex, in units of one product.
  std::vector<std::size_t> work;
  /// The state count that all vertices share, 0 if they differ.
  std::uint32_t uniform_states = 0;

  std::size_t vertices() const { return states.size(); }
  std::size_t stride(std::size_t v) const { return first_belief[v + 1] - first_belief[v]; }

  /// Contiguous vertices with about the same work for each thread.
  Range<std::size_t> share(int thread, int threads) const {
    return {boundary(thread, threads), boundary(thread + 1, threads)};
  }

  /// Whether the arrangement can hold the model: every vertex has a state, no edge is a loop, and
  /// all numbers fit 32 bits.
  template <class idx_t>
  static bool suits(const AbstractGraph<idx_t>& graph, const idx_t* states);

  template <class idx_t>
  LinearLayout(const AbstractGraph<idx_t>& graph, const idx_t* counts);

 private:
  std::size_t boundary(int thread, int threads) const {
    if (thread == threads) return vertices();
    const std::size_t target =
        work.back() / static_cast<std::size_t>(threads) * static_cast<std::size_t>(thread);
    return static_cast<std::size_t>(std::lower_bound(work.begin(), work.end() - 1, target) -
                                    work.begin());
  }
};

template <class idx_t>
bool LinearLayout::suits(const AbstractGraph<idx_t>& graph, const idx_t* states) {
  constexpr std::size_t limit = std::numeric_limits<std::uint32_t>::max();
  std::size_t entries = 0;
  for (std::size_t v = 0; v < graph.vertices(); ++v) {
    if (states[v] == 0) return false;
    entries += padded_length(states[v]);
    if (entries > limit) return false;
  }
  entries = 0;
  std::size_t matrices = 0;
  for (idx_t e = 0; e < graph.edges(); ++e) {
    const auto [s, t] = endpoints(graph, e);
    if (s == t || states[s] >= 1u << 30 || states[t] >= 1u << 30) return false;
    entries += padded_length(states[s]) + padded_length(states[t]);
    matrices += states[s] * padded_length(states[t]);
    if (entries > limit || matrices / LinearSlot::unit > limit) return false;
  }
  return true;
}

template <class idx_t>
LinearLayout::LinearLayout(const AbstractGraph<idx_t>& graph, const idx_t* counts)
    : states(counts, counts + graph.vertices()) {
  // A matrix costs its products, and a message some overhead per entry beside them.
  constexpr std::size_t entry_work = 8;
  const std::size_t edges = graph.edges();
  uniform_states = states.empty() ? 0 : states[0];
  for (const std::uint32_t count : states) {
    if (count != uniform_states) uniform_states = 0;
  }
  first_belief.push_back(0);
  for (const std::uint32_t count : states) {
    const std::size_t length = uniform_states == 2 ? 2 : padded_length(count);
    first_belief.push_back(first_belief.back() + static_cast<std::uint32_t>(length));
  }
  first_matrix.push_back(0);
  for (std::size_t e = 0; e < edges; ++e) {
    const auto [s, t] = endpoints(graph, static_cast<idx_t>(e));
    first_matrix.push_back(first_matrix.back() + states[s] * stride(t));
  }
  slots.reserve(2 * edges);
  std::vector<std::uint32_t> entry_of_message(2 * edges);
  std::uint32_t entry = 0;
  std::size_t done = 0;
  const auto begin_vertex = [&] {
    first_slot.push_back(static_cast<std::uint32_t>(slots.size()));
    first_entry.push_back(entry);
    work.push_back(done);
  };
  for (std::size_t v = 0; v < states.size(); ++v) {
    begin_vertex();
    done += entry_work;
    const std::size_t degree = graph.num_neighbors(static_cast<idx_t>(v));
    for (std::size_t j = 0; j < degree; ++j) {
      const idx_t e = graph.in_edge(static_cast<idx_t>(v), static_cast<idx_t>(j));
      const auto [s, t] = endpoints(graph, e);
      const bool to_first = v != t;
      const std::size_t from = to_first ? t : s;
      const std::size_t message = 2 * std::size_t{e} + (to_first ? 1 : 0);
      entry_of_message[message] = entry;
      message_of_slot.push_back(static_cast<std::uint32_t>(message));
      sender.push_back(static_cast<std::uint32_t>(from));
      slots.push_back({0, first_belief[from],
                       static_cast<std::uint32_t>(first_matrix[e] / LinearSlot::unit),
                       states[from] & 0x3fffffff, to_first, false});
      done += (states[from] + entry_work) * stride(v);
      entry += static_cast<std::uint32_t>(stride(v));
    }
  }
  begin_vertex();
  for (std::size_t k = 0; k < slots.size(); ++k) {
    slots[k].reverse = entry_of_message[message_of_slot[k] ^ 1];
  }
}

}  // namespace QZ
