#pragma once

/// INITLATENT: the columns of the hidden vertices of a layered model.

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/data/random_centers.h"
#include "QZ/graph/boltzmann_tree.h"
#include "QZ/machine/vm.h"
#include "QZ/support/assertion.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// Layer sizes, from the first layer to the last.
using Layers = std::vector<unsigned long>;

/// The number of vertices between the first and the last layer.
inline unsigned long inner_vertices(const Layers& layers) {
  if (layers.size() < 3) return 0;
  return std::accumulate(layers.begin() + 1, layers.end() - 1, 0ul);
}

/// Labels rows by prototypes: each hidden unit has a few rows of its own, and gives a row the
/// number of the prototype that differs from it in the fewest columns of the layer below.
template <class idx_t>
class PrototypeLabels {
 public:
  /// `centers` holds `prototypes` row numbers per unit. Both are borrowed.
  PrototypeLabels(CategoricalData& table, const idx_t* centers, idx_t prototypes)
      : table_(table), centers_(centers), prototypes_(prototypes) {}

  /// Fills the columns of a layer of `width` units, which stand behind those of the layer below.
  void fill_layer(unsigned long first_below, unsigned long width_below, unsigned long width) {
    for (unsigned long row = 0; row < table_.N; ++row) {
      for (unsigned long c = 0; c < width; ++c) {
        const unsigned short label = nearest(c, row, first_below, width_below);
        table_.set(label, first_below + width_below + c, row, false);
      }
    }
  }

 private:
  /// The first of the nearest prototypes of unit c; 0 if all differ in every column.
  unsigned short nearest(unsigned long c, unsigned long row, unsigned long first,
                         unsigned long width) const {
    unsigned long smallest = width;
    unsigned short winner = 0;
    for (std::size_t h = 0; h < prototypes_; ++h) {
      const unsigned long differing = distance(centers_[c * prototypes_ + h], row, first, width);
      if (differing < smallest) {
        smallest = differing;
        winner = wrapping_cast<unsigned short>(h);
      }
    }
    return winner;
  }

  unsigned long distance(unsigned long a, unsigned long b, unsigned long first,
                         unsigned long width) const {
    unsigned long differing = 0;
    for (unsigned long column = first; column < first + width; ++column) {
      differing += table_.get(column, a) != table_.get(column, b);
    }
    return differing;
  }

  CategoricalData& table_;
  const idx_t* centers_;
  idx_t prototypes_;
};

/// Adds and fills the columns of the inner layers of a layered network. `categories` is their
/// category count and bounds the number of prototypes.
///
/// Each layer's columns are looked for behind those of the layer before, as far as the widths of
/// the layers themselves lead there, and each layer takes its prototypes from the first group on.
template <class idx_t>
void add_network_columns(CategoricalData& table, const Layers& layers, idx_t vertices,
                         unsigned long categories, std::mt19937& rng) {
  const unsigned long outer = layers.front() + layers.back();
  if (outer != table.n + table.H) {
    throw std::out_of_range("RBM requires that first and last layer cover all columns");
  }
  table.addColumns(inner_vertices(layers), categories);
  const idx_t prototypes = wrapping_cast<idx_t>(std::min(categories, table.N));
  const idx_t groups = wrapping_cast<idx_t>(vertices - outer);
  for (std::size_t i = 1; i + 1 < layers.size(); ++i) {
    if (layers[i] > groups) throw std::logic_error("the layers do not fit the graph");
  }
  const std::unique_ptr<idx_t[]> centers(
      randomCenters<idx_t>(groups, prototypes, wrapping_cast<idx_t>(table.N), &rng));
  PrototypeLabels<idx_t> labels(table, centers.get(), prototypes);
  unsigned long start = 0;
  for (std::size_t i = 1; i + 1 < layers.size(); ++i) {
    labels.fill_layer(start, layers[i - 1], layers[i]);
    start += layers[i];
  }
}

/// Fills column `v` with a dense numbering of the joint states of the columns in `members`, in
/// order of first appearance, and leaves it exactly the states that occur. Asserts that there are
/// not more of them than rows.
template <class Members>
void number_joint_states(CategoricalData& table, unsigned long v, const Members& members) {
  std::map<unsigned long, unsigned long> states;
  for (unsigned long row = 0; row < table.N; ++row) {
    unsigned long code = 0;
    for (const unsigned long u : members) {
      code = code * table.categories(u) + table.get(u, row);
    }
    const unsigned long state = states.try_emplace(code, states.size()).first->second;
    assert_that(states.size() <= table.N, "localY[C]->size()<=D->rows()", door::misc);
    table.set(wrapping_cast<unsigned short>(state), v, row, false);
  }
  table.trimCategories(v, wrapping_cast<unsigned short>(states.size()));
}

/// Adds and fills the columns of the inner vertices of a layered tree, from the lowest number up.
template <class idx_t>
void add_tree_columns(CategoricalData& table, const Layers& layers,
                      const DeepBoltzmannTree<idx_t>& tree) {
  table.addColumns(inner_vertices(layers), table.N);
  for (idx_t v = tree.leafCount; v < tree.vertices(); ++v) {
    number_joint_states(table, v, tree.vertexObjects(v));
  }
}

template <class idx_t>
void vm_t::initLatent0() {
  const auto kind = static_cast<GraphType>(wrapping_cast<unsigned char>(get(VarType::GRA)));
  auto* table = object<CategoricalData>(VarType::DPT);
  if (table == nullptr || (kind != GraphType::RBM && kind != GraphType::DBT)) return;
  const auto& layers = *require_object<Layers>(VarType::LPT);
  if (layers.size() < 2) throw std::logic_error("a layered model needs more than one layer");
  const auto* graph = require_object<AbstractGraph<idx_t>>(VarType::GPT);
  if (kind == GraphType::RBM) {
    return add_network_columns<idx_t>(*table, layers, graph->vertices(), get(VarType::LSN), *rng);
  }
  const auto* tree = dynamic_cast<const DeepBoltzmannTree<idx_t>*>(graph);
  if (tree == nullptr) throw std::logic_error("the graph is not of the kind that GRA names");
  add_tree_columns<idx_t>(*table, layers, *tree);
}

}  // namespace QZ
