#pragma once

#include <cstddef>
#include <set>

#include "QZ/graph/fitting_count.h"
#include "QZ/graph/junction_tree.h"
#include "QZ/graph/set_graph.h"

namespace QZ {

/// A junction tree as a layered tree of ordinary vertices.
///
/// With B base vertices, X extra vertices, c cliques and S separators, the vertices are, in order:
/// the base vertices with their own numbers, the extra vertices, the cliques, the separators. A
/// base vertex hangs below the first clique that holds it; each clique is joined to its separators,
/// and each separator to all extra vertices. `vertexObjects` gives {v} for a base or extra vertex
/// that has an edge, and the base vertices of a clique or separator.
template <class idx_t>
class DeepBoltzmannTree : public SetGraph<idx_t> {
 public:
  /// Throws logic_error if `idx_t` cannot number the vertices or edges.
  DeepBoltzmannTree(const JunctionTree<idx_t>& tree, const idx_t& extra)
      : separatorCount(wrapping_sub(tree.vertices(), tree.cliqueCount)),
        extraCount(extra),
        sourceGraph(tree.baseGraph) {
    const unsigned __int128 base = tree.baseVertices();
    const unsigned __int128 separators = separatorCount;
    leafCount = fitting_count<idx_t>(base + extra);
    this->n = fitting_count<idx_t>(base + extra + tree.vertices());
    this->allocateEdges(fitting_count<idx_t>(base + 2 * separators + extra * separators));
    this->objects.resize(this->n);
    for (idx_t v = 0; v < tree.vertices(); ++v) {
      if (v < tree.cliqueCount) {
        place_clique(tree, v);
      } else {
        place_separator(tree, v);
      }
    }
    this->buildNeighborhoods();
  }

  /// Base and extra vertices together.
  idx_t leafCount = 0;
  idx_t separatorCount;
  idx_t extraCount;
  /// The vertices that stand for separators.
  std::set<idx_t> sinkSet;
  /// The graph that the junction tree was built from.
  const AbstractGraph<idx_t>* sourceGraph;

 private:
  void place_clique(const JunctionTree<idx_t>& tree, idx_t v) {
    const std::size_t place = static_cast<std::size_t>(leafCount) + v;
    for (idx_t member : tree.vertexObjects(v)) {
      this->objects[place].insert(member);
      std::set<idx_t>& own = this->objects.at(member);
      if (!own.empty()) continue;
      own.insert(member);
      this->setEdge(placed_++, member, place);
    }
    for (idx_t i = 0; i < tree.num_neighbors(v); ++i) {
      const auto [s, t] = endpoints(tree, tree.in_edge(v, i));
      this->setEdge(placed_++, place, static_cast<std::size_t>(leafCount) + (s == v ? t : s));
    }
  }

  void place_separator(const JunctionTree<idx_t>& tree, idx_t v) {
    const idx_t place = wrapping_add(leafCount, v);
    sinkSet.insert(place);
    this->objects[place] = tree.vertexObjects(v);
    for (idx_t u = wrapping_sub(leafCount, extraCount); u < leafCount; ++u) {
      this->objects[u].insert(u);
      this->setEdge(placed_++, u, place);
    }
  }

  std::size_t placed_ = 0;
};

}  // namespace QZ
