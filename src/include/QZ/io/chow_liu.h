#pragma once

/// Trees of largest mutual information.

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <vector>

#include "QZ/graph/graph_type.h"
#include "QZ/graph/spanning_tree.h"
#include "QZ/io/edge_numbers.h"
#include "QZ/io/entropy.h"
#include "QZ/io/model_container.h"
#include "QZ/support/progress.h"

namespace QZ {

/// The mutual information of the endpoints of every edge, from the statistics of `sumStats`.
template <class idx_t, class val_t>
std::vector<double> mutual_information(const IO<idx_t, val_t>& model, const Progress& progress) {
  const std::size_t n = model.graph->vertices();
  const std::size_t m = model.graph->edges();
  const double samples = static_cast<double>(model.samples);
  const auto entropy = [&](std::size_t block, std::size_t size) {
    return block_entropy(model.stats + model.offsets[block], size, samples);
  };
  std::vector<double> single(n);
  for (std::size_t v = 0; v < n; ++v) single[v] = entropy(v, model.states[v]);
  std::vector<double> information(m);
  for (std::size_t e = 0; e < m; ++e) {
    progress(e + 1, m);
    const auto [s, t] = endpoints(*model.graph, static_cast<idx_t>(e));
    const std::size_t size = static_cast<std::size_t>(model.states[s]) * model.states[t];
    information[e] = single[s] + single[t] - entropy(n + e, size);
  }
  return information;
}

template <class idx_t, class val_t>
void IO<idx_t, val_t>::buildChowLiu(ProgressCallback progress) {
  require_matching_arrays();
  const std::vector<double> weights = mutual_information(*this, {progress, "CL   "});
  idx_t* matrix = nullptr;
  MWST<idx_t, double, true>(matrix, graph, weights.data());
  const std::unique_ptr<idx_t, decltype(&std::free)> tree(matrix, &std::free);
  reconfigure(tree.get(), EdgeNumbers<idx_t>(*graph), nullptr);
  graphType = static_cast<idx_t>(GraphType::CHOWLIU);
}

}  // namespace QZ
