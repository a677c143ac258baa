#pragma once

/// STGRAPH, JUNCTIONTREE, BOLTZMANNTREE and BASEGRAPH: graphs derived from the current one.

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/graph/boltzmann_tree.h"
#include "QZ/graph/junction_tree.h"
#include "QZ/graph/unrolled.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/values.h"
#include "QZ/machine/vm.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// Gives a container, if there is one, a derived graph together with its source.
template <class idx_t, class val_t>
void rebind_model(const vm_t& machine, AbstractGraph<idx_t>* derived, AbstractGraph<idx_t>* base) {
  if (machine.word(VarType::MPT) == 0) return;
  auto& model = *machine.require_object<IO<idx_t, val_t>>(VarType::MPT);
  model.graph = derived;
  model.baseGraph = base;
}

/// The layers of a layered tree: leaves without the extra ones, cliques, separators, extra leaves.
template <class idx_t>
std::vector<unsigned long>* layer_sizes(const DeepBoltzmannTree<idx_t>& tree) {
  const auto sinks = static_cast<unsigned long>(tree.sinkSet.size());
  const std::vector<unsigned long> sizes{
      wrapping_sub(tree.leafCount, tree.extraCount),
      wrapping_cast<idx_t>(tree.vertices() - tree.leafCount - sinks), sinks, tree.extraCount};
  return getL<unsigned long>(convertList(&sizes));
}

/// The graph under a derived one. Throws logic_error if the object in `GPT` is not of that kind.
template <class derived_t, class idx_t>
const derived_t& derived_graph(const vm_t& machine) {
  auto* graph = machine.require_object<AbstractGraph<idx_t>>(VarType::GPT);
  const auto* derived = dynamic_cast<const derived_t*>(graph);
  if (derived == nullptr) throw std::logic_error("the graph is not of the kind that GRA names");
  return *derived;
}

template <class idx_t, class val_t>
void vm_t::convertGraphST0() {
  auto* base = require_object<AbstractGraph<idx_t>>(VarType::GPT);
  if (get(VarType::TXX) < 2) return;
  AbstractGraph<idx_t>* unrolled =
      new STGraph<idx_t>(wrapping_cast<idx_t>(get(VarType::TXX)), base);
  set(VarType::GPT, static_cast<void*>(unrolled));
  set(VarType::GRA, static_cast<unsigned long>(GraphType::ST));
  rebind_model<idx_t, val_t>(*this, unrolled, base);
}

template <class idx_t, class val_t>
void vm_t::convertGraphJT0() {
  auto* base = require_object<AbstractGraph<idx_t>>(VarType::GPT);
  AbstractGraph<idx_t>* tree = new JunctionTree<idx_t>(*base);
  set(VarType::GPT, static_cast<void*>(tree));
  set_word(VarType::GRA, static_cast<unsigned long>(GraphType::JT));
  rebind_model<idx_t, val_t>(*this, tree, base);
}

template <class idx_t, class val_t>
void vm_t::convertGraphDBT0() {
  auto* base = require_object<AbstractGraph<idx_t>>(VarType::GPT);
  const JunctionTree<idx_t> cliques(*base);
  if (word(VarType::DPT) != 0) {
    const auto& table = *require_object<CategoricalData>(VarType::DPT);
    if (table.N != 0) set(VarType::SNK, table.n + table.H - base->vertices());
  }
  auto tree =
      std::make_unique<DeepBoltzmannTree<idx_t>>(cliques, wrapping_cast<idx_t>(get(VarType::SNK)));
  set(VarType::LPT, static_cast<void*>(layer_sizes(*tree)));
  AbstractGraph<idx_t>* derived = tree.release();
  set(VarType::GPT, static_cast<void*>(derived));
  set(VarType::GRA, static_cast<unsigned long>(GraphType::DBT));
  rebind_model<idx_t, val_t>(*this, derived, base);
}

template <class idx_t>
void vm_t::getBaseGraph0() {
  const AbstractGraph<idx_t>* base = nullptr;
  switch (static_cast<GraphType>(wrapping_cast<unsigned char>(get(VarType::GRA)))) {
    case GraphType::ST:
      base = derived_graph<STGraph<idx_t>, idx_t>(*this).base;
      break;
    case GraphType::JT:
      base = derived_graph<JunctionTree<idx_t>, idx_t>(*this).baseGraph;
      break;
    case GraphType::DBT:
      base = derived_graph<DeepBoltzmannTree<idx_t>, idx_t>(*this).sourceGraph;
      break;
    default:
      break;
  }
  // A word, though the register is a real one: callers read it as an address.
  set_word(VarType::RES, reinterpret_cast<unsigned long>(base));
}

}  // namespace QZ
