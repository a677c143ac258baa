#pragma once

/// The abstract inference engine.

#include <memory>
#include <random>

#include "QZ/graph/abstract_graph.h"
#include "QZ/inference/enumeration.h"
#include "QZ/inference/gibbs.h"
#include "QZ/inference/pairwise_model.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// Answers questions about a pairwise model: its log partition function, the marginal of a vertex
/// state, the marginal of an edge state pair, and samples.
///
///   p(x) = exp(sum over edges e = (s, t) of w_e(x_s, x_t)) / Z
///
/// The model comes in three pieces: a graph, the state count of each vertex, and one flat vector of
/// log-potentials, natural logarithms for float and double, base-2 exponents for integers. The
/// engine borrows them. There are no vertex parameters; a vertex enters through its edges.
///
/// Marginals come as a pair q, Z; the probability is q / Z, formed in double. Distinct threads may
/// ask for marginals after `infer` has returned; nothing else may be shared.
template <class idx_t, class val_t>
class InferenceAlgorithm {
 public:
  /// `weights` may be null: then the engine owns a vector of zeros. `rng` is borrowed.
  /// Throws logic_error "the index type is too narrow for the model" if the parameters cannot be
  /// numbered in `idx_t`.
  InferenceAlgorithm(AbstractGraph<idx_t>* graph, idx_t* states, val_t* weights, std::mt19937* rng);
  InferenceAlgorithm(const InferenceAlgorithm&) = delete;
  InferenceAlgorithm& operator=(const InferenceAlgorithm&) = delete;
  virtual ~InferenceAlgorithm();

  /// Visits every configuration and leaves exact moments in `moment_sums` and the exact
  /// `log_partition`. Takes time in proportion to the product of all state counts. Reads neither
  /// `observed` nor `mode`.
  virtual void infer_slow(const idx_t& mode);

  /// The number of parameters.
  virtual idx_t wdim() const { return dim; }

  /// Mode 0 computes sum marginals, mode 1 maximum marginals and mode 10 the exhaustive ones, where
  /// the method knows the difference. Sets `log_partition`.
  virtual void infer(const idx_t& mode) = 0;

  /// The probability that vertex `v` has state `x`, as q / Z. Both must be 0 before the call.
  virtual void vertex_marginal(const idx_t& v, const idx_t& x, val_t& q, val_t& Z) const = 0;

  /// The probability of the state pair (xs, xt) on edge `e`, as q / Z. Both must be 0 before the
  /// call.
  virtual void edge_marginal(const idx_t& e, const idx_t& xs, const idx_t& xt, val_t& q,
                             val_t& Z) const = 0;

  /// Draws a configuration by `sweeps` passes of single-site Gibbs sampling in vertex order. `x`,
  /// one entry per vertex, holds the first state and receives the last. An entry at or above the
  /// state count starts at a uniform draw. With `fixed` all other entries stay as they are, a
  /// negative one included. Overwrites `observed`. With an 8-bit or 16-bit `idx_t` a product
  /// vertices * sweeps beyond its range never ends.
  void GIBBS(val_t*& x, const idx_t& sweeps, bool fixed);

  /// Guarded store of an observed state: ignored for a number that is no vertex; -1 is stored for a
  /// number that is no state.
  void observe(const idx_t& v, const val_t& x) {
    if (v < graph->vertices()) observed[v] = storable_state(x, states[v]);
  }

  /// Guarded read of an observed state: -1 for a number that is no vertex.
  val_t observation(const idx_t& v) const {
    return v < graph->vertices() ? observed[v] : free_state<val_t>;
  }

  /// The model's pieces as they stand.
  PairwiseModel<idx_t, val_t> model() const { return {graph, states, weights, weight_offsets}; }

  bool owns_weights;
  bool owns_states = false;
  bool owns_graph = false;
  /// Largest state count.
  idx_t max_states = 0;
  /// Unnormalised moment of each parameter, and the divisor that belongs to it. A first divisor of
  /// -1 says that there are none.
  val_t* moment_sums;
  val_t* moment_norms;
  idx_t max_iterations = 0;
  val_t log_partition = 0;
  AbstractGraph<idx_t>* graph;
  idx_t* states;
  /// Number of parameters.
  idx_t dim;
  std::mt19937* rng;
  /// The log-potentials, `dim` of them.
  val_t* weights;
  /// Observed state of each vertex, -1 for a free one.
  val_t* observed;
  /// Edge of each parameter. A first entry of all ones says that the table is not filled in.
  idx_t* edge_of_weight;
  /// First parameter of each edge, and the total behind them.
  idx_t* weight_offsets;
};

template <class idx_t, class val_t>
InferenceAlgorithm<idx_t, val_t>::InferenceAlgorithm(AbstractGraph<idx_t>* graph, idx_t* states,
                                                     val_t* weights, std::mt19937* rng)
    : owns_weights(weights == nullptr), graph(graph), states(states), rng(rng), weights(weights) {
  require_addressable<idx_t>(unwrapped_dim(*graph, states));
  dim = calcDim(*graph, states);
  const std::size_t entries = dim;
  // The first entries of these tables are marks, which a model without parameters has too.
  const std::size_t marked = entries > 0 ? entries : 1;
  const std::size_t vertices = graph->vertices();
  const std::size_t edges = graph->edges();
  auto own_weights = std::make_unique<val_t[]>(owns_weights ? entries : 0);
  auto sums = std::make_unique<val_t[]>(marked);
  auto norms = std::make_unique<val_t[]>(marked);
  auto owners = std::make_unique<idx_t[]>(marked);
  auto offsets = std::make_unique<idx_t[]>(edges + 1);
  auto seen = std::make_unique<val_t[]>(vertices);

  norms[0] = free_state<val_t>;
  owners[0] = all_ones<idx_t>;
  for (std::size_t v = 0; v < vertices; ++v) {
    seen[v] = free_state<val_t>;
    if (states[v] > max_states) max_states = states[v];
  }
  for (idx_t e = 0; e < edges; ++e) {
    const auto [s, t] = endpoints(*graph, e);
    offsets[std::size_t{e} + 1] = wrapping_add(offsets[e], wrapping_mul(states[s], states[t]));
  }
  if (owns_weights) this->weights = own_weights.release();
  moment_sums = sums.release();
  moment_norms = norms.release();
  edge_of_weight = owners.release();
  weight_offsets = offsets.release();
  observed = seen.release();
}

template <class idx_t, class val_t>
InferenceAlgorithm<idx_t, val_t>::~InferenceAlgorithm() {
  if (owns_weights) delete[] weights;
  if (owns_states) delete[] states;
  if (owns_graph) delete graph;
  delete[] observed;
  delete[] weight_offsets;
  delete[] edge_of_weight;
  delete[] moment_sums;
  delete[] moment_norms;
}

template <class idx_t, class val_t>
void InferenceAlgorithm<idx_t, val_t>::infer_slow(const idx_t&) {
  for (std::size_t k = 0; k < dim; ++k) {
    moment_sums[k] = 0;
    moment_norms[k] = 1;
  }
  // Also for a model without parameters, so that the mark goes.
  moment_norms[0] = 1;
  log_partition = enumerate_configurations(model(), moment_sums);
}

template <class idx_t, class val_t>
void InferenceAlgorithm<idx_t, val_t>::GIBBS(val_t*& x, const idx_t& sweeps, bool fixed) {
  GibbsSampler<idx_t, val_t>(model()).run(x, sweeps, fixed, observed, *rng);
}

}  // namespace QZ
