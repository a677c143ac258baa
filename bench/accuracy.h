#pragma once

/// How far an engine's answers are from those of enumeration.

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "QZ/inference/engine.h"
#include "support/enumeration_oracle.h"
#include "support/pairwise_models.h"

namespace accuracy {

/// Of the log partition function, absolute, and the largest of all edge marginals.
struct Errors {
  double log_partition;
  double marginal;
};

/// The errors of an engine that has run.
template <class idx_t, class val_t, class model_t>
Errors errors_of(const QZ::InferenceAlgorithm<idx_t, val_t>& engine, const model_t& model,
                 const qz_test::ExactAnswers& exact) {
  Errors errors{std::abs(static_cast<double>(engine.log_partition - exact.log_partition)), 0};
  for (std::size_t e = 0; e < model.edges(); ++e) {
    const auto [s, t] = model.ends(e);
    for (idx_t xs = 0; xs < model.states[s]; ++xs) {
      for (idx_t xt = 0; xt < model.states[t]; ++xt) {
        val_t q = 0;
        val_t Z = 0;
        engine.edge_marginal(static_cast<idx_t>(e), xs, xt, q, Z);
        const double found = static_cast<double>(q) / static_cast<double>(Z);
        const double error = std::abs(found - exact.edge[model.at(e, xs, xt)]);
        // A NaN is as wrong as can be.
        errors.marginal = std::max(errors.marginal, std::isnan(error) ? 1.0 : error);
      }
    }
  }
  return errors;
}

/// The first cell of a table's row: a name stands once, above its rows.
inline std::string row_start(const std::string& name, bool first) {
  return first ? "| " + name + " |" : "| |";
}

/// The edges of a grid, row by row.
inline std::vector<std::pair<std::size_t, std::size_t>> grid_edges(std::size_t side) {
  std::vector<std::pair<std::size_t, std::size_t>> edges;
  for (std::size_t v = 0; v < side * side; ++v) {
    if (v % side + 1 < side) edges.emplace_back(v, v + 1);
    if (v + side < side * side) edges.emplace_back(v, v + side);
  }
  return edges;
}

}  // namespace accuracy
