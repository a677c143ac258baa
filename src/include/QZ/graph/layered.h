#pragma once

#include <vector>

#include "QZ/graph/fitting_count.h"
#include "QZ/graph/graph.h"

namespace QZ {

/// Layers of vertices, each joined completely to the next and to no other; no edges lie within a
/// layer. Vertices are numbered layer by layer. Edges come by pair of layers, then by the vertex of
/// the first layer, then by that of the second.
template <class idx_t>
class RBMGraph : public Graph<idx_t> {
 public:
  /// `layers` holds the sizes. Throws logic_error if `idx_t` cannot number vertices or edges.
  explicit RBMGraph(const std::vector<unsigned long>& layers) {
    idx_t vertices = 0;
    idx_t edges = 0;
    for (std::size_t i = 0; i < layers.size(); ++i) {
      vertices = fitting_count<idx_t>(static_cast<unsigned __int128>(vertices) + layers[i]);
      if (i == 0) continue;
      const auto joined = static_cast<unsigned __int128>(layers[i - 1]) * layers[i];
      edges = fitting_count<idx_t>(joined + edges);
    }
    this->n = vertices;
    this->allocateEdges(edges);
    std::size_t next = 0;
    std::size_t begin = 0;
    for (std::size_t i = 0; i + 1 < layers.size(); begin += layers[i++]) {
      const std::size_t middle = begin + layers[i];
      const std::size_t end = middle + layers[i + 1];
      for (std::size_t u = begin; u < middle; ++u) {
        for (std::size_t w = middle; w < end; ++w) this->setEdge(next++, u, w);
      }
    }
    this->buildNeighborhoods();
  }
};

}  // namespace QZ
