#pragma once

/// CLOSEDFORM: the exact weights of a tree.

#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <type_traits>
#include <vector>

#include "QZ/graph/abstract_graph.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/vm.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// Writes the maximum-likelihood weights of one edge of a tree:
///
///   log(p_st / (p_s p_t)), plus log p_s and log p_t for endpoints that no earlier edge has `seen`
///
/// A frequency of exactly 0 counts as `floor`, and a weight that is no number as 0.
template <class idx_t, class val_t>
void write_tree_weights(IO<idx_t, val_t>& model, idx_t e, val_t floor,
                        const std::vector<bool>& seen) {
  const auto [s, t] = endpoints(*model.graph, e);
  const std::size_t n = model.graph->vertices();
  const auto frequency = [&](std::size_t place) {
    const val_t p = model.stats[place] / static_cast<val_t>(model.samples);
    return p == 0 ? floor : p;
  };
  const std::size_t t_states = model.states[t];
  for (std::size_t xs = 0; xs < model.states[s]; ++xs) {
    const val_t ps = frequency(model.offsets[s] + xs);
    for (std::size_t xt = 0; xt < t_states; ++xt) {
      const val_t pt = frequency(model.offsets[t] + xt);
      const val_t pst = frequency(model.offsets[n + e] + xs * t_states + xt);
      val_t weight = std::log(pst / (ps * pt));
      if (!seen[s]) weight += std::log(ps);
      if (!seen[t]) weight += std::log(pt);
      model.weights[model.weight_offset(e) + xs * t_states + xt] = std::isnan(weight) ? 0 : weight;
    }
  }
}

template <class idx_t, class val_t>
void vm_t::closedFormT() {
  if constexpr (std::is_floating_point_v<val_t>) {
    require_object<AbstractGraph<idx_t>>(VarType::GPT);
    auto& model = *require_object<IO<idx_t, val_t>>(VarType::MPT);
    model.require_matching_arrays();
    if (model.stats == nullptr || model.weights == nullptr) {
      throw std::logic_error("the model has no statistics");
    }
    const idx_t denominator = wrapping_mul<idx_t>(model.samples, 10);
    const val_t floor = val_t(1) / static_cast<val_t>(denominator);
    std::vector<bool> seen(model.graph->vertices());
    for (idx_t e = 0; e < model.graph->edges(); ++e) {
      write_tree_weights(model, e, floor, seen);
      const auto [s, t] = endpoints(*model.graph, e);
      seen[s] = true;
      seen[t] = true;
    }
  }
}

}  // namespace QZ
