#pragma once

/// Containers that are ready for a learner: a table, a graph over its columns, and their counts.

#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "QZ/data/configure_statistics.h"
#include "QZ/data/joint_histogram.h"
#include "QZ/data/statistics.h"
#include "support/plain_table.h"
#include "support/small_model.h"

namespace qz_test {

/// A container for the columns of a complete table, with zero weights and without names. Takes the
/// graph. With `orders` above 0 it counts all pairs, as for a union of cliques of that order.
template <class idx_t, class val_t>
OwnedModel<idx_t, val_t> counted_model(PlainTable& table, QZ::AbstractGraph<idx_t>* graph,
                                       idx_t orders = 0) {
  OwnedModel<idx_t, val_t> model(new QZ::IO<idx_t, val_t>);
  const auto states = states_of<idx_t>(table);
  std::mt19937 rng(1);
  model->graph = graph;
  model->states = new idx_t[states.size()];
  std::copy(states.begin(), states.end(), model->states);
  model->dim = calcDim(*graph, model->states);
  model->weights = new val_t[model->dim]();
  model->samples = static_cast<idx_t>(table.N);
  model->slices = 1;
  if (orders > 0) {
    QZ::configureStats(&table, graph, model->states, &rng, orders, model->stats, model->offsets,
                       model->numOffsets, model->statsLength, nullptr);
  } else {
    QZ::sumStats(&table, graph, model->states, &rng, model->stats, model->offsets,
                 model->numOffsets, model->statsLength);
  }
  return model;
}

/// The joint histograms of a table, as the machine hands them to learners.
template <class idx_t, class val_t>
QZ::StatFunction<idx_t, val_t> joint_counts(PlainTable& table, QZ::IO<idx_t, val_t>& model) {
  return [&](unsigned long set, const idx_t& size) {
    return QZ::sumStatsOnlineSUI<idx_t, val_t>(&table, 0, model.states, set, size);
  };
}

/// The entropy of some columns of a table, counted row by row.
inline double plain_entropy(const QZ::CategoricalData& table,
                            const std::vector<unsigned long>& columns) {
  const auto counts = plain_block<double>(table, columns, states_of<unsigned long>(table));
  double entropy = 0;
  for (const double count : counts) {
    const double p = count / static_cast<double>(table.N);
    if (count > 0) entropy -= p * std::log(p);
  }
  return entropy;
}

/// Reports that a learner made, in order; one at a time.
struct Reports {
  using Report = std::tuple<std::size_t, std::size_t, std::string>;
  static void note(std::size_t done, std::size_t total, const char* tag) {
    list.emplace_back(done, total, tag);
  }
  static inline std::vector<Report> list;
};

}  // namespace qz_test
