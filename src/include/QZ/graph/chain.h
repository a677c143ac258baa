#pragma once

#include "QZ/graph/graph.h"

namespace QZ {

/// A path: edge i joins the vertices i and i + 1.
template <class idx_t>
class Chain : public Graph<idx_t> {
 public:
  explicit Chain(const idx_t& n) {
    this->n = n;
    this->allocateEdges(n == 0 ? 0 : wrapping_sub<idx_t>(n, 1));
    for (std::size_t e = 0; e < this->m; ++e) this->setEdge(e, e, e + 1);
    this->buildNeighborhoods();
  }
};

}  // namespace QZ
