#pragma once

#include "QZ/graph/graph.h"
#include "QZ/support/assertion.h"

namespace QZ {

/// A star: each vertex but the centre, in ascending order, has one edge (vertex, centre). The
/// centre stands second, so edges above it run from the larger to the smaller vertex.
template <class idx_t>
class Star : public Graph<idx_t> {
 public:
  /// Asserts "_c>=0 && _c<_n".
  Star(const idx_t& n, const idx_t& centre) {
    assert_that(centre < n, "_c>=0 && _c<_n", door::graph);
    this->n = n;
    this->allocateEdges(wrapping_sub<idx_t>(n, 1));
    std::size_t next = 0;
    for (std::size_t v = 0; v < n; ++v) {
      if (v != centre) this->setEdge(next++, v, centre);
    }
    this->buildNeighborhoods();
  }
};

}  // namespace QZ
