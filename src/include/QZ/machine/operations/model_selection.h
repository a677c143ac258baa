#pragma once

/// The choice of the model class.

#include <memory>
#include <type_traits>

#include "QZ/inference/engine.h"
#include "QZ/machine/vm.h"
#include "QZ/mrf/mrf.h"
#include "QZ/support/unavailable.h"

namespace QZ {

namespace operations {

/// The pairwise field. The indicator vectors of two configurations lie at most sqrt(2 * edges)
/// apart, which bounds their covariance, and that is the curvature of the objective.
template <class idx_t, class val_t>
std::unique_ptr<MRF<idx_t, val_t>> make_field(InferenceAlgorithm<idx_t, val_t>* engine) {
  auto model = std::make_unique<MRF<idx_t, val_t>>(engine);
  model->lipschitz = 2 * static_cast<val_t>(model->graph->edges());
  return model;
}

}  // namespace operations

template <class idx_t, class val_t>
AbstractMRF<idx_t, val_t>* vm_t::getMOD(InferenceAlgorithm<idx_t, val_t>* engine) {
  // Integers have one model class, whatever the register says.
  if constexpr (!std::is_integral_v<val_t>) {
    if (get(VarType::REP) == static_cast<unsigned long>(ReparamType::NONE)) {
      return operations::make_field(engine).release();
    }
  }
  not_available();
}

}  // namespace QZ
