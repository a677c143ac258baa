#pragma once

/// A graph given by its edges, in any order and orientation.

#include <utility>
#include <vector>

#include "QZ/graph/abstract_graph.h"

namespace qz_test {

template <class idx_t>
class PairGraph : public QZ::AbstractGraph<idx_t> {
 public:
  PairGraph(unsigned long n, std::vector<std::pair<unsigned long, unsigned long>> pairs)
      : n_(n), pairs_(std::move(pairs)), at_(n) {
    for (unsigned long e = 0; e < pairs_.size(); ++e) {
      at_[pairs_[e].first].push_back(e);
      at_[pairs_[e].second].push_back(e);
    }
  }
  idx_t vertices() const override { return static_cast<idx_t>(n_); }
  idx_t edges() const override { return static_cast<idx_t>(pairs_.size()); }
  idx_t num_neighbors(const idx_t& v) const override { return static_cast<idx_t>(at_[v].size()); }
  void edge(const idx_t& e, idx_t& s, idx_t& t) const override {
    s = static_cast<idx_t>(pairs_[e].first);
    t = static_cast<idx_t>(pairs_[e].second);
  }
  idx_t in_edge(const idx_t& v, const idx_t& i) const override {
    return static_cast<idx_t>(at_[v][i]);
  }
  void store(const std::string&) const override {}
  std::size_t mem() const override { return 0; }

 private:
  unsigned long n_;
  std::vector<std::pair<unsigned long, unsigned long>> pairs_;
  std::vector<std::vector<unsigned long>> at_;
};

}  // namespace qz_test
