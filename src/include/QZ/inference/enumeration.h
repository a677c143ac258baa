#pragma once

/// The exhaustive reference: every configuration of a model, one after the other.

#include <cmath>
#include <memory>
#include <type_traits>

#include "QZ/inference/pairwise_model.h"

namespace QZ {

/// A configuration as a mixed-radix counter with vertex 0 as the fastest digit.
template <class idx_t>
class ConfigurationCounter {
 public:
  ConfigurationCounter(const idx_t* states, idx_t vertices)
      : states_(states), vertices_(vertices), digits_(std::make_unique<idx_t[]>(vertices)) {
    for (idx_t v = 0; v < vertices_; ++v) exhausted_ = exhausted_ || states_[v] == 0;
  }

  /// Whether every configuration has been visited. True from the start where a vertex has no state.
  bool exhausted() const { return exhausted_; }

  idx_t operator[](idx_t v) const { return digits_[v]; }

  void advance() {
    for (idx_t v = 0; v < vertices_; ++v) {
      if (++digits_[v] < states_[v]) return;
      digits_[v] = 0;
    }
    exhausted_ = true;
  }

 private:
  const idx_t* states_;
  idx_t vertices_;
  std::unique_ptr<idx_t[]> digits_;
  bool exhausted_ = false;
};

/// exp(x) as the value type holds it: in single precision for float, cut to an integer for
/// integers.
template <class val_t>
val_t potential(val_t x) {
  if constexpr (std::is_floating_point_v<val_t>) {
    return std::exp(x);
  } else {
    return saturating_cast<val_t>(std::exp(static_cast<double>(x)));
  }
}

/// Adds the potential of every configuration to the entry of each parameter that it selects, and
/// returns the logarithm of the partition sum. Sums of integers wrap, and their logarithm is cut to
/// an integer. `moments` has one entry per parameter.
template <class idx_t, class val_t>
val_t enumerate_configurations(const PairwiseModel<idx_t, val_t>& model, val_t* moments) {
  const idx_t edges = model.graph->edges();
  const auto selected = std::make_unique<std::size_t[]>(edges);
  val_t sum = 0;
  ConfigurationCounter<idx_t> x(model.states, model.graph->vertices());
  for (; !x.exhausted(); x.advance()) {
    val_t exponent = 0;
    for (idx_t e = 0; e < edges; ++e) {
      const auto [s, t] = endpoints(*model.graph, e);
      selected[e] =
          std::size_t{model.weight_offsets[e]} + std::size_t{x[s]} * model.states[t] + x[t];
      exponent = static_cast<val_t>(exponent + model.weights[selected[e]]);
    }
    const val_t p = potential(exponent);
    sum = static_cast<val_t>(sum + p);
    for (idx_t e = 0; e < edges; ++e) {
      moments[selected[e]] = static_cast<val_t>(moments[selected[e]] + p);
    }
  }
  if constexpr (std::is_floating_point_v<val_t>) {
    return std::log(sum);
  } else {
    return saturating_cast<val_t>(std::log(static_cast<double>(sum)));
  }
}

}  // namespace QZ
