#pragma once

/// The field over time slices, whose weights are decayed sums of the parameters of earlier steps.

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "QZ/graph/unrolled.h"
#include "QZ/mrf/decay.h"
#include "QZ/mrf/mrf.h"

namespace QZ {

/// A field on an unrolled graph. The weight of an edge at time i is the sum over the steps j from 0
/// to i of decay_coeff(j, i) times the parameter of the like edge at step j, so that a pattern
/// learned early carries on.
///
/// The point is `time_weights`, in the layout of the engine's weights. Decoding expands it; the
/// gradient is pulled back along the same coefficients. A stored model holds `time_weights`.
template <class idx_t, class val_t>
class STRF : public MRF<idx_t, val_t> {
  static_assert(std::is_floating_point_v<val_t>);

 public:
  /// The engine's graph must be an `STGraph`, or logic_error is thrown.
  STRF(InferenceAlgorithm<idx_t, val_t>* engine, ReparamType reparam)
      : MRF<idx_t, val_t>(engine), weights_current(true), reparam(reparam) {
    unrolled_ = dynamic_cast<const STGraph<idx_t>*>(this->graph);
    if (unrolled_ == nullptr) {
      throw std::logic_error("a model with decay requires a graph over time slices");
    }
    fill_edge_of_weight(*engine);
    this->lipschitz = curvature_bound();
    time_weights = new val_t[this->dim];
    std::copy_n(engine->weights, this->dim, time_weights);
  }
  ~STRF() override { delete[] time_weights; }

  void decode_weights() override { convert(); }

  val_t* current_point() override {
    weights_current = false;
    return time_weights;
  }

  /// Sequential: like edges of different times write to the same entries.
  val_t* comp_gradient() override {
    convert();
    this->engine_->infer(0);
    std::fill_n(this->gradient, this->dim, val_t(0));
    for_each_weight([&](idx_t e, idx_t xs, idx_t xt, std::size_t inside) {
      val_t q = 0;
      val_t Z = 0;
      this->engine_->edge_marginal(e, xs, xt, q, Z);
      const std::size_t i = this->engine_->weight_offsets[e] + inside;
      const val_t surplus = this->emp[i] - q / Z;
      for_each_source(i, inside, [&](std::size_t source, val_t coefficient) {
        this->gradient[source] -= coefficient * surplus;
      });
    });
    this->gradient_norm = 0;
    for (std::size_t k = 0; k < this->dim; ++k) {
      this->gradient_norm = std::fmax(this->gradient_norm, std::abs(this->gradient[k]));
    }
    return this->gradient;
  }

  /// Expands `time_weights` into the engine's weights.
  void convert() {
    for_each_weight([&](idx_t e, idx_t, idx_t, std::size_t inside) {
      const std::size_t i = this->engine_->weight_offsets[e] + inside;
      val_t sum = 0;
      for_each_source(i, inside, [&](std::size_t source, val_t coefficient) {
        sum = std::fma(coefficient, time_weights[source], sum);
      });
      this->weights[i] = sum;
    });
    weights_current = true;
  }

  static val_t decay_coeff(const idx_t& i, const idx_t& T, ReparamType r) {
    return QZ::decay_coeff<val_t, idx_t>(i, T, r);
  }
  static val_t project(const val_t& l, const val_t& u, const val_t& x, const val_t& a,
                       const val_t& b) {
    return QZ::project<val_t>(l, u, x, a, b);
  }

  /// Whether the engine's weights belong to the point; cleared when the point is handed out.
  bool weights_current;
  /// Owned, `dim` entries.
  val_t* time_weights;
  ReparamType reparam;

 private:
  /// Counts of the unrolled graph: steps between slices, and vertices and edges below.
  idx_t steps() const { return wrapping_sub<idx_t>(unrolled_->slices, 1); }

  idx_t edge_time(idx_t e) const {
    const idx_t D = steps();
    const idx_t temporal = wrapping_mul(D, unrolled_->base->vertices());
    const idx_t crossing = wrapping_mul<idx_t>(3, wrapping_mul(D, unrolled_->base->edges()));
    if (e < temporal) return e % D;
    if (e < wrapping_add(temporal, crossing)) {
      return wrapping_cast<idx_t>(wrapping_sub(e, temporal) / 3 % D);
    }
    return D;
  }

