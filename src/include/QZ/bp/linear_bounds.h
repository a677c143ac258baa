#pragma once

/// When linear values and clamped logarithms cannot differ.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

#include "QZ/support/vector_math.h"

namespace QZ {

/// What the weights of a model can do to a message, gathered edge by edge.
template <class val_t>
struct WeightBounds {
  /// Largest of log(states) + (largest weight - smallest weight) over the blocks: no entry of a
  /// normalised message lies below exp(-spread).
  val_t spread = 0;
  /// Largest magnitude of a weight. A NaN among the weights makes it infinite.
  val_t magnitude = 0;

  void add_block(const val_t* weights, std::size_t count, std::size_t states) {
    val_t low = weights[0];
    val_t high = weights[0];
    bool finite = true;
    for (std::size_t i = 0; i < count; ++i) {
      low = weights[i] < low ? weights[i] : low;
      high = weights[i] > high ? weights[i] : high;
      finite &= std::abs(weights[i]) <= std::numeric_limits<val_t>::max();
    }
    if (!finite) {
      magnitude = std::numeric_limits<val_t>::infinity();
      return;
    }
    spread = std::max(spread, std::log(static_cast<val_t>(states)) + (high - low));
    magnitude = std::max({magnitude, std::abs(low), std::abs(high)});
  }

  void merge(const WeightBounds& other) {
    spread = std::max(spread, other.spread);
    magnitude = std::max(magnitude, other.magnitude);
  }
};

/// How far the entries of one belief may lie apart.
///
/// With S the spread and W the magnitude of the weights and R = log(max b / min b) for a belief b,
/// a term of a message, log b - log m + w after centring b, is at most R + S + W in magnitude, and
/// a sum of such terms adds log(states) <= S. Within `chunk` products a partial belief sinks by
/// chunk * S at most. R + 3 S + W + chunk * S <= safe_exponent holds every value in range.
template <class val_t>
struct BeliefBounds {
  /// False if the weights alone forbid linear values.
  bool fit = false;
  /// Messages that are multiplied up between two looks at the belief.
  std::size_t chunk = 1;
  /// Smallest admissible min b / max b.
  val_t smallest_ratio = 1;

  BeliefBounds() = default;
  explicit BeliefBounds(const WeightBounds<val_t>& weights) {
    constexpr std::size_t longest_chunk = 64;
    const val_t left = safe_exponent<val_t> - 3 * weights.spread - weights.magnitude;
    if (!(left > 0)) return;
    const val_t quarter = left / (4 * weights.spread);
    chunk = quarter >= val_t(longest_chunk)
                ? longest_chunk
                : std::max<std::size_t>(1, static_cast<std::size_t>(quarter));
    const val_t width = left - static_cast<val_t>(chunk) * weights.spread;
    fit = width > 0;
    smallest_ratio = std::exp(-width);
  }
};

}  // namespace QZ
