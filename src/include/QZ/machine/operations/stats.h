#pragma once

/// STATS: counts the table anew for the model.

#include <cstddef>
#include <memory>
#include <stdexcept>

#include "QZ/data/categorical_data.h"
#include "QZ/data/statistics.h"
#include "QZ/graph/abstract_graph.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/vm.h"
#include "QZ/support/conversions.h"

namespace QZ {

[[noreturn]] inline void throw_no_statistics() {
  throw std::logic_error("can not compute sufficient statistics (most likely out of memory)");
}

/// Counts `data` for a container whose `graph` and `states` are set, and releases the old counts.
template <class idx_t, class val_t>
void count_into(IO<idx_t, val_t>& model, CategoricalData& data, const AbstractGraph<idx_t>& graph,
                std::mt19937& rng) {
  const std::unique_ptr<val_t[]> old_stats(model.stats);
  const std::unique_ptr<idx_t[]> old_offsets(model.offsets);
  model.stats = nullptr;
  model.offsets = nullptr;
  if (!sumStats(&data, &graph, model.states, &rng, model.stats, model.offsets, model.numOffsets,
                model.statsLength)) {
    throw_no_statistics();
  }
}

template <class idx_t, class val_t>
void vm_t::statsFunc0() {
  auto& model = *require_object<IO<idx_t, val_t>>(VarType::MPT);
  const auto& graph = *require_object<AbstractGraph<idx_t>>(VarType::GPT);
  auto& data = *require_object<CategoricalData>(VarType::DPT);
  const std::size_t n = graph.vertices();
  if (model.states == nullptr || (model.vertexNames != nullptr && model.vertexNames->size() < n)) {
    throw std::logic_error("the model's arrays do not belong to its graph");
  }
  const bool had_counts = model.offsets != nullptr;
  const idx_t old_total = had_counts ? model.statsLength : 0;
  count_into(model, data, graph, *rng);
  model.samples = wrapping_cast<idx_t>(data.N);
  // A graph that was loaded over the model has parameters of its own.
  if (had_counts && model.graph == &graph && old_total != model.statsLength) {
    delete[] model.weights;
    model.weights = nullptr;
    model.dim = wrapping_sub(model.offsets[n + graph.edges()], model.offsets[n]);
    model.weights = new val_t[model.dim]();
  }
}

}  // namespace QZ
