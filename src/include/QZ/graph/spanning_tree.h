#pragma once

/// Spanning trees by weight.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <numeric>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

#include "QZ/graph/abstract_graph.h"

namespace QZ {

/// Orders pairs by their second component alone, descending or ascending.
template <class idx_t, class weight_t, bool descending>
struct ValOrder {
  bool operator()(const std::pair<idx_t, weight_t>& a, const std::pair<idx_t, weight_t>& b) const {
    return descending ? a.second > b.second : a.second < b.second;
  }
};

/// Components that grow by the edges that join two of them.
class SpanningForest {
 public:
  explicit SpanningForest(std::size_t vertices) : parent_(vertices), reached_(vertices) {
    std::iota(parent_.begin(), parent_.end(), std::size_t(0));
  }

  std::size_t accepted() const { return accepted_; }
  bool spans() const { return accepted_ + 1 >= parent_.size(); }

  /// Joins the components of `s` and `t` and returns true, or returns false if they are one. A
  /// self-loop at a vertex that no edge has reached starts a component, and counts as accepted.
  bool accept(std::size_t s, std::size_t t) {
    const bool fresh = !reached_[s] && !reached_[t];
    const std::size_t a = root(s);
    const std::size_t b = root(t);
    if (a == b && !fresh) return false;
    parent_[b] = a;
    reached_[s] = reached_[t] = true;
    ++accepted_;
    return true;
  }

 private:
  std::size_t root(std::size_t v) {
    while (parent_[v] != v) v = parent_[v] = parent_[parent_[v]];
    return v;
  }

  std::vector<std::size_t> parent_;
  std::vector<bool> reached_;
  std::size_t accepted_ = 0;
};

/// A spanning tree of largest (`maximum`) or smallest weight, by taking edges in the order of their
/// weights as long as they join two components; a forest where the graph has several parts.
///
/// Sets `tree` to a row-major vertices-by-vertices matrix from malloc that holds 1 at (s, t) and
/// (t, s) for each edge of the tree; the caller frees it. `weights` has one entry per edge. Edges
/// of equal weight come in the order in which `std::sort` leaves them. Throws logic_error if a
/// weight is not a number, since no order can hold it.
///
/// Source: Kruskal 1956, On the shortest spanning subtree of a graph.
template <class idx_t, class weight_t, bool maximum>
void MWST(idx_t*& tree, const AbstractGraph<idx_t>* const& graph, const weight_t* weights) {
  const std::size_t n = graph->vertices();
  const idx_t m = graph->edges();
  std::vector<std::pair<idx_t, weight_t>> edges(m);
  for (idx_t e = 0; e < m; ++e) {
    if constexpr (std::is_floating_point_v<weight_t>) {
      if (std::isnan(weights[e])) throw std::logic_error("a weight of the tree is not a number");
    }
    edges[e] = {e, weights[e]};
  }
  std::sort(edges.begin(), edges.end(), ValOrder<idx_t, weight_t, maximum>());

  auto* matrix = static_cast<idx_t*>(std::calloc(n == 0 ? 1 : n * n, sizeof(idx_t)));
  if (matrix == nullptr) throw std::bad_alloc();
  SpanningForest forest(n);
  for (auto next = edges.begin(); next != edges.end() && !forest.spans(); ++next) {
    const auto [s, t] = endpoints(*graph, next->first);
    if (forest.accept(s, t)) matrix[s * n + t] = matrix[t * n + s] = 1;
  }
  tree = matrix;
}

}  // namespace QZ
