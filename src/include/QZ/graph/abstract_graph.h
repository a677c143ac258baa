#pragma once

/// What every model, engine and statistic sees of a graph.

#include <cstddef>
#include <string>

#include "QZ/support/conversions.h"
#include "QZ/support/type_pairs.h"

namespace QZ {

/// Numbered vertices and numbered undirected edges with a fixed order of endpoints.
///
/// The number of an edge fixes the layout of parameters and statistics, and each vertex lists its
/// edges in a fixed order. Counts and numbers are trusted: no call checks its arguments. Objects do
/// not change after construction, so any number of threads may read one.
template <class idx_t>
class AbstractGraph {
 public:
  virtual ~AbstractGraph() = default;

  virtual idx_t vertices() const = 0;
  virtual idx_t edges() const = 0;

  /// The degree of `v`.
  virtual idx_t num_neighbors(const idx_t& v) const = 0;

  /// Sets `s` and `t` to the endpoints of edge `e`, in stored order.
  virtual void edge(const idx_t& e, idx_t& s, idx_t& t) const = 0;

  /// The number of the i-th edge at `v`.
  virtual idx_t in_edge(const idx_t& v, const idx_t& i) const = 0;

  /// Writes the binary graph file. Throws logic_error "cannot write NAME" if that fails.
  virtual void store(const std::string& filename) const = 0;

  /// An estimate of the bytes that the graph occupies.
  virtual std::size_t mem() const = 0;

  /// The `IdxType` of this instantiation.
  unsigned char indexWidth = static_cast<unsigned char>(idx_code<idx_t>());
};

/// The endpoints of one edge, by value.
template <class idx_t>
struct Endpoints {
  idx_t s;
  idx_t t;
};

template <class idx_t>
Endpoints<idx_t> endpoints(const AbstractGraph<idx_t>& graph, idx_t e) {
  Endpoints<idx_t> ends{};
  graph.edge(e, ends.s, ends.t);
  return ends;
}

/// The parameter dimension of a pairwise model: the sum of states[s] * states[t] over all edges,
/// wrapping in `idx_t`.
template <class idx_t>
idx_t calcDim(const AbstractGraph<idx_t>& graph, const idx_t* states) {
  idx_t dim = 0;
  for (idx_t e = 0; e < graph.edges(); ++e) {
    const auto [s, t] = endpoints(graph, e);
    dim = wrapping_add(dim, wrapping_mul(states[s], states[t]));
  }
  return dim;
}

}  // namespace QZ
