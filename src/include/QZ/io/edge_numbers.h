#pragma once

/// Looking up edges by their endpoints.

#include <cstddef>
#include <vector>

#include "QZ/graph/abstract_graph.h"

namespace QZ {

/// The edge number of each pair of vertices of a graph; 0 for a pair that it does not join.
template <class idx_t>
class EdgeNumbers {
 public:
  explicit EdgeNumbers(const AbstractGraph<idx_t>& graph)
      : n_(graph.vertices()), numbers_(n_ * n_) {
    for (idx_t e = 0; e < graph.edges(); ++e) {
      const auto [s, t] = endpoints(graph, e);
      numbers_[s * n_ + t] = numbers_[t * n_ + s] = e;
    }
  }

  idx_t operator()(const idx_t& a, const idx_t& b) const { return numbers_[a * n_ + b]; }

 private:
  std::size_t n_;
  std::vector<idx_t> numbers_;
};

}  // namespace QZ
