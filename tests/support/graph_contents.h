#pragma once

/// What a graph holds, as plain values that a test can compare.

#include <utility>
#include <vector>

#include "QZ/graph/abstract_graph.h"

namespace qz_test {

using EdgeList = std::vector<std::pair<unsigned long, unsigned long>>;

template <class idx_t>
EdgeList edges_of(const QZ::AbstractGraph<idx_t>& graph) {
  EdgeList list;
  for (unsigned long e = 0; e < graph.edges(); ++e) {
    const auto [s, t] = QZ::endpoints(graph, static_cast<idx_t>(e));
    list.emplace_back(s, t);
  }
  return list;
}

/// The edge numbers at a vertex, in the order of the graph.
template <class idx_t>
std::vector<unsigned long> incidence_of(const QZ::AbstractGraph<idx_t>& graph, idx_t v) {
  std::vector<unsigned long> list;
  for (unsigned long i = 0; i < graph.num_neighbors(v); ++i) {
    list.push_back(graph.in_edge(v, static_cast<idx_t>(i)));
  }
  return list;
}

}  // namespace qz_test
