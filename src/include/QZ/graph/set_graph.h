#pragma once

#include <set>
#include <vector>

#include "QZ/graph/graph.h"

namespace QZ {

/// A graph whose vertices stand for sets of vertices of another graph.
template <class idx_t>
class SetGraph : public Graph<idx_t> {
 public:
  /// The set behind vertex `v`, in ascending order. Throws out_of_range if there is no such vertex.
  const std::set<idx_t>& vertexObjects(const idx_t& v) const { return objects.at(v); }

  /// The set of each vertex.
  std::vector<std::set<idx_t>> objects;

 protected:
  SetGraph() = default;
};

}  // namespace QZ
