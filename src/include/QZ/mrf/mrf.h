#pragma once

/// The plain pairwise random field.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <type_traits>

#include "QZ/graph/abstract_graph.h"
#include "QZ/mrf/abstract_mrf.h"
#include "QZ/support/conversions.h"
#include "QZ/support/fused.h"
#include "QZ/support/parallel.h"

namespace QZ {

/// The negative average log-likelihood of a pairwise model, as a function of the engine's weights.
///
///   objective  log Z - sum over parameters of weight * empirical moment
///   gradient   model marginals minus empirical moments; a state pair that the data holds more
///   often
///              than the model has a negative entry, and a descent step raises its weight
///
/// Both in natural logarithms for float and double, where the moments are frequencies. In integers
/// the same formulas wrap: there the moments are counts, marginals are integer quotients, and the
/// gradient is kept for completeness only.
template <class idx_t, class val_t>
class MRF : public AbstractMRF<idx_t, val_t> {
 public:
  /// Borrows the engine and its weights, which are the point.
  explicit MRF(InferenceAlgorithm<idx_t, val_t>* engine) : AbstractMRF<idx_t, val_t>(engine) {}

  /// The point is the engine's own vector, so it is always decoded.
  void decode_weights() override {}

  val_t eval() override;

  /// One call of `infer`, then one marginal per entry, shared out among the default team by
  /// entries. A NaN counts for nothing in `gradient_norm`.
  val_t* comp_gradient() override;

 private:
  val_t fill_gradient(Range<std::size_t> entries);
  val_t fill_rows(idx_t e, Range<std::size_t> entries);
  static val_t difference(val_t q, val_t Z, val_t moment);
  static val_t magnitude(val_t entry);
};

template <class idx_t, class val_t>
val_t MRF<idx_t, val_t>::eval() {
  const std::size_t n = static_cast<std::size_t>(this->dim);
  if constexpr (std::is_integral_v<val_t>) {
    val_t objective = this->engine_->log_partition;
    for (std::size_t i = 0; i < n; ++i) {
      objective = wrapping_sub(objective, wrapping_mul(this->weights[i], this->emp[i]));
    }
    return objective;
  } else {
    return -(inner_product(this->weights, this->emp, n) - this->engine_->log_partition);
  }
}

template <class idx_t, class val_t>
val_t* MRF<idx_t, val_t>::comp_gradient() {
  this->engine_->infer(0);
  const std::size_t n = static_cast<std::size_t>(this->dim);
  val_t largest = 0;
#pragma omp parallel shared(largest)
  atomic_max(largest, fill_gradient(my_share<std::size_t>(n)));
  if constexpr (std::is_integral_v<val_t>) {
    // Entries compare as doubles, which 64-bit ones do not fit exactly.
    largest = saturating_cast<val_t>(static_cast<double>(largest));
  }
  this->gradient_norm = largest;
  return this->gradient;
}

/// Computes these entries, which may begin and end within a block. Returns their largest magnitude.
template <class idx_t, class val_t>
val_t MRF<idx_t, val_t>::fill_gradient(Range<std::size_t> entries) {
  const idx_t* offsets = this->engine_->weight_offsets;
  const std::size_t edges = this->graph->edges();
  // The block with the first entry: an empty one is passed over, since its successor starts there.
  std::size_t e =
      static_cast<std::size_t>(std::upper_bound(offsets, offsets + edges, entries.begin) - offsets);
  val_t largest = 0;
  for (std::size_t i = entries.begin; i < entries.end; ++e) {
    const std::size_t end = std::min(entries.end, static_cast<std::size_t>(offsets[e]));
    if (i < end) largest = std::max(largest, fill_rows(static_cast<idx_t>(e - 1), {i, end}));
    i = end;
  }
  return largest;
}

/// Computes entries of one edge's block.
template <class idx_t, class val_t>
val_t MRF<idx_t, val_t>::fill_rows(idx_t e, Range<std::size_t> entries) {
  const auto [s, t] = endpoints(*this->graph, e);
  const idx_t columns = this->states[t];
  const std::size_t first = entries.begin - this->engine_->weight_offsets[e];
  idx_t xs = static_cast<idx_t>(first / columns);
  idx_t xt = static_cast<idx_t>(first % columns);
  val_t largest = 0;
  for (std::size_t i = entries.begin; i < entries.end; ++i) {
    val_t q = 0;
    val_t Z = 0;
    this->engine_->edge_marginal(e, xs, xt, q, Z);
    this->gradient[i] = difference(q, Z, this->emp[i]);
    largest = std::max(largest, magnitude(this->gradient[i]));
    if (++xt == columns) {
      xt = 0;
      ++xs;
    }
  }
  return largest;
}

template <class idx_t, class val_t>
val_t MRF<idx_t, val_t>::difference(val_t q, val_t Z, val_t moment) {
  if constexpr (std::is_integral_v<val_t>) {
    return wrapping_sub(Z != 0 ? static_cast<val_t>(q / Z) : val_t(0), moment);
  } else {
    const double marginal = static_cast<double>(q) / static_cast<double>(Z);
    return static_cast<val_t>(-(static_cast<double>(moment) - marginal));
  }
}

/// Unsigned numbers are their own magnitude.
template <class idx_t, class val_t>
val_t MRF<idx_t, val_t>::magnitude(val_t entry) {
  if constexpr (std::is_integral_v<val_t>) {
    return entry;
  } else {
    return std::abs(entry);
  }
}

}  // namespace QZ
