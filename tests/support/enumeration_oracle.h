#pragma once

/// Exact answers by brute force, in long double.

#include <cmath>
#include <vector>

#include "support/pairwise_models.h"

namespace qz_test {

struct ExactAnswers {
  long double log_partition;
  /// Per vertex and state, and per parameter.
  std::vector<std::vector<double>> vertex;
  std::vector<double> edge;
};

/// Sum or maximum marginals, with vertices held at `clamped[v]` where that is not negative. A
/// maximum marginal is the weight of the best configuration, normalised like a probability.
template <class idx_t, class val_t>
ExactAnswers enumerate(const TestModel<idx_t, val_t>& model, std::vector<int> clamped = {},
                       bool max = false) {
  const std::size_t n = model.vertices();
  clamped.resize(n, -1);
  std::vector<std::vector<long double>> vertex(n);
  for (std::size_t v = 0; v < n; ++v) vertex[v].resize(model.states[v]);
  std::vector<long double> edge(model.weights.size());
  const auto collect = [max](long double& into, long double p) {
    into = max ? std::max(into, p) : into + p;
  };
  long double total = 0;
  std::vector<std::size_t> x(n);
  const auto visit = [&](auto&& self, std::size_t v) -> void {
    if (v < n) {
      for (x[v] = 0; x[v] < model.states[v]; ++x[v]) {
        if (clamped[v] < 0 || static_cast<std::size_t>(clamped[v]) == x[v]) self(self, v + 1);
      }
      return;
    }
    long double s = 0;
    for (std::size_t e = 0; e < model.edges(); ++e) {
      const auto [a, b] = model.ends(e);
      s += static_cast<long double>(model.weights[model.at(e, x[a], x[b])]);
    }
    const long double p = std::exp(s);
    total += p;
    for (std::size_t u = 0; u < n; ++u) collect(vertex[u][x[u]], p);
    for (std::size_t e = 0; e < model.edges(); ++e) {
      const auto [a, b] = model.ends(e);
      collect(edge[model.at(e, x[a], x[b])], p);
    }
  };
  visit(visit, 0);

  ExactAnswers answers;
  answers.log_partition = std::log(total);
  for (const auto& entries : vertex) {
    long double sum = 0;
    for (const long double p : entries) sum += p;
    answers.vertex.emplace_back();
    for (const long double p : entries)
      answers.vertex.back().push_back(static_cast<double>(p / sum));
  }
  answers.edge.resize(edge.size());
  for (std::size_t e = 0; e < model.edges(); ++e) {
    long double sum = 0;
    for (std::size_t k = model.offsets[e]; k < model.offsets[e + 1]; ++k) sum += edge[k];
    for (std::size_t k = model.offsets[e]; k < model.offsets[e + 1]; ++k) {
      answers.edge[k] = static_cast<double>(edge[k] / sum);
    }
  }
  return answers;
}

}  // namespace qz_test
