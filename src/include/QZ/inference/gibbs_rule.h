#pragma once

/// The conditional distribution of one vertex given its neighbours, term by term.

#include <cmath>
#include <type_traits>

#include "QZ/inference/pairwise_model.h"

namespace QZ {

/// What the potentials of a vertex are added up in.
template <class val_t>
using gibbs_sum_t = std::conditional_t<std::is_integral_v<val_t>, double, val_t>;

/// Whether a neighbour's stored state stands for no state. A floating state is compared with the
/// all-ones number, which a stored -1.0 is not: it counts as state 0.
template <class idx_t, class val_t>
bool gibbs_skips(val_t stored) {
  if constexpr (std::is_integral_v<val_t>) {
    return !(stored < all_ones<idx_t>);
  } else {
    return stored == static_cast<val_t>(all_ones<idx_t>);
  }
}

/// The sum of the parameters that v in state y shares with its neighbours.
template <class idx_t, class val_t>
val_t gibbs_exponent(const PairwiseModel<idx_t, val_t>& model, const val_t* observed, idx_t v,
                     std::size_t y) {
  val_t s = 0;
  const idx_t degree = model.graph->num_neighbors(v);
  for (idx_t j = 0; j < degree; ++j) {
    const idx_t e = model.graph->in_edge(v, j);
    const auto [a, b] = endpoints(*model.graph, e);
    const val_t* block = model.weights + model.weight_offsets[e];
    const std::size_t columns = model.states[b];
    if (v == a && !gibbs_skips<idx_t>(observed[b])) {
      s = static_cast<val_t>(s + block[columns * y + state_index<idx_t>(observed[b])]);
    }
    if (v == b && !gibbs_skips<idx_t>(observed[a])) {
      s = static_cast<val_t>(s + block[columns * state_index<idx_t>(observed[a]) + y]);
    }
  }
  return s;
}

/// The potential of an exponent: exp(s), for integers cut to the type.
template <class val_t>
val_t gibbs_potential(val_t s) {
  if constexpr (std::is_integral_v<val_t>) {
    return saturating_cast<val_t>(std::exp(static_cast<double>(s)));
  } else {
    return std::exp(s);
  }
}

/// The state of v that `u` selects: the first y at which the running sum of the probabilities
/// reaches u, or 0 if none does. `potentials` is scratch for one entry per state.
template <class idx_t, class val_t>
idx_t gibbs_choice(const PairwiseModel<idx_t, val_t>& model, const val_t* observed, idx_t v,
                   double u, val_t* potentials) {
  gibbs_sum_t<val_t> sum = 0;
  for (idx_t y = 0; y < model.states[v]; ++y) {
    potentials[y] = gibbs_potential(gibbs_exponent(model, observed, v, y));
    sum += static_cast<gibbs_sum_t<val_t>>(potentials[y]);
  }
  gibbs_sum_t<val_t> total = 0;
  for (idx_t y = 0; y < model.states[v]; ++y) {
    total += static_cast<gibbs_sum_t<val_t>>(potentials[y]) / sum;
    if (static_cast<double>(total) >= u) return y;
  }
  return 0;
}

}  // namespace QZ
