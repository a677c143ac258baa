#pragma once

#include "QZ/graph/fitting_count.h"
#include "QZ/graph/graph.h"

namespace QZ {

/// A square lattice, its vertices numbered row by row. Each vertex in turn numbers its edge to the
/// vertex below, then its edge to the right one, as far as there are such vertices.
template <class idx_t>
class Grid : public Graph<idx_t> {
 public:
  /// A lattice with `side` rows. Throws logic_error if `idx_t` cannot number its edges.
  explicit Grid(const idx_t& side) {
    const unsigned __int128 s = side;
    this->n = fitting_count<idx_t>(s * s);
    this->allocateEdges(side == 0 ? 0 : fitting_count<idx_t>(2 * s * (s - 1)));
    std::size_t next = 0;
    for (std::size_t v = 0; v < this->n; ++v) {
      if (v + side < this->n) this->setEdge(next++, v, v + side);
      if ((v + 1) % side != 0) this->setEdge(next++, v, v + 1);
    }
    this->buildNeighborhoods();
  }
};

}  // namespace QZ
