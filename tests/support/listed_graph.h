#pragma once

/// A graph given by its edges, in any order and orientation.

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "QZ/graph/abstract_graph.h"

namespace qz_test {

/// A graph given by its edges, independent of the library's own graph classes.
template <class idx_t>
class ListedGraph : public QZ::AbstractGraph<idx_t> {
 public:
  using Edges = std::vector<std::pair<std::size_t, std::size_t>>;

  ListedGraph(std::size_t vertices, Edges edges) : edges_(std::move(edges)), at_(vertices) {
    for (std::size_t e = 0; e < edges_.size(); ++e) {
      at_[edges_[e].first].push_back(e);
      at_[edges_[e].second].push_back(e);
    }
  }
  idx_t vertices() const override { return static_cast<idx_t>(at_.size()); }
  idx_t edges() const override { return static_cast<idx_t>(edges_.size()); }
  idx_t num_neighbors(const idx_t& v) const override { return static_cast<idx_t>(at_[v].size()); }
  void edge(const idx_t& e, idx_t& s, idx_t& t) const override {
    s = static_cast<idx_t>(edges_[e].first);
    t = static_cast<idx_t>(edges_[e].second);
  }
  idx_t in_edge(const idx_t& v, const idx_t& i) const override {
    return static_cast<idx_t>(at_[v][i]);
  }
  void store(const std::string&) const override {}
  std::size_t mem() const override { return 0; }

 private:
  Edges edges_;
  std::vector<std::vector<std::size_t>> at_;
};

}  // namespace qz_test
