#pragma once

/// Maximum cardinality search, spanning tree and junction tree by their plain steps: sorts of whole
/// lists by the standard library, searches through all cliques, and the complete graph of cliques.
/// Slow, and the measure of what the library's constructions must give, to the last tie.

#include <algorithm>
#include <cstddef>
#include <set>
#include <utility>
#include <vector>

#include "QZ/graph/abstract_graph.h"
#include "support/graph_contents.h"

namespace qz_test {

/// The far end of the i-th edge at `v`.
template <class idx_t>
idx_t far_end(const QZ::AbstractGraph<idx_t>& graph, idx_t v, idx_t i) {
  const auto [s, t] = QZ::endpoints(graph, graph.in_edge(v, i));
  return s == v ? t : s;
}

/// The order of elimination of a maximum cardinality search.
template <class idx_t>
std::vector<idx_t> plain_search(const QZ::AbstractGraph<idx_t>& graph) {
  using Entry = std::pair<idx_t, idx_t>;
  const idx_t n = graph.vertices();
  std::vector<Entry> list;
  for (idx_t v = 0; v < n; ++v) list.emplace_back(v, 0);
  std::vector<idx_t> number(n, 0);
  std::vector<idx_t> order(n, 0);
  for (idx_t label = n; label > 0; --label) {
    const idx_t v = list[0].first;
    if (number[v] != 0) break;
    number[v] = label;
    list[0].second = 0;
    std::stable_sort(list.begin(), list.end(),
                     [](const Entry& a, const Entry& b) { return a.first < b.first; });
    for (idx_t i = 0; i < graph.num_neighbors(v); ++i) {
      const idx_t w = far_end(graph, v, i);
      if (number[w] == 0) ++list[w].second;
    }
    // This comparison holds for equal elements too, which decides what a tie leaves in front.
    std::stable_sort(list.begin(), list.end(), [&](const Entry& a, const Entry& b) {
      return number[a.first] <= number[b.first] && a.second >= b.second;
    });
  }
  for (idx_t v = 0; v < n; ++v) order[number[v] - 1] = v;
  return order;
}

/// The accepted edges of a maximum spanning tree, as ordered pairs. The sorted entries are pairs of
/// `number_t` and `weight_t`.
template <class number_t, class weight_t>
std::set<std::pair<unsigned long, unsigned long>> plain_spanning_tree(
    std::size_t n, const EdgeList& edges, const std::vector<weight_t>& weights) {
  using Entry = std::pair<number_t, weight_t>;
  std::vector<Entry> list;
  for (std::size_t e = 0; e < edges.size(); ++e) list.emplace_back(e, weights[e]);
  std::sort(list.begin(), list.end(),
            [](const Entry& a, const Entry& b) { return a.second > b.second; });
  std::vector<std::set<unsigned long>> components;
  std::vector<int> component(n, -1);
  std::set<std::pair<unsigned long, unsigned long>> tree;
  std::size_t accepted = 0;
  for (std::size_t place = 0; place < list.size() && accepted + 1 < n; ++place) {
    const auto [s, t] = edges[list[place].first];
    if (component[s] < 0 && component[t] < 0) {
      component[s] = component[t] = static_cast<int>(components.size());
      components.push_back({s, t});
    } else if (component[s] < 0) {
      component[s] = component[t];
      components[component[t]].insert(s);
    } else if (component[t] < 0) {
      component[t] = component[s];
      components[component[s]].insert(t);
    } else if (component[s] != component[t]) {
      const std::set<unsigned long> moved = components[component[t]];
      for (unsigned long member : moved) {
        components[component[s]].insert(member);
        component[member] = component[s];
      }
    } else {
      continue;
    }
    tree.insert({std::min(s, t), std::max(s, t)});
    ++accepted;
  }
  return tree;
}

template <class idx_t>
struct PlainJunctionTree {
  std::vector<std::set<idx_t>> objects;
  std::size_t cliques = 0;
  EdgeList edges;

  explicit PlainJunctionTree(const QZ::AbstractGraph<idx_t>& graph) {
    collect_cliques(graph);
    cliques = objects.size();
    EdgeList pairs;
    for (std::size_t i = cliques; i-- > 0;) {
      for (std::size_t j = cliques; j-- > i + 1;) pairs.emplace_back(i, j);
    }
    std::vector<unsigned> weights;
    for (const auto& [i, j] : pairs) weights.push_back(shared(i, j).size());
    for (const auto& [i, j] : plain_spanning_tree<unsigned>(cliques, pairs, weights)) {
      edges.emplace_back(i, objects.size());
      edges.emplace_back(objects.size(), j);
      objects.push_back(shared(i, j));
    }
  }

 private:
  void collect_cliques(const QZ::AbstractGraph<idx_t>& graph) {
    std::vector<std::set<idx_t>> neighbours(graph.vertices());
    for (const auto& [s, t] : edges_of(graph)) {
      neighbours[s].insert(t);
      neighbours[t].insert(s);
    }
    std::set<idx_t> processed;
    for (idx_t v : plain_search(graph)) {
      processed.insert(v);
      std::vector<idx_t> open;
      for (idx_t w : neighbours[v]) {
        if (!processed.contains(w)) open.push_back(w);
      }
      std::set<idx_t> candidate(open.begin(), open.end());
      candidate.insert(v);
      const bool contained = std::ranges::any_of(objects, [&](const std::set<idx_t>& clique) {
        return std::ranges::includes(clique, candidate);
      });
      if (!contained) objects.push_back(candidate);
      for (idx_t u : open) {
        for (idx_t w : open) {
          if (u != w) neighbours[u].insert(w);
        }
      }
    }
  }

  std::set<idx_t> shared(std::size_t i, std::size_t j) const {
    std::set<idx_t> members;
    std::ranges::set_intersection(objects[i], objects[j], std::inserter(members, members.end()));
    return members;
  }
};

}  // namespace qz_test
