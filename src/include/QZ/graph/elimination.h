#pragma once

/// Orders that eliminate the vertices of a graph, and the graph that elimination leaves behind.

#include <algorithm>
#include <cstddef>
#include <queue>
#include <utility>
#include <vector>

#include "QZ/graph/abstract_graph.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// The vertices that a maximum cardinality search has not numbered yet, by weight: the number of
/// edges to numbered vertices.
template <class idx_t>
class SearchFront {
 public:
  explicit SearchFront(std::size_t vertices)
      : weight_(vertices), numbered_(vertices), untouched_(vertices) {}

  /// Adds an edge from a numbered vertex to `v`.
  void raise(idx_t v) {
    if (!numbered_[v]) touched_.emplace(++weight_[v], v);
  }

  /// Numbers `v`.
  void take(idx_t v) { numbered_[v] = true; }

  /// The vertex of the largest weight, and among those the one with the largest number. There must
  /// be one.
  idx_t best() {
    for (; !touched_.empty(); touched_.pop()) {
      const auto [weight, v] = touched_.top();
      if (!numbered_[v] && weight == weight_[v]) return v;
    }
    while (numbered_[untouched_ - 1]) --untouched_;
    return wrapping_cast<idx_t>(untouched_ - 1);
  }

 private:
  std::vector<idx_t> weight_;
  std::vector<bool> numbered_;
  // Weights and vertices as they were when the weight rose; outdated entries are passed over.
  std::priority_queue<std::pair<idx_t, idx_t>> touched_;
  // While no numbered vertex has an open neighbour, all open vertices lie below this number.
  std::size_t untouched_;
};

/// Maximum cardinality search: numbers vertex 0 first and then, again and again, the vertex with
/// most edges to numbered ones, by the largest number among equals. Fills `order` from its end to
/// its front, so that `order` eliminates the vertices of a chordal graph without fill-in.
///
/// The rule for equals is what a stable sort leaves in front when its comparison also holds for
/// equal elements: each merge then takes the later of two equals first, which turns the ascending
/// vertex numbers of equals round.
///
/// Source: Tarjan and Yannakakis 1984, Simple linear-time algorithms to test chordality of graphs.
template <class idx_t>
void MCS(idx_t* order, const AbstractGraph<idx_t>* const& graph) {
  const idx_t n = graph->vertices();
  SearchFront<idx_t> front(n);
  for (idx_t left = n; left > 0; --left) {
    const idx_t v = left == n ? 0 : front.best();
    order[left - 1] = v;
    front.take(v);
    const idx_t degree = graph->num_neighbors(v);
    for (idx_t i = 0; i < degree; ++i) {
      const auto [s, t] = endpoints(*graph, graph->in_edge(v, i));
      front.raise(s == v ? t : s);
    }
  }
}

/// Every vertex is eliminated in turn, and its remaining neighbours become neighbours of each
/// other.
template <class idx_t>
struct Elimination {
  /// The vertex that is eliminated at each place.
  std::vector<idx_t> order;
  /// For each place, the places of the neighbours that remained then, ascending.
  std::vector<std::vector<idx_t>> later;
};

/// Eliminates along a maximum cardinality search.
///
/// The neighbours that remain at a place are those of the graph, together with the others that
/// remained at the places whose first remaining neighbour this one is. All but linear in the size
/// of the result.
///
/// Source: George and Liu 1980, An optimal algorithm for symbolic factorization of symmetric
/// matrices.
template <class idx_t>
Elimination<idx_t> eliminate(const AbstractGraph<idx_t>& graph) {
  const idx_t n = graph.vertices();
  Elimination<idx_t> result{std::vector<idx_t>(n), std::vector<std::vector<idx_t>>(n)};
  const AbstractGraph<idx_t>* const searched = &graph;
  MCS(result.order.data(), searched);

  std::vector<idx_t> place(n);
  for (idx_t k = 0; k < n; ++k) place[result.order[k]] = k;

  for (idx_t e = 0; e < graph.edges(); ++e) {
    const auto [s, t] = endpoints(graph, e);
    const auto [k, other] = std::minmax(place[s], place[t]);
    if (k != other) result.later[k].push_back(other);
  }

  std::vector<std::vector<idx_t>> children(n);
  for (idx_t k = 0; k < n; ++k) {
    std::vector<idx_t>& later = result.later[k];
    for (idx_t child : children[k]) {
      const std::vector<idx_t>& left = result.later[child];
      later.insert(later.end(), left.begin() + 1, left.end());
    }
    std::ranges::sort(later);
    later.erase(std::unique(later.begin(), later.end()), later.end());
    if (!later.empty()) children[later.front()].push_back(k);
  }
  return result;
}

}  // namespace QZ
