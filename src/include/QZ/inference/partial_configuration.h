#pragma once

/// A configuration of some of the vertices, as a handful of parameters selects it.

#include <cstddef>
#include <vector>

#include "QZ/graph/abstract_graph.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// Half-open range of states.
struct StateRange {
  std::size_t begin;
  std::size_t end;
};

/// States of the vertices that a tuple of parameters speaks about; all other vertices are open.
/// Clearing costs the number of fixed vertices only.
template <class idx_t>
class PartialConfiguration {
 public:
  PartialConfiguration(const idx_t* states, std::size_t vertices)
      : states_(states), state_(vertices, all_ones<idx_t>) {}

  /// Fixes both ends of an edge. False if one of them has another state already.
  bool fix(const Endpoints<idx_t>& ends, idx_t xs, idx_t xt) {
    return fix(ends.s, xs) && fix(ends.t, xt);
  }

  bool is_open(idx_t v) const { return state_[v] == all_ones<idx_t>; }

  /// The states that `v` may have: its own if it is fixed, all of them if not.
  StateRange choices(idx_t v) const {
    if (is_open(v)) return {0, states_[v]};
    return {state_[v], std::size_t{state_[v]} + 1};
  }

  /// The number of configurations of the fixed vertices.
  double combinations() const {
    double product = 1;
    for (idx_t v : fixed_) product *= static_cast<double>(states_[v]);
    return product;
  }

  /// The number of configurations of those ends of an edge that are open.
  double open_combinations(const Endpoints<idx_t>& ends) const {
    double product = 1;
    if (is_open(ends.s)) product *= static_cast<double>(states_[ends.s]);
    if (ends.t != ends.s && is_open(ends.t)) product *= static_cast<double>(states_[ends.t]);
    return product;
  }

  void clear() {
    for (idx_t v : fixed_) state_[v] = all_ones<idx_t>;
    fixed_.clear();
  }

 private:
  bool fix(idx_t v, idx_t x) {
    if (!is_open(v)) return state_[v] == x;
    state_[v] = x;
    fixed_.push_back(v);
    return true;
  }

  const idx_t* states_;
  std::vector<idx_t> state_;
  std::vector<idx_t> fixed_;
};

}  // namespace QZ
