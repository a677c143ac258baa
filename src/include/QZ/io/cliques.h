#pragma once

/// Unions of the cliques with the strongest interaction.

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <utility>
#include <vector>

#include "QZ/comb/subsets.h"
#include "QZ/graph/graph_type.h"
#include "QZ/io/clique_union.h"
#include "QZ/io/entropy.h"
#include "QZ/io/model_container.h"
#include "QZ/support/first_exception.h"
#include "QZ/support/parallel.h"
#include "QZ/support/progress.h"

namespace QZ {

/// Orders pairs by the absolute value of their second component, descending or ascending.
template <class key_t, class weight_t, bool descending>
struct AbsValOrder {
  bool operator()(const std::pair<key_t, weight_t>& a, const std::pair<key_t, weight_t>& b) const {
    return descending ? std::abs(a.second) > std::abs(b.second)
                      : std::abs(a.second) < std::abs(b.second);
  }
};

/// Calls `work(members, rank, scratch)` for all subsets of one order, shared among a team of
/// threads; `scratch` has room for a subset. Thread 0 calls `report(subsets done)` before each of
/// its own. The first exception of any thread ends the work and passes to the caller.
template <class idx_t, class Work, class Report>
void for_all_subsets(std::size_t n, std::size_t order, Work&& work, Report&& report) {
  const unsigned long count = subset_count(n, order);
  std::atomic<unsigned long> done{0};
  FirstException failure;
#pragma omp parallel
  failure.guard([&] {
    std::vector<idx_t> members(order);
    std::vector<idx_t> scratch(order);
    const auto [first, last] = my_share<unsigned long>(count);
    for (unsigned long rank = first; rank < last && !failure.met(); ++rank) {
      if (omp_get_thread_num() == 0) report(done.load(std::memory_order_relaxed));
      unrank(n, order, rank, members.data());
      work(members.data(), rank, scratch.data());
      done.fetch_add(1, std::memory_order_relaxed);
    }
  });
  failure.rethrow();
}

/// The entropies of all subsets of 1 to k vertices, by order and number.
template <class idx_t, class val_t>
std::vector<std::vector<double>> all_entropies(const IO<idx_t, val_t>& model, std::size_t k,
                                               const StatFunction<idx_t, val_t>& stat,
                                               const Progress& progress) {
  const std::size_t n = model.graph->vertices();
  std::vector<std::vector<double>> entropies(k + 1);
  const double samples = static_cast<double>(model.samples);
  std::size_t base = 0;
  for (std::size_t order = 1; order <= k; ++order) {
    entropies[order].resize(subset_count(n, order));
    for_all_subsets<idx_t>(
        n, order,
        [&](const idx_t* members, unsigned long rank, idx_t*) {
          entropies[order][rank] = counted_entropy(stat, model.states, samples, members, order);
        },
        [&](unsigned long done) { progress(base + done, model.numOffsets - std::size_t(1)); });
    base += entropies[order].size();
  }
  return entropies;
}

/// A subset's number and its interaction information.
using ScoredSubset = std::pair<unsigned long, double>;

/// The interactions of all subsets of one order, by number. `base` subsets came before them.
template <class idx_t>
std::vector<ScoredSubset> all_interactions(std::size_t n, std::size_t order,
                                           const std::vector<std::vector<double>>& entropies,
                                           std::size_t base, std::size_t total,
                                           const Progress& progress) {
  std::vector<ScoredSubset> scores(subset_count(n, order));
  for_all_subsets<idx_t>(
      n, order,
      [&](const idx_t* members, unsigned long rank, idx_t* subset) {
        const auto entropy = [&](const idx_t* part, std::size_t size) {
          return entropies[size][rank_subset(n, size, part)];
        };
        scores[rank] = {rank, interaction(members, order, subset, entropy)};
        if (std::isnan(scores[rank].second)) {
          throw std::logic_error("an interaction is not a number");
        }
      },
      [&](unsigned long done) { progress(base + 1 + done, total); });
  return scores;
}

template <class idx_t, class val_t>
double IO<idx_t, val_t>::buildCliques(val_t, idx_t k, ProgressCallback progress,
                                      StatFunction<idx_t, val_t> stat) {
  require_clique_order(k);
  const std::size_t n = graph->vertices();
  const std::size_t top = std::min<std::size_t>(k, n);
  const auto entropies = all_entropies(*this, top, stat, {progress, "ENT  "});
  std::vector<std::vector<ScoredSubset>> scores(top + 1);
  std::size_t base = 0;
  for (std::size_t order = 2; order <= top; ++order) {
    scores[order] =
        all_interactions<idx_t>(n, order, entropies, base, numOffsets - 1 - n, {progress, "MI   "});
    base += scores[order].size();
  }
  const Progress sorting{progress, "SORT "};
  for (std::size_t order = 2; order <= top; ++order) {
    sorting(order - 1, k - std::size_t(1));
    std::sort(scores[order].begin(), scores[order].end(),
              AbsValOrder<unsigned long, double, true>());
  }

  CliqueUnion<idx_t> cliques(n);
  // There is no clique with more vertices than the graph has.
  const std::vector<ScoredSubset> none;
  const auto& candidates = k > n ? none : scores[k];
  const Progress taking{progress, "CLIQS"};
  std::vector<idx_t> members(std::min<std::size_t>(k, n));
  double sum = 0;
  double accepted = 0;
  for (const auto& [rank, score] : candidates) {
    if (cliques.connected(0)) taking(cliques.reached(), n);
    if (cliques.reached() == n) break;
    unrank(n, k, rank, members.data());
    if (!cliques.process(members)) continue;
    sum += std::abs(candidates[rank].second);
    ++accepted;
  }
  const auto pair_number = [n](const idx_t& a, const idx_t& b) {
    return static_cast<idx_t>(rank_pair(n, a, b));
  };
  reconfigure(cliques.adjacency(), pair_number, stat);
  graphType = static_cast<idx_t>(k == 2 ? GraphType::CHOWLIU : GraphType::CLIQUES);
  return sum / accepted;
}

}  // namespace QZ
