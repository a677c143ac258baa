#pragma once

/// MODEL: the container for the current table and graph.

#include <algorithm>
#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/data/configure_statistics.h"
#include "QZ/data/joint_counter.h"
#include "QZ/graph/abstract_graph.h"
#include "QZ/graph/unrolled.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/operations/stats.h"
#include "QZ/machine/values.h"
#include "QZ/machine/vm.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// Whether the number in `REP` or a container names a decay over time.
constexpr bool decays_over_time(unsigned long reparam) {
  return reparam >= static_cast<unsigned long>(ReparamType::STLINEAR) &&
         reparam <= static_cast<unsigned long>(ReparamType::STINVEXPONENTIAL);
}

/// The graph of one time slice. Throws logic_error for a graph that has no slices.
template <class idx_t>
AbstractGraph<idx_t>* slice_of(AbstractGraph<idx_t>& graph) {
  auto* unrolled = dynamic_cast<STGraph<idx_t>*>(&graph);
  if (unrolled == nullptr) throw std::logic_error("a decay over time needs a graph over time");
  return unrolled->base;
}

/// Sets state counts, parameter count, names and zero weights of a container with a graph: vertex v
/// is column v of the table. A graph may leave out the last columns, as a grid over a number that
/// is no square does: the names are those of its vertices, the categories those of all columns, for
/// reading further tables. Asserts "col<n+H" for a vertex without a column.
template <class idx_t, class val_t>
void describe_columns(IO<idx_t, val_t>& model, const CategoricalData& data) {
  const idx_t n = model.graph->vertices();
  model.states = new idx_t[n];
  for (idx_t v = 0; v < n; ++v) model.states[v] = wrapping_cast<idx_t>(data.categories(v));
  model.dim = calcDim(*model.graph, model.states);
  model.vertexNames = data.columnNames();
  model.vertexNames->resize(n);
  model.categoryLists = new std::vector<std::vector<std::string>*>;
  for (unsigned long c = 0; c < data.n + data.H; ++c) {
    model.categoryLists->push_back(nullptr);
    model.categoryLists->back() = new std::vector<std::string>(*data.categoryNames(c));
  }
  model.weights = new val_t[model.dim]();
}

/// Counts the table for a container that `describe_columns` has filled, as its graph's learner
/// needs it, and has the learner replace the graph. Returns the learner's score, -1 where there is
/// none.
template <class idx_t, class val_t>
double count_and_learn(IO<idx_t, val_t>& model, CategoricalData& data, vm_t& machine) {
  const auto kind = static_cast<GraphType>(wrapping_cast<unsigned char>(model.graphType));
  const ProgressCallback progress = machine.progress_callback();
  const val_t share = value_cast<val_t>(machine.getR(VarType::PEL));
  idx_t order = wrapping_cast<idx_t>(machine.get(VarType::KXX));
  if (kind != GraphType::CLIQUES) {
    count_into(model, data, *model.graph, machine.random_engine());
  } else if (!configureStats(&data, model.graph, model.states, &machine.random_engine(), order,
                             model.stats, model.offsets, model.numOffsets, model.statsLength,
                             progress)) {
    throw_no_statistics();
  }
  switch (kind) {
    case GraphType::CHOWLIU:
      model.buildChowLiu(progress);
      return -1;
    case GraphType::ELEMGM:
      model.buildElemGM(share, progress);
      return -1;
    case GraphType::CLIQUES:
    case GraphType::RNDCLIQUES:
      break;
    default:
      return -1;
  }
  const JointCounter<idx_t, val_t> joint(data, model.graph->vertices(), model.states);
  return kind == GraphType::CLIQUES
             ? model.buildCliques(share, order, progress, std::cref(joint))
             : model.buildCliquesRnd(share, order, progress, std::cref(joint),
                                     &machine.random_engine());
}

template <class idx_t, class val_t>
void vm_t::modelFunc0() {
  auto& data = *require_object<CategoricalData>(VarType::DPT);
  auto* graph = require_object<AbstractGraph<idx_t>>(VarType::GPT);
  AbstractGraph<idx_t>* base = nullptr;
  if (decays_over_time(get(VarType::REP))) base = slice_of(*graph);
  if (static_cast<GraphType>(wrapping_cast<unsigned char>(get(VarType::GRA))) ==
      GraphType::CLIQUES) {
    require_clique_order(wrapping_cast<idx_t>(get(VarType::KXX)));
  }

  auto& model = *new IO<idx_t, val_t>;
  set(VarType::MPT, static_cast<void*>(&model));
  model.graph = graph;
  model.baseGraph = base;
  describe_columns(model, data);
  model.graphType = wrapping_cast<idx_t>(get(VarType::GRA));
  model.slices = wrapping_cast<idx_t>(get(VarType::TXX));
  model.reparam = wrapping_cast<idx_t>(get(VarType::REP));
  model.samples = wrapping_cast<idx_t>(std::max(data.N, 1ul));
  model.layerText = convertList(object<std::vector<unsigned long>>(VarType::LPT));
  const double score = count_and_learn(model, data, *this);
  set(VarType::RES, score);
  set(VarType::GPT, static_cast<void*>(model.graph));
}

}  // namespace QZ
