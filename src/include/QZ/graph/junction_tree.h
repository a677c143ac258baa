#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <set>
#include <utility>
#include <vector>

#include "QZ/comb/subsets.h"
#include "QZ/graph/clique_tree.h"
#include "QZ/graph/elimination.h"
#include "QZ/graph/fitting_count.h"
#include "QZ/graph/set_graph.h"
#include "QZ/graph/spanning_tree.h"

namespace QZ {

/// A tree of the maximal cliques of a graph, triangulated along a maximum cardinality search, such
/// that the cliques that hold any one vertex are connected.
///
/// The first `cliqueCount` vertices are the cliques, in the order in which elimination meets them;
/// the others are separators, in ascending order of the pair i < j of cliques that they join.
/// Separator number k, vertex p = cliqueCount + k, owns the edges 2k = (i, p) and 2k + 1 = (p, j).
/// `vertexObjects` gives the vertices of the base graph in a clique, or those that two linked
/// cliques share; parts of the graph that are not connected are linked by empty separators.
///
/// The links are a spanning tree of the largest weight over all pairs of cliques, weighted by the
/// number of shared vertices. Where several exist, the order in which `std::sort` leaves all pairs
/// decides, for c cliques at a cost of c * c / 2 entries of memory for the time of the
/// construction.
template <class idx_t>
class JunctionTree : public SetGraph<idx_t> {
 public:
  /// Borrows `graph`. Throws logic_error if `idx_t` cannot number the ends of the edges of the
  /// tree.
  explicit JunctionTree(const AbstractGraph<idx_t>& graph) : baseGraph(&graph) {
    const CliqueForest<idx_t> forest = collect_cliques(eliminate(graph));
    cliqueCount = fitting_count<idx_t>(forest.cliques.size());
    for (const std::vector<idx_t>& clique : forest.cliques) {
      this->objects.emplace_back(clique.begin(), clique.end());
    }
    link(is_only_maximum_tree(forest) ? given_links(forest) : sorted_links(forest));
  }

  bool isSeparator(const idx_t& v) const { return v >= cliqueCount; }

  /// The number of base vertices that the cliques hold, each counted once.
  idx_t baseVertices() const {
    std::set<idx_t> members;
    for (std::size_t v = 0; v < cliqueCount; ++v) {
      members.insert(this->objects[v].begin(), this->objects[v].end());
    }
    return static_cast<idx_t>(members.size());
  }

  idx_t cliqueCount = 0;
  const AbstractGraph<idx_t>* baseGraph;

 private:
  /// Pairs of cliques, the smaller first.
  using Links = std::vector<std::pair<std::size_t, std::size_t>>;

  /// The links of the forest. Two cliques that share nothing make the one pair that there is.
  static Links given_links(const CliqueForest<idx_t>& forest) {
    if (forest.cliques.size() == 2) return {{0, 1}};
    Links links;
    for (const CliqueLink<idx_t>& link : forest.links) links.push_back(std::minmax(link.a, link.b));
    return links;
  }

  static Links sorted_links(const CliqueForest<idx_t>& forest) {
    const bool short_numbers =
        subset_count(forest.cliques.size(), 2) <= std::numeric_limits<unsigned>::max();
    return short_numbers ? sorted_links<unsigned>(forest) : sorted_links<unsigned long>(forest);
  }

  /// Takes the links from all pairs of cliques, numbered as in the complete graph and sorted by the
  /// number of vertices that they share.
  template <class number_t>
  static Links sorted_links(const CliqueForest<idx_t>& forest) {
    const std::size_t count = forest.cliques.size();
    std::vector<std::pair<number_t, number_t>> pairs(subset_count(count, 2));
    for (std::size_t rank = 0; rank < pairs.size(); ++rank) {
      pairs[rank].first = static_cast<number_t>(rank);
    }
    for (const std::vector<std::size_t>& cliques : cliques_by_member(forest)) {
      for (std::size_t i = 0; i < cliques.size(); ++i) {
        for (std::size_t j = 0; j < i; ++j) {
          ++pairs[rank_pair(count, cliques[j], cliques[i])].second;
        }
      }
    }
    std::sort(pairs.begin(), pairs.end(), ValOrder<number_t, number_t, true>());

    Links links;
    SpanningForest spanning(count);
    for (auto next = pairs.begin(); !spanning.spans(); ++next) {
      const auto [i, j] = unrank_pair(count, next->first);
      if (spanning.accept(i, j)) links.emplace_back(i, j);
    }
    return links;
  }

  /// For each base vertex the numbers of the cliques that hold it, ascending.
  static std::vector<std::vector<std::size_t>> cliques_by_member(
      const CliqueForest<idx_t>& forest) {
    std::vector<std::vector<std::size_t>> lists;
    for (std::size_t number = 0; number < forest.cliques.size(); ++number) {
      for (idx_t member : forest.cliques[number]) {
        if (member >= lists.size()) lists.resize(member + std::size_t(1));
        lists[member].push_back(number);
      }
    }
    return lists;
  }

  /// Makes a separator and its two edges for each link.
  void link(Links links) {
    std::ranges::sort(links);
    // Four ends for each link, which the incidence table counts in `idx_t`.
    fitting_count<idx_t>(4 * static_cast<unsigned __int128>(links.size()));
    this->n = fitting_count<idx_t>(this->objects.size() + links.size());
    this->allocateEdges(static_cast<idx_t>(2 * links.size()));
    std::size_t next = 0;
    for (const auto& [i, j] : links) {
      const std::size_t separator = this->objects.size();
      this->setEdge(next++, i, separator);
      this->setEdge(next++, separator, j);
      std::set<idx_t> shared;
      std::ranges::set_intersection(this->objects[i], this->objects[j],
                                    std::inserter(shared, shared.end()));
      this->objects.push_back(std::move(shared));
    }
    this->buildNeighborhoods();
  }
};

}  // namespace QZ
