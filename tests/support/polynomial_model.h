#pragma once

/// A pairwise model together with plain sums over all its configurations.

#include <cmath>
#include <cstddef>
#include <functional>
#include <random>
#include <utility>
#include <vector>

#include "support/listed_graph.h"

namespace qz_test {

/// Owns what an engine borrows.
template <class idx_t, class val_t>
struct PolynomialModel {
  using Edges = std::vector<std::pair<unsigned long, unsigned long>>;

  PolynomialModel(std::vector<idx_t> counts, Edges pairs)
      : states(std::move(counts)), edges(std::move(pairs)), graph(states.size(), edges) {
    std::size_t dim = 0;
    for (const auto& [s, t] : edges) {
      offsets.push_back(dim);
      dim += std::size_t{states[s]} * states[t];
    }
    weights.assign(dim, 0);
  }

  /// Draws all weights from a range.
  void fill(double low, double high, unsigned seed) {
    std::mt19937 source(seed);
    std::uniform_real_distribution<double> uniform(low, high);
    for (val_t& weight : weights) weight = static_cast<val_t>(uniform(source));
  }

  /// Calls visit(selected parameters) for every configuration.
  void for_each_configuration(
      const std::function<void(const std::vector<std::size_t>&)>& visit) const {
    std::vector<std::size_t> x(states.size(), 0);
    for (;;) {
      std::vector<std::size_t> selected;
      for (std::size_t e = 0; e < edges.size(); ++e) {
        const auto [s, t] = edges[e];
        selected.push_back(offsets[e] + x[s] * states[t] + x[t]);
      }
      visit(selected);
      std::size_t v = 0;
      while (v < x.size() && ++x[v] == states[v]) x[v++] = 0;
      if (v == x.size()) return;
    }
  }

  /// The sum over all configurations of f(E), and the same for those that select each parameter.
  double sum(const std::function<double(double)>& f, std::vector<double>& moments) const {
    double Z = 0;
    moments.assign(weights.size(), 0);
    for_each_configuration([&](const std::vector<std::size_t>& selected) {
      double E = 0;
      for (std::size_t i : selected) E += double(weights[i]);
      Z += f(E);
      for (std::size_t i : selected) moments[i] += f(E);
    });
    return Z;
  }

  std::vector<idx_t> states;
  Edges edges;
  ListedGraph<idx_t> graph;
  std::vector<std::size_t> offsets;
  std::vector<val_t> weights;
  std::mt19937 rng{17};
};

/// The value of a polynomial given by its coefficients, lowest first.
inline double horner(const std::vector<double>& coefficients, double x) {
  double value = 0;
  for (std::size_t i = coefficients.size(); i-- > 0;) value = value * x + coefficients[i];
  return value;
}

}  // namespace qz_test
