#pragma once

/// Graphs of the strongest associations between states.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <utility>
#include <vector>

#include "QZ/graph/graph_type.h"
#include "QZ/graph/spanning_tree.h"
#include "QZ/io/edge_numbers.h"
#include "QZ/io/model_container.h"
#include "QZ/support/conversions.h"
#include "QZ/support/progress.h"

namespace QZ {

/// The absolute pointwise association of every pair of states of every edge, in the order of the
/// parameters, each with its edge:
///
///   |log(c / (cs * ct / N)) * 2 / n|
///
/// with the counts of the pair and of its two states, N samples and n vertices; 0 where one of the
/// counts is 0.
template <class idx_t, class val_t>
std::vector<std::pair<idx_t, double>> state_associations(const IO<idx_t, val_t>& model,
                                                         const Progress& progress) {
  const std::size_t n = model.graph->vertices();
  const std::size_t m = model.graph->edges();
  const double samples = static_cast<double>(model.samples);
  std::vector<std::pair<idx_t, double>> scores;
  scores.reserve(model.dim);
  for (std::size_t e = 0; e < m; ++e) {
    progress(e + 1, m);
    const auto [s, t] = endpoints(*model.graph, static_cast<idx_t>(e));
    const val_t* pair = model.stats + model.offsets[n + e];
    for (std::size_t xs = 0; xs < model.states[s]; ++xs) {
      const double cs = static_cast<double>(model.stats[model.offsets[s] + xs]);
      for (std::size_t xt = 0; xt < model.states[t]; ++xt) {
        const double ct = static_cast<double>(model.stats[model.offsets[t] + xt]);
        const double c = static_cast<double>(*pair++);
        const bool seen = c > 0 && cs > 0 && ct > 0;
        const double score =
            seen ? std::log(c / ((cs * ct) / samples)) * (2.0 / static_cast<double>(n)) : 0;
        scores.emplace_back(static_cast<idx_t>(e), std::abs(score));
      }
    }
  }
  return scores;
}

/// The score at which the largest share `t` of an ascending list begins.
template <class idx_t, class val_t>
double share_threshold(const std::vector<std::pair<idx_t, double>>& sorted, val_t t) {
  const std::size_t last = sorted.size() - 1;
  const auto strong = saturating_cast<unsigned long>(static_cast<val_t>(last) * t);
  return sorted[last - std::min(strong, last)].second;
}

template <class idx_t, class val_t>
void IO<idx_t, val_t>::buildElemGM(val_t t, ProgressCallback progress) {
  if (!(t >= 0 && t <= 1)) throw std::logic_error("the share of edges must lie between 0 and 1");
  require_matching_arrays();
  const std::size_t n = graph->vertices();
  const std::size_t m = graph->edges();
  auto scores = state_associations(*this, {progress, "EGM  "});
  std::vector<double> best(m, -1);
  for (const auto& [e, score] : scores) best[e] = std::max(best[e], score);
  std::sort(scores.begin(), scores.end(), ValOrder<idx_t, double, false>());

  // An edge qualifies by its best score, but comes up with its weakest: where the limit bites,
  // edges with a weak entry go first.
  std::vector<idx_t> adjacency(n * n);
  const double threshold = scores.empty() ? 0 : share_threshold(scores, t);
  const double limit = static_cast<double>(m) * static_cast<double>(t);
  const Progress taking{progress, "EGM E"};
  std::size_t accepted = 0;
  for (std::size_t i = 0; i < scores.size(); ++i) {
    taking(i + 1, scores.size());
    const idx_t e = scores[i].first;
    const auto [u, v] = endpoints(*graph, e);
    if (adjacency[u * n + v] != 0 || !(static_cast<double>(accepted) < limit)) continue;
    if (best[e] < threshold) continue;
    adjacency[u * n + v] = adjacency[v * n + u] = 1;
    ++accepted;
  }
  const EdgeNumbers<idx_t> numbers(*graph);
  reconfigure(adjacency.data(), numbers, nullptr);
  graphType = static_cast<idx_t>(GraphType::ELEMGM);
}

}  // namespace QZ
