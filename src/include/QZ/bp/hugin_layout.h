#pragma once

/// Construction of `HuginAlgorithm`: which table lies where, and which node serves what.

#include <limits>

#include "QZ/bp/hugin.h"

namespace QZ {

template <class idx_t, class val_t>
HuginAlgorithm<idx_t, val_t>::HuginAlgorithm(AbstractGraph<idx_t>* graph, idx_t* states,
                                             val_t* weights, std::mt19937* rng)
    : Base(graph, states, weights, rng) {
  auto own_tree = std::make_unique<JunctionTree<idx_t>>(*graph);
  const std::size_t nodes = own_tree->vertices();
  auto own_sizes = std::make_unique<idx_t[]>(nodes);
  auto own_offsets = std::make_unique<idx_t[]>(nodes + 1);
  tree = own_tree.get();
  node_size = own_sizes.get();
  node_offsets = own_offsets.get();
  lay_out_tables();
  find_places();
  trace_margins();
  tables_ = make_large_array<val_t>(potential_count);
  potentials = tables_.get();
  own_tree.release();
  own_sizes.release();
  own_offsets.release();
}

template <class idx_t, class val_t>
HuginAlgorithm<idx_t, val_t>::~HuginAlgorithm() {
  delete[] node_size;
  delete[] node_offsets;
  delete tree;
}

/// Sizes and offsets, and room for the largest block and all messages.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::lay_out_tables() {
  const std::size_t nodes = tree->vertices();
  std::size_t total = 0;
  std::size_t largest_block = 0;
  std::size_t largest_separator = 0;
  node_offsets[0] = 0;
  for (idx_t node = 0; node < nodes; ++node) {
    std::size_t size = 1;
    TableBlocks blocks;
    bool empty = false;
    for (const idx_t v : tree->vertexObjects(node)) {
      empty = empty || states[v] == 0;
      if (states[v] != 1) blocks.add_vertex(states[v]);
      // Held where it can only be too large, so that the product does not wrap.
      if (__builtin_mul_overflow(size, std::size_t{states[v]}, &size)) {
        size = std::numeric_limits<std::size_t>::max();
      }
    }
    if (empty) size = 0;
    if (__builtin_add_overflow(total, size, &total))
      total = std::numeric_limits<std::size_t>::max();
    require_addressable<idx_t>(total);
    // Larger than any memory, though a wide index type could number it.
    if (total > std::numeric_limits<std::ptrdiff_t>::max() / sizeof(val_t)) throw std::bad_alloc();
    node_size[node] = wrapping_cast<idx_t>(size);
    node_offsets[std::size_t{node} + 1] = wrapping_cast<idx_t>(total);
    if (tree->isSeparator(node)) {
      largest_separator = std::max(largest_separator, size);
    } else {
      largest_block = std::max(largest_block, std::min(blocks.entries, size));
      blocks_.push_back(blocks);
      clique_potential_count = wrapping_cast<idx_t>(total);
    }
  }
  potential_count = wrapping_cast<idx_t>(total);
  block_ = std::make_unique_for_overwrite<val_t[]>(largest_block);
  message_ = std::make_unique_for_overwrite<val_t[]>(largest_separator);
  pending_ = std::make_unique_for_overwrite<val_t[]>(total - clique_potential_count);
  steps_.reserve(nodes);
  links_.reserve(nodes);
  open_.reserve(nodes);
}

/// What one step of the digit of v means in the table of a node; 0 if the node does not hold v.
template <class idx_t, class val_t>
std::size_t HuginAlgorithm<idx_t, val_t>::stride_in(idx_t node, idx_t v) const {
  std::size_t stride = 1;
  for (const idx_t u : tree->vertexObjects(node)) {
    if (u == v) return stride;
    stride *= states[u];
  }
  return 0;
}