  /// The number that an edge of the first two kinds has below, through the graph's float reciprocal
  /// as in its own numbering.
  idx_t base_number(idx_t multiple_of_steps) const {
    return saturating_cast<idx_t>(static_cast<float>(multiple_of_steps) * unrolled_->invSpan);
  }

  /// The like edge at step j, which is at most the edge's time.
  idx_t edge_at_time(idx_t e, idx_t j) const {
    const idx_t D = steps();
    const idx_t temporal = wrapping_mul(D, unrolled_->base->vertices());
    const idx_t crossing = wrapping_mul<idx_t>(3, wrapping_mul(D, unrolled_->base->edges()));
    const auto crossing_edge = [&](idx_t below, idx_t kind) {
      return wrapping_cast<idx_t>(temporal + 3ul * D * below + 3ul * j + kind);
    };
    if (e < temporal) {
      return wrapping_cast<idx_t>(base_number(wrapping_cast<idx_t>(e - e % D)) * 1ul * D + j);
    }
    if (e < wrapping_add(temporal, crossing)) {
      const idx_t d = wrapping_sub(e, temporal);
      const idx_t w = d / 3;
      return crossing_edge(base_number(wrapping_cast<idx_t>(w - w % D)), d % 3);
    }
    return j < D ? crossing_edge(wrapping_cast<idx_t>(e - temporal - crossing), 0) : e;
  }

  /// Calls f(source, coefficient) for every parameter that feeds weight `i`, which stands at
  /// `inside` in its block. Like edges have like blocks.
  template <class F>
  void for_each_source(std::size_t i, std::size_t inside, F&& f) const {
    const idx_t e = this->engine_->edge_of_weight[i];
    const idx_t time = edge_time(e);
    for (std::size_t j = 0; j <= time; ++j) {
      const idx_t step = static_cast<idx_t>(j);
      f(this->engine_->weight_offsets[edge_at_time(e, step)] + inside,
        decay_coeff(step, time, reparam));
    }
  }

  /// Calls f(e, xs, xt, place in the block) for every weight.
  template <class F>
  void for_each_weight(F&& f) const {
    for (idx_t e = 0; e < this->graph->edges(); ++e) {
      const auto [s, t] = endpoints(*this->graph, e);
      std::size_t inside = 0;
      for (idx_t xs = 0; xs < this->states[s]; ++xs) {
        for (idx_t xt = 0; xt < this->states[t]; ++xt) f(e, xs, xt, inside++);
      }
    }
  }

  static void fill_edge_of_weight(InferenceAlgorithm<idx_t, val_t>& engine) {
    if (engine.wdim() == 0 || engine.edge_of_weight[0] != all_ones<idx_t>) return;
    for (idx_t e = 0; e < engine.graph->edges(); ++e) {
      const std::size_t begin = engine.weight_offsets[e];
      const std::size_t end = engine.weight_offsets[std::size_t{e} + 1];
      for (std::size_t i = begin; i < end; ++i) engine.edge_of_weight[i] = e;
    }
  }

  /// The sum of the squared coefficients, times the size of the blocks of one slice, times twice
  /// the number of edges.
  val_t curvature_bound() const {
    const AbstractGraph<idx_t>& base = *unrolled_->base;
    val_t blocks = 0;
    for (idx_t v = 0; v < base.vertices(); ++v) {
      blocks += static_cast<val_t>(this->states[v]) * static_cast<val_t>(this->states[v]);
    }
    for (idx_t e = 0; e < base.edges(); ++e) {
      const auto [s, t] = endpoints(base, e);
      blocks += 3 * static_cast<val_t>(this->states[s]) * static_cast<val_t>(this->states[t]);
    }
    val_t decay = 0;
    for (idx_t i = 0; i < unrolled_->slices; ++i) {
      for (idx_t j = 0; j <= i; ++j) {
        const val_t c = decay_coeff(j, i, reparam);
        decay += c * c;
      }
    }
    return decay * (blocks * 2 * static_cast<val_t>(this->graph->edges()));
  }

  const STGraph<idx_t>* unrolled_;
};

}  // namespace QZ
