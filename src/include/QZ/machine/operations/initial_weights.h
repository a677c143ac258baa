#pragma once

/// INITZERO and INITGAUSS: a starting point for the weights.

#include <algorithm>
#include <random>
#include <type_traits>

#include "QZ/io/model_container.h"
#include "QZ/machine/vm.h"

namespace QZ {

/// The container whose weights are to be set; null where there is nothing to set.
template <class idx_t, class val_t>
IO<idx_t, val_t>* weighted_model(const vm_t& machine) {
  auto* model = machine.object<IO<idx_t, val_t>>(VarType::MPT);
  return model != nullptr && model->weights != nullptr ? model : nullptr;
}

template <class idx_t, class val_t>
void vm_t::initZero0() {
  if (auto* model = weighted_model<idx_t, val_t>(*this)) {
    std::fill_n(model->weights, model->dim, val_t(0));
  }
}

template <class idx_t, class val_t>
void vm_t::initGauss0() {
  if constexpr (std::is_floating_point_v<val_t>) {
    auto* model = weighted_model<idx_t, val_t>(*this);
    if (model == nullptr) return;
    // One distribution for all weights: it draws its numbers in pairs and keeps the second one.
    std::normal_distribution<double> normal(0, getR(VarType::SDE));
    for (idx_t i = 0; i < model->dim; ++i) model->weights[i] = static_cast<val_t>(normal(*rng));
  }
}

}  // namespace QZ