template <class idx_t, class val_t>
auto HuginAlgorithm<idx_t, val_t>::place_in(idx_t node, idx_t s, idx_t t) const -> Place {
  return {node, stride_in(node, s), stride_in(node, t)};
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::find_places() {
  const idx_t nodes = tree->vertices();
  std::vector<std::vector<idx_t>> nodes_of_vertex(graph->vertices());
  for (idx_t node = 0; node < nodes; ++node) {
    for (const idx_t v : tree->vertexObjects(node)) nodes_of_vertex[v].push_back(node);
  }
  const auto set_size = [this](idx_t node) { return tree->vertexObjects(node).size(); };
  for (idx_t v = 0; v < graph->vertices(); ++v) {
    const auto& holders = nodes_of_vertex[v];
    const idx_t smallest = *std::ranges::min_element(holders, {}, set_size);
    place_of_vertex_.push_back(place_in(smallest, v, v));
  }
  for (idx_t e = 0; e < graph->edges(); ++e) {
    const auto [s, t] = endpoints(*graph, e);
    const bool fewer_hold_s = nodes_of_vertex[s].size() <= nodes_of_vertex[t].size();
    const idx_t other = fewer_hold_s ? t : s;
    idx_t first = tree->cliqueCount;
    idx_t smallest = first;
    bool found = false;
    for (const idx_t node : nodes_of_vertex[fewer_hold_s ? s : t]) {
      if (!tree->vertexObjects(node).contains(other)) continue;
      if (!found) first = smallest = node;
      if (set_size(node) < set_size(smallest)) smallest = node;
      found = true;
    }
    node_of_edge.push_back(first);
    place_of_edge_.push_back(found ? place_in(smallest, s, t) : Place{});
  }
  group_edges();
}

/// Groups the edges by the node that takes their weights, and makes room for the largest group.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::group_edges() {
  const std::size_t nodes = tree->vertices();
  first_edge_.assign(nodes + 2, 0);
  for (const idx_t node : node_of_edge) ++first_edge_[std::size_t{node} + 1];
  for (std::size_t node = 0; node <= nodes; ++node) first_edge_[node + 1] += first_edge_[node];
  edges_by_node_.resize(node_of_edge.size());
  std::vector<std::size_t> next = first_edge_;
  for (idx_t e = 0; e < graph->edges(); ++e) edges_by_node_[next[node_of_edge[e]]++] = e;

  std::size_t most_edges = 0;
  std::size_t most_weights = 0;
  std::size_t most_terms = 0;
  for (idx_t node = 0; node < nodes; ++node) {
    const std::size_t last = first_edge_[std::size_t{node} + 1];
    std::size_t weight_count = 0;
    for (std::size_t i = first_edge_[node]; i < last; ++i) {
      const auto [s, t] = endpoints(*graph, edges_by_node_[i]);
      weight_count += std::size_t{states[s]} * states[t];
    }
    const std::size_t edges = last - first_edge_[node];
    most_edges = std::max(most_edges, edges);
    most_weights = std::max(most_weights, weight_count);
    most_terms = std::max(most_terms, edges + tree->num_neighbors(node));
  }
  clique_weights_ = std::make_unique_for_overwrite<val_t[]>(most_weights);
  // Two vertices make at most three pairs of runs, and the end of a block opens one more.
  weight_margins_.reserve(most_edges, 4 * most_edges);
  terms_.reserve(most_terms);
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::trace_margins() {
  separator_margins_.reserve(tree->edges(), 2 * std::size_t{tree->edges()});
  for (idx_t e = 0; e < tree->edges(); ++e) {
    const auto [a, b] = endpoints(*tree, e);
    const auto& clique = tree->vertexObjects(tree->isSeparator(a) ? b : a);
    const auto& separator = tree->vertexObjects(tree->isSeparator(a) ? a : b);
    auto shared = separator.begin();
    separator_margins_.begin();
    for (const idx_t v : clique) {
      const bool in_separator = shared != separator.end() && *shared == v;
      separator_margins_.add_vertex(states[v], in_separator);
      if (in_separator) ++shared;
    }
  }
}

}  // namespace QZ
