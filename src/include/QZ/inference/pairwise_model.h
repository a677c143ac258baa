#pragma once

/// The three plain pieces that an engine works on, and how an observed state is read.

#include <limits>
#include <stdexcept>

#include "QZ/graph/abstract_graph.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// A pairwise model, borrowed. The block of edge e = (s, t) is row-major: the log-potential of the
/// state pair (xs, xt) is weights[weight_offsets[e] + xs * states[t] + xt].
template <class idx_t, class val_t>
struct PairwiseModel {
  const AbstractGraph<idx_t>* graph;
  const idx_t* states;
  const val_t* weights;
  const idx_t* weight_offsets;
};

/// How a free vertex is stored: -1, which is all ones in an integer type.
template <class val_t>
inline constexpr val_t free_state = static_cast<val_t>(-1);

/// A state as an index. Negative numbers count as state 0.
template <class idx_t, class val_t>
constexpr idx_t state_index(val_t x) {
  return saturating_cast<idx_t>(x);
}

/// What the guarded store keeps of `x` for a vertex with `count` states: `x` itself, or -1 where
/// its index is no state.
template <class idx_t, class val_t>
constexpr val_t storable_state(val_t x, idx_t count) {
  return state_index<idx_t>(x) < count ? x : free_state<val_t>;
}

/// Whether message passing takes a vertex with `count` states as clamped. A stored -1.0 is free
/// here, because as a signed number it becomes all ones.
template <class idx_t, class val_t>
constexpr bool is_clamped(val_t x, idx_t count) {
  return signed_cast<idx_t>(x) < count;
}

/// Throws logic_error if a table of `entries` cannot be addressed by `idx_t`.
template <class idx_t>
void require_addressable(unsigned long entries) {
  if (entries > std::numeric_limits<idx_t>::max()) {
    throw std::logic_error("the index type is too narrow for the model");
  }
}

/// The parameter count of the model without wrapping.
template <class idx_t>
unsigned long unwrapped_dim(const AbstractGraph<idx_t>& graph, const idx_t* states) {
  unsigned long dim = 0;
  for (idx_t e = 0; e < graph.edges(); ++e) {
    const auto [s, t] = endpoints(graph, e);
    dim += static_cast<unsigned long>(states[s]) * static_cast<unsigned long>(states[t]);
  }
  return dim;
}

}  // namespace QZ
