#pragma once

/// The graphs that the benchmarks of propagation share.

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "support/pairwise_models.h"

/// A model with zero weights by its name, which is that of its graph and of the states of each
/// vertex.
template <class idx_t, class val_t>
qz_test::TestModel<idx_t, val_t> propagation_model(const std::string& name) {
  const auto model = [](std::size_t n, auto edges, std::size_t states) {
    return qz_test::TestModel<idx_t, val_t>(n, edges, std::vector<std::size_t>(n, states));
  };
  const auto tree = [](std::size_t n) {
    std::mt19937 rng(2);
    return qz_test::tree_edges(n, rng);
  };
  if (name == "grid_100x100_2_states") return model(10000, qz_test::grid_edges(100, 100), 2);
  if (name == "grid_100x100_8_states") return model(10000, qz_test::grid_edges(100, 100), 8);
  if (name == "complete_30_4_states") return model(30, qz_test::complete_edges(30), 4);
  if (name == "tree_2000_10_states") return model(2000, tree(2000), 10);
  // Small enough for indices of 16 and 8 bits.
  if (name == "grid_60x60_2_states") return model(3600, qz_test::grid_edges(60, 60), 2);
  if (name == "grid_20x20_8_states") return model(400, qz_test::grid_edges(20, 20), 8);
  if (name == "tree_300_10_states") return model(300, tree(300), 10);
  return model(16, qz_test::grid_edges(4, 4), 2);
}
