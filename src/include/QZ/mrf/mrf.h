#pragma once

/// The plain pairwise random field.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <type_traits>
#include <typeinfo>

#include "QZ/bp/lbp.h"
#include "QZ/graph/abstract_graph.h"
#include "QZ/mrf/abstract_mrf.h"
#include "QZ/support/conversions.h"
#include "QZ/support/first_exception.h"
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
  using Entries = Range<std::size_t>;

  static bool is_lbp(const InferenceAlgorithm<idx_t, val_t>& engine);
  std::size_t block_behind(std::size_t entry) const;
  val_t fill_gradient(Entries entries, bool whole_edges);
  val_t fill_entries(idx_t e, Entries entries);
  val_t fill_blocks(std::size_t first, std::size_t last);
  val_t store_difference(std::size_t i, val_t marginal);
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
  const bool whole_edges = is_lbp(*this->engine_);
  val_t largest = 0;
  // The marginals may be those of a caller's engine.
  FirstException failure;
#pragma omp parallel shared(largest)
  failure.guard([&] { atomic_max(largest, fill_gradient(my_share<std::size_t>(n), whole_edges)); });
  failure.rethrow();
  if constexpr (std::is_integral_v<val_t>) {
    // Entries compare as doubles, which 64-bit ones do not fit exactly.
    largest = saturating_cast<val_t>(static_cast<double>(largest));
  }
  this->gradient_norm = largest;
  return this->gradient;
}

/// Whether the engine is belief propagation as it is, with no accessor overridden.
template <class idx_t, class val_t>
bool MRF<idx_t, val_t>::is_lbp(const InferenceAlgorithm<idx_t, val_t>& engine) {
  if constexpr (std::is_integral_v<val_t>) {
    return false;
  } else {
    return typeid(engine) == typeid(LBP<idx_t, val_t>);
  }
}

/// The first edge whose block begins behind this entry.
template <class idx_t, class val_t>
std::size_t MRF<idx_t, val_t>::block_behind(std::size_t entry) const {
  const idx_t* offsets = this->engine_->weight_offsets;
  const std::size_t edges = this->graph->edges();
  return static_cast<std::size_t>(std::upper_bound(offsets, offsets + edges, entry) - offsets);
}

/// Computes these entries, or the blocks that begin in them. Returns the largest magnitude.
template <class idx_t, class val_t>
val_t MRF<idx_t, val_t>::fill_gradient(Entries entries, bool whole_edges) {
  const idx_t* offsets = this->engine_->weight_offsets;
  if (entries.begin == entries.end) return 0;
  if (whole_edges) {
    // An empty block begins where its successor does.
    const std::size_t first = entries.begin == 0 ? 0 : block_behind(entries.begin - 1);
    const std::size_t last = block_behind(entries.end - 1);
    return fill_blocks(first, last);
  }
  val_t largest = 0;
  std::size_t e = block_behind(entries.begin) - 1;
  for (std::size_t i = entries.begin; i < entries.end; ++e) {
    const std::size_t end = std::min(entries.end, static_cast<std::size_t>(offsets[e + 1]));
    if (i < end) largest = std::max(largest, fill_entries(static_cast<idx_t>(e), {i, end}));
    i = end;
  }
  return largest;
}

/// Computes entries of one edge's block, one marginal after the other.
template <class idx_t, class val_t>
val_t MRF<idx_t, val_t>::fill_entries(idx_t e, Entries entries) {
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
    if constexpr (std::is_integral_v<val_t>) {
      largest = std::max(largest, store_difference(i, Z != 0 ? static_cast<val_t>(q / Z) : 0));
    } else {
      largest = std::max(largest, store_difference(i, q / Z));
    }
    if (++xt == columns) {
      xt = 0;
      ++xs;
    }
  }
  return largest;
}

/// Computes the whole blocks of edges `first` to `last` - 1, in runs that stay in the cache.
template <class idx_t, class val_t>
val_t MRF<idx_t, val_t>::fill_blocks(std::size_t first, std::size_t last) {
  val_t largest = 0;
  if constexpr (!std::is_integral_v<val_t>) {
    constexpr std::size_t run_length = 1024;
    const auto& lbp = static_cast<LBP<idx_t, val_t>&>(*this->engine_);
    const idx_t* offsets = lbp.weight_offsets;
    for (std::size_t stop; first < last; first = stop) {
      const std::size_t begin = offsets[first];
      for (stop = first + 1; stop < last && offsets[stop] - begin < run_length; ++stop) {
      }
      lbp.edge_marginals({static_cast<idx_t>(first), static_cast<idx_t>(stop)},
                         this->gradient + begin);
      for (std::size_t i = begin; i < offsets[stop]; ++i) {
        largest = std::max(largest, store_difference(i, this->gradient[i]));
      }
    }
  }
  return largest;
}

/// Stores one entry and returns its magnitude. Unsigned numbers are their own.
template <class idx_t, class val_t>
val_t MRF<idx_t, val_t>::store_difference(std::size_t i, val_t marginal) {
  if constexpr (std::is_integral_v<val_t>) {
    return this->gradient[i] = wrapping_sub(marginal, this->emp[i]);
  } else {
    this->gradient[i] = -(this->emp[i] - marginal);
    return std::abs(this->gradient[i]);
  }
}

}  // namespace QZ
