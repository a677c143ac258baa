#pragma once

/// Small random pairwise models.

#include <cstddef>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/listed_graph.h"

namespace qz_test {

inline std::vector<std::pair<std::size_t, std::size_t>> chain_edges(std::size_t n) {
  std::vector<std::pair<std::size_t, std::size_t>> edges;
  for (std::size_t v = 1; v < n; ++v) edges.emplace_back(v - 1, v);
  return edges;
}

/// A random tree whose edges point either way.
inline std::vector<std::pair<std::size_t, std::size_t>> tree_edges(std::size_t n,
                                                                   std::mt19937& rng) {
  std::vector<std::pair<std::size_t, std::size_t>> edges;
  for (std::size_t v = 1; v < n; ++v) {
    const std::size_t parent = rng() % v;
    if (rng() % 2 == 0) {
      edges.emplace_back(parent, v);
    } else {
      edges.emplace_back(v, parent);
    }
  }
  return edges;
}

inline std::vector<std::pair<std::size_t, std::size_t>> grid_edges(std::size_t rows,
                                                                   std::size_t columns) {
  std::vector<std::pair<std::size_t, std::size_t>> edges;
  for (std::size_t r = 0; r < rows; ++r) {
    for (std::size_t c = 0; c < columns; ++c) {
      const std::size_t v = r * columns + c;
      if (c + 1 < columns) edges.emplace_back(v, v + 1);
      if (r + 1 < rows) edges.emplace_back(v, v + columns);
    }
  }
  return edges;
}

inline std::vector<std::pair<std::size_t, std::size_t>> complete_edges(std::size_t n) {
  std::vector<std::pair<std::size_t, std::size_t>> edges;
  for (std::size_t s = 0; s < n; ++s) {
    for (std::size_t t = s + 1; t < n; ++t) edges.emplace_back(s, t);
  }
  return edges;
}

/// A graph, state counts and weights that live together.
template <class idx_t, class val_t>
struct TestModel {
  std::unique_ptr<ListedGraph<idx_t>> graph;
  std::vector<idx_t> states;
  std::vector<val_t> weights;
  std::vector<std::size_t> offsets;

  TestModel(std::size_t vertices, typename ListedGraph<idx_t>::Edges edges,
            std::vector<std::size_t> counts)
      : graph(std::make_unique<ListedGraph<idx_t>>(vertices, edges)) {
    for (const std::size_t count : counts) states.push_back(static_cast<idx_t>(count));
    std::size_t dim = 0;
    offsets.push_back(0);
    for (const auto& [s, t] : edges) offsets.push_back(dim += counts[s] * counts[t]);
    weights.resize(dim);
  }

  TestModel& gaussian(double scale, std::mt19937& rng) {
    std::normal_distribution<double> normal(0, scale);
    for (val_t& w : weights) w = static_cast<val_t>(normal(rng));
    return *this;
  }

  std::size_t vertices() const { return graph->vertices(); }
  std::size_t edges() const { return graph->edges(); }
  QZ::Endpoints<idx_t> ends(std::size_t e) const {
    return QZ::endpoints<idx_t>(*graph, static_cast<idx_t>(e));
  }
  std::size_t at(std::size_t e, std::size_t xs, std::size_t xt) const {
    return offsets[e] + xs * states[ends(e).t] + xt;
  }
};

/// State counts from 1 or 2 up to `most`.
inline std::vector<std::size_t> random_counts(std::size_t n, std::size_t least, std::size_t most,
                                              std::mt19937& rng) {
  std::vector<std::size_t> counts(n);
  for (std::size_t& count : counts) count = least + rng() % (most - least + 1);
  return counts;
}

}  // namespace qz_test
