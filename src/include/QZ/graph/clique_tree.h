#pragma once

/// The maximal cliques of an eliminated graph and the links of one tree that joins them.

#include <algorithm>
#include <cstddef>
#include <vector>

#include "QZ/graph/elimination.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// Two cliques and the vertices that they share, ascending.
template <class idx_t>
struct CliqueLink {
  std::size_t a;
  std::size_t b;
  std::vector<idx_t> shared;
};

/// A forest over the maximal cliques in which the cliques that hold any one vertex are connected:
/// one tree for each connected part of the graph.
template <class idx_t>
struct CliqueForest {
  /// Members ascending, cliques in the order in which elimination meets them.
  std::vector<std::vector<idx_t>> cliques;
  std::vector<CliqueLink<idx_t>> links;
};

/// A vertex and its remaining neighbours lie in a clique met before exactly if an earlier place,
/// whose first remaining neighbour the vertex is, had just one neighbour more: no clique need be
/// searched.
///
/// Source: Blair and Peyton 1993, An introduction to chordal graphs and clique trees.
template <class idx_t>
CliqueForest<idx_t> collect_cliques(const Elimination<idx_t>& eliminated) {
  constexpr std::size_t none = ~std::size_t(0);
  const std::vector<idx_t>& order = eliminated.order;
  const auto& later = eliminated.later;
  CliqueForest<idx_t> forest;
  std::vector<std::size_t> clique_of(order.size(), none);
  const auto vertices_at = [&](const std::vector<idx_t>& places) {
    std::vector<idx_t> vertices;
    for (idx_t place : places) vertices.push_back(order[place]);
    return vertices;
  };
  for (std::size_t k = 0; k < order.size(); ++k) {
    if (clique_of[k] == none) {
      clique_of[k] = forest.cliques.size();
      std::vector<idx_t> members = vertices_at(later[k]);
      members.push_back(order[k]);
      std::ranges::sort(members);
      forest.cliques.push_back(std::move(members));
    }
    if (later[k].empty()) continue;
    const idx_t next = later[k].front();
    if (later[next].size() + 1 == later[k].size()) clique_of[next] = clique_of[k];
  }
  for (std::size_t k = 0; k < order.size(); ++k) {
    if (later[k].empty() || clique_of[later[k].front()] == clique_of[k]) continue;
    std::vector<idx_t> shared = vertices_at(later[k]);
    std::ranges::sort(shared);
    forest.links.push_back({clique_of[k], clique_of[later[k].front()], std::move(shared)});
  }
  return forest;
}

/// Claims that no other tree over the cliques shares as many vertices along its links, where
/// cliques that share none may be linked too.
///
/// A link can be exchanged for another of equal weight exactly if its shared vertices also lie in
/// the link beside it, at a common clique. A missing link shares no vertex, which any link beside
/// it does.
template <class idx_t>
bool is_only_maximum_tree(const CliqueForest<idx_t>& forest) {
  const std::size_t count = forest.cliques.size();
  if (count <= 2) return true;
  if (forest.links.size() + 1 < count) return false;
  std::vector<std::vector<const std::vector<idx_t>*>> beside(count);
  for (const CliqueLink<idx_t>& link : forest.links) {
    for (std::size_t clique : {link.a, link.b}) {
      for (const std::vector<idx_t>* other : beside[clique]) {
        const bool smaller = other->size() < link.shared.size();
        if (std::ranges::includes(smaller ? link.shared : *other, smaller ? *other : link.shared)) {
          return false;
        }
      }
      beside[clique].push_back(&link.shared);
    }
  }
  return true;
}

}  // namespace QZ
