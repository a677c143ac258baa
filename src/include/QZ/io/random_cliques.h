#pragma once

/// Unions of cliques drawn at random.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "QZ/comb/subsets.h"
#include "QZ/graph/graph_type.h"
#include "QZ/io/clique_union.h"
#include "QZ/io/entropy.h"
#include "QZ/io/model_container.h"
#include "QZ/support/assertion.h"
#include "QZ/support/progress.h"
#include "QZ/support/random.h"

namespace QZ {

/// A bound on the absolute interaction information of k vertices whose entropies lie between `low`
/// and `high`.
inline double interaction_bound(unsigned long k, double low, double high) {
  double ways = 1;
  double sum = 0;
  for (unsigned long i = 0; i < k; ++i) {
    const double order = static_cast<double>(i);
    sum += i % 2 == 0 ? -ways * low : order * ways * high;
    ways *= (static_cast<double>(k) - order) / (order + 1);
  }
  return std::abs(sum);
}

/// Draws k vertices that do not all hang together yet. A drawn vertex stands for its component, of
/// which any member may come.
template <class idx_t>
std::vector<idx_t> draw_clique(const CliqueUnion<idx_t>& cliques, std::size_t n, std::size_t k,
                               std::mt19937& rng) {
  std::set<idx_t> members;
  std::set<std::size_t> components;
  std::set<std::size_t> singles;
  const auto noted = [&](std::size_t v) {
    return cliques.connected(v) ? components.contains(cliques.component(v)) : singles.contains(v);
  };
  while (members.size() < k) {
    std::size_t v = draw_uniform<idx_t>(rng, 0, static_cast<idx_t>(n - 1));
    if (cliques.connected(v)) {
      components.insert(cliques.component(v));
    } else {
      singles.insert(v);
    }
    // The last member has to open a second group.
    if (members.size() + 1 == k && components.size() + singles.size() == 1) {
      while (noted(v)) v = (v + 1) % n;
    }
    if (!cliques.connected(v)) {
      members.insert(static_cast<idx_t>(v));
      continue;
    }
    const auto& component = cliques.component_members(v);
    members.insert(component[draw_uniform<std::size_t>(rng, 0, component.size() - 1)]);
  }
  return {members.begin(), members.end()};
}

template <class idx_t, class val_t>
double IO<idx_t, val_t>::buildCliquesRnd(val_t, idx_t k, ProgressCallback progress,
                                         StatFunction<idx_t, val_t> stat, std::mt19937* rng) {
  require_clique_order(k);
  const std::size_t n = graph->vertices();
  if (k > n || k > 63) throw std::logic_error("a clique cannot have so many vertices");
  const auto entropy = [&](const idx_t* members, std::size_t order) {
    return counted_entropy<idx_t>(stat, states, static_cast<double>(samples), members, order);
  };
  double low = std::numeric_limits<double>::max();
  double high = 0;
  for (std::size_t v = 0; v < n; ++v) {
    const idx_t vertex = static_cast<idx_t>(v);
    const double single = entropy(&vertex, 1);
    low = std::min(low, single);
    high = std::max(high, single);
  }
  const double upper = interaction_bound(k, low, high);

  CliqueUnion<idx_t> cliques(n);
  std::set<idx_t> covered;
  std::vector<idx_t> subset(k);
  std::string tag = "STRUCT";
  double patience = 1;
  double Imax = 0;
  double sum = 0;
  double trials = 0;
  double accepted = 0;
  while (cliques.reached() < n) {
    Progress{progress, tag.c_str()}(covered.size(), n);
    const std::vector<idx_t> members = draw_clique(cliques, n, k, *rng);
    const double score = std::abs(interaction(members.data(), k, subset.data(), entropy));
    Imax = std::max(Imax, score);
    assert_that(Imax < upper, "Imax < upper", door::io);
    ++trials;
    if (!(draw_canonical(*rng) < (score + 0.1) / upper * patience)) {
      patience *= 0.975;
      // All draws to come together have a chance below 1e-15 then, and nothing else would end this.
      if (patience < 0x1p-60) throw std::logic_error("no clique is accepted any more");
      continue;
    }
    if (cliques.process(members)) {
      ++accepted;
      tag = "STRUCT;" + std::to_string(accepted / trials);
      sum += score;
      covered.insert(members.begin(), members.end());
    }
    patience = 1;
  }
  const auto pair_number = [n](const idx_t& a, const idx_t& b) {
    return static_cast<idx_t>(rank_pair(n, a, b));
  };
  reconfigure(cliques.adjacency(), pair_number, stat);
  graphType = static_cast<idx_t>(GraphType::RNDCLIQUES);
  return sum / accepted;
}

}  // namespace QZ
