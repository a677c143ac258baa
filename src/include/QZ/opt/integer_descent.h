#pragma once

/// Coordinate steps of size one.

#include <cstddef>
#include <memory>

#include "QZ/graph/abstract_graph.h"
#include "QZ/opt/optimizer.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// Visits one edge per step, in turn, and moves each parameter of its block by one in the direction
/// that the gradient names, within 0 to k_limit - 1.
///
/// Weights act by their differences within a block. So a weight that should fall but stands at 0
/// makes the others of its block rise instead, and entries visited later in the step see that.
template <class idx_t>
class IntGD : public Optimizer<idx_t, idx_t, true> {
 public:
  IntGD(const AbstractGraph<idx_t>& graph, const idx_t* states, idx_t k_limit)
      : k_limit(k_limit),
        edge_start(new idx_t[static_cast<std::size_t>(graph.edges()) + 1]),
        edge_count(graph.edges()) {
    idx_t sum = 0;
    for (idx_t e = 0; e < edge_count; ++e) {
      const auto [s, t] = endpoints(graph, e);
      edge_start[e] = sum;
      sum = wrapping_add(sum, wrapping_mul(states[s], states[t]));
    }
    edge_start[edge_count] = sum;
  }
  ~IntGD() override { delete[] edge_start; }
  IntGD(const IntGD&) = delete;
  IntGD& operator=(const IntGD&) = delete;

  void update(Function<idx_t, idx_t>* f, OptState<idx_t, idx_t>&) override {
    dim_seen = f->dim;
    if (edge_count == 0) return;
    idx_t* x = f->current_point();
    const idx_t* g = f->get_gradient();
    const idx_t begin = edge_start[cursor];
    const idx_t end = edge_start[static_cast<std::size_t>(cursor) + 1];
    for (idx_t i = begin; i < end; ++i) {
      if (g[i] == all_ones<idx_t>) {
        lower(x, i, begin, end);
      } else if (g[i] == 1) {
        raise(x[i]);
      }
    }
    cursor = cursor + 1 < edge_count ? wrapping_cast<idx_t>(cursor + 1) : idx_t(0);
  }

  /// The function's `dim` at the last step.
  idx_t dim_seen = 0;
  /// Exclusive upper bound of a parameter.
  idx_t k_limit;
  /// The edge that the next step visits.
  idx_t cursor = 0;
  /// Owned, edges + 1 entries: where each edge's block begins in the point.
  idx_t* edge_start;
  idx_t edge_count;

 private:
  /// The narrow widths compare in int; in the wide ones a weight of all ones wraps to 0 first.
  void raise(idx_t& weight) const {
    if (weight + 1 < k_limit) ++weight;
  }

  void lower(idx_t* x, idx_t i, idx_t begin, idx_t end) const {
    if (x[i] != 0) {
      --x[i];
      return;
    }
    for (idx_t j = begin; j < end; ++j) {
      if (j != i) raise(x[j]);
    }
  }
};

}  // namespace QZ
