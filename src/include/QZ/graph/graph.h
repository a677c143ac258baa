#pragma once

#include <cstdlib>
#include <filesystem>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>

#include "QZ/graph/abstract_graph.h"
#include "QZ/support/conversions.h"
#include "QZ/support/file_fields.h"

namespace QZ {

/// Says that an edge list belongs to a caller, who keeps it alive and frees it.
struct borrowed_edges_t {};
inline constexpr borrowed_edges_t borrowed_edges{};

/// A stored graph: an edge list and, for each vertex, the numbers of its edges in ascending order.
///
/// `edgeList` holds the endpoints of edge e at 2e and 2e + 1. The edge numbers at vertex v begin at
/// `incidence[incidenceStart[v]]`; a self-loop stands there twice. Offsets wrap in `idx_t`, so that
/// twice the number of edges should fit. The arrays come from malloc.
template <class idx_t>
class Graph : public AbstractGraph<idx_t> {
 public:
  /// The graph of a row-major n-by-n matrix: each non-zero cell (i, j) with i < j is an edge, in
  /// row-major order; the lower triangle and the diagonal are ignored. Throws logic_error unless
  /// `m` is the number of these cells.
  Graph(const idx_t* adjacency, const idx_t& n, const idx_t& m) : Graph() {
    this->n = n;
    allocateEdges(m);
    std::size_t found = 0;
    for (std::size_t i = 0; i < n; ++i) {
      for (std::size_t j = i + 1; j < n; ++j) {
        if (adjacency[i * n + j] == 0) continue;
        if (found < m) setEdge(found, i, j);
        ++found;
      }
    }
    if (found != m) {
      throw std::logic_error("the adjacency matrix has " + std::to_string(found) + " edges, not " +
                             std::to_string(m));
    }
    buildNeighborhoods();
  }

  /// Reads a graph file: n, m and 2m endpoints, each `sizeof(idx_t)` bytes wide. Throws logic_error
  /// if it does not open, is shorter than its own counts say, or names a vertex that is not there.
  explicit Graph(const std::string& filename) : Graph() {
    FieldReader file(filename);
    idx_t counts[2] = {0, 0};
    const bool has_counts = file.array(counts, 2) == 2;
    std::error_code unknown_size;
    const std::size_t size = std::filesystem::file_size(filename, unknown_size);
    const std::size_t held = has_counts && !unknown_size ? size / sizeof(idx_t) - 2 : 0;
    // Tested before the list is allocated: the counts of a damaged file may be of any size.
    if (!has_counts || held / 2 < counts[1]) {
      throw std::logic_error("graph file " + filename + " is shorter than its own counts say");
    }
    n = counts[0];
    allocateEdges(counts[1]);
    file.array(edgeList, 2 * static_cast<std::size_t>(m));
    buildNeighborhoods();
  }

  /// A view of a caller's edge list with 2m entries, which must outlive the graph.
  Graph(borrowed_edges_t, idx_t* edges, const idx_t& n, const idx_t& m) : Graph() {
    this->n = n;
    this->m = m;
    edgeList = edges;
    ownsEdges = false;
    buildNeighborhoods();
  }

  Graph(const Graph&) = delete;
  Graph& operator=(const Graph&) = delete;

  ~Graph() override {
    if (ownsEdges) std::free(edgeList);
    std::free(incidence);
    std::free(incidenceStart);
  }

  idx_t vertices() const override { return n; }
  idx_t edges() const override { return m; }

  idx_t num_neighbors(const idx_t& v) const override {
    const bool last = static_cast<std::size_t>(v) + 1 == n;
    const idx_t end = last ? wrapping_cast<idx_t>(2 * static_cast<unsigned long>(m))
                           : incidenceStart[static_cast<std::size_t>(v) + 1];
    return wrapping_sub(end, incidenceStart[v]);
  }

  void edge(const idx_t& e, idx_t& s, idx_t& t) const override {
    const std::size_t place = 2 * static_cast<std::size_t>(e);
    s = edgeList[place];
    t = edgeList[place + 1];
  }

  idx_t in_edge(const idx_t& v, const idx_t& i) const override {
    return incidence[static_cast<std::size_t>(incidenceStart[v]) + i];
  }

  void store(const std::string& filename) const override {
    FieldWriter file(filename, FieldWriter::Mode::truncate);
    file.number(n);
    file.number(m);
    file.array(edgeList, 2 * static_cast<std::size_t>(m));
    file.close();
  }

  std::size_t mem() const override {
    const std::size_t words = 4 * static_cast<std::size_t>(this->edges()) + this->vertices() + 2;
    return sizeof(idx_t) * words + 8;
  }

 protected:
  /// An empty graph, for constructors that set the counts, the edges and then the neighbourhoods.
  Graph() = default;

  /// Sets `m` and allocates the edge list, zeroed.
  void allocateEdges(idx_t edges) {
    if (edges > std::numeric_limits<std::size_t>::max() / 2) throw std::bad_alloc();
    m = edges;
    ownsEdges = true;
    edgeList = allocate(2 * static_cast<std::size_t>(edges));
  }

  void setEdge(std::size_t e, std::size_t s, std::size_t t) {
    edgeList[2 * e] = static_cast<idx_t>(s);
    edgeList[2 * e + 1] = static_cast<idx_t>(t);
  }

  /// Fills the incidence table by counting sort over the edges, which are read through the virtual
  /// `vertices`, `edges` and `edge`. Throws logic_error if an edge names a vertex that is not
  /// there.
  void buildNeighborhoods() {
    const idx_t vertex_count = this->vertices();
    const idx_t edge_count = this->edges();
    incidence = allocate(2 * static_cast<std::size_t>(edge_count));
    incidenceStart = allocate(vertex_count);
    for (idx_t e = 0; e < edge_count; ++e) {
      const auto [s, t] = endpoints(*this, e);
      if (s >= vertex_count || t >= vertex_count) {
        throw std::logic_error("edge " + std::to_string(e) + " names a vertex that is not there");
      }
      ++incidenceStart[s];
      ++incidenceStart[t];
    }
    idx_t sum = 0;
    for (idx_t v = 0; v < vertex_count; ++v) {
      const idx_t degree = incidenceStart[v];
      incidenceStart[v] = sum;
      sum = wrapping_add(sum, degree);
    }
    idx_t* used = allocate(vertex_count);
    for (idx_t e = 0; e < edge_count; ++e) {
      const auto [s, t] = endpoints(*this, e);
      incidence[static_cast<std::size_t>(incidenceStart[s]) + used[s]++] = e;
      incidence[static_cast<std::size_t>(incidenceStart[t]) + used[t]++] = e;
    }
    std::free(used);
  }

 public:
  idx_t n = 0;
  idx_t m = 0;
  idx_t* edgeList = nullptr;
  idx_t* incidence = nullptr;
  idx_t* incidenceStart = nullptr;
  bool ownsEdges = true;

 private:
  /// A zeroed array from malloc's family. Throws bad_alloc; never null.
  static idx_t* allocate(std::size_t count) {
    void* memory = std::calloc(count == 0 ? 1 : count, sizeof(idx_t));
    if (memory == nullptr) throw std::bad_alloc();
    return static_cast<idx_t*>(memory);
  }
};

}  // namespace QZ
