#pragma once

/// The compact parametrisation of binary fields.

#include <cmath>
#include <stdexcept>

#include "QZ/mrf/mrf.h"

namespace QZ {

/// A binary field with one bias per vertex and one coupling per edge in place of four weights per
/// edge.
///
/// The point holds the V biases and then the E couplings. Decoding expands it into the engine's
/// blocks: a coupling acts on the state pair (1, 1) of its edge, and a bias lives in the block of
/// its vertex's first edge, on the two entries in which the vertex has state 1. With biases a, b
/// and coupling c a lone edge reads 0, b, a, a + b + c.
///
/// `dim` is V + E, so the objective, inherited from the plain field, sums over the first V + E
/// block entries only. Optimizers decide by the gradient norm, which covers all of the point.
///
/// Every vertex needs an edge. Throws out_of_range "Ising model requires binary states." otherwise
/// than for two states each.
template <class idx_t, class val_t>
class Ising : public MRF<idx_t, val_t> {
  static_assert(std::is_floating_point_v<val_t>);

 public:
  explicit Ising(InferenceAlgorithm<idx_t, val_t>* engine) : MRF<idx_t, val_t>(engine) {
    for (idx_t v = 0; v < this->graph->vertices(); ++v) {
      if (this->states[v] != 2) {
        throw std::out_of_range("Ising model requires binary states.");
      }
      if (this->graph->num_neighbors(v) == 0) {
        throw std::logic_error("Ising model requires an edge at every vertex.");
      }
    }
    param_count = wrapping_add(this->graph->vertices(), this->graph->edges());
    this->resize(param_count);
    bias_coupling = new val_t[param_count]();
  }
  ~Ising() override { delete[] bias_coupling; }

  void decode_weights() override {
    val_t* w = this->weights;
    std::fill_n(w, this->engine_->wdim(), val_t(0));
    const idx_t V = this->graph->vertices();
    for (idx_t e = 0; e < this->graph->edges(); ++e) {
      w[this->engine_->weight_offsets[e] + 3] = bias_coupling[V + e];
    }
    for (idx_t v = 0; v < V; ++v) {
      const FirstEdge first = first_edge(v);
      w[first.block + first.alone] += bias_coupling[v];
      w[first.block + 3] += bias_coupling[v];
    }
  }

  val_t* current_point() override { return bias_coupling; }

  /// Sequential. Both sides of a bias are marginals of its vertex's first edge.
  val_t* comp_gradient() override {
    this->engine_->infer(0);
    const idx_t V = this->graph->vertices();
    for (idx_t v = 0; v < V; ++v) {
      const FirstEdge first = first_edge(v);
      this->gradient[v] = 0;
      this->gradient[v] -= surplus(first.edge, first.alone);
      this->gradient[v] -= surplus(first.edge, 3);
    }
    for (idx_t e = 0; e < this->graph->edges(); ++e) this->gradient[V + e] = -surplus(e, 3);
    this->gradient_norm = 0;
    for (idx_t k = 0; k < param_count; ++k) {
      this->gradient_norm = std::fmax(this->gradient_norm, std::abs(this->gradient[k]));
    }
    return this->gradient;
  }

  /// The length of the point.
  virtual idx_t dim() const { return param_count; }

  /// Owned: V biases, then E couplings.
  val_t* bias_coupling = nullptr;
  idx_t param_count = 0;

 private:
  /// The block that carries a vertex's bias, and its entry in which the other end has state 0.
  struct FirstEdge {
    idx_t edge;
    std::size_t block;
    std::size_t alone;
  };

  FirstEdge first_edge(idx_t v) const {
    const idx_t e = this->graph->in_edge(v, 0);
    const bool leads = endpoints(*this->graph, e).s == v;
    return {e, this->engine_->weight_offsets[e], leads ? 2u : 1u};
  }

  /// Data minus model at entry 2 * xs + xt of a block.
  val_t surplus(idx_t e, std::size_t entry) const {
    val_t q = 0;
    val_t Z = 0;
    this->engine_->edge_marginal(e, entry / 2, entry % 2, q, Z);
    return this->emp[this->engine_->weight_offsets[e] + entry] - q / Z;
  }
};

}  // namespace QZ
