#pragma once

/// The choice of the model class.

#include <memory>
#include <type_traits>

#include "QZ/inference/engine.h"
#include "QZ/machine/vm.h"
#include "QZ/mrf/integer_mrf.h"
#include "QZ/mrf/ising.h"
#include "QZ/mrf/mrf.h"
#include "QZ/mrf/strf.h"
#include "QZ/support/conversions.h"

namespace QZ {

namespace operations {

/// A pairwise field, or one that expands into it. The indicator vectors of two configurations lie
/// at most sqrt(2 * edges) apart, which bounds their covariance, and that is the curvature of the
/// objective.
template <class model_t, class idx_t, class val_t>
std::unique_ptr<model_t> make_field(InferenceAlgorithm<idx_t, val_t>* engine) {
  auto model = std::make_unique<model_t>(engine);
  model->lipschitz = 2 * static_cast<val_t>(model->graph->edges());
  return model;
}

}  // namespace operations

template <class idx_t, class val_t>
AbstractMRF<idx_t, val_t>* vm_t::getMOD(InferenceAlgorithm<idx_t, val_t>* engine) {
  // Integers have one model class, whatever the register says.
  if constexpr (std::is_integral_v<val_t>) {
    return new IntegerMRF<idx_t>(engine, wrapping_cast<idx_t>(get(VarType::KXX)));
  } else {
    switch (const auto reparam = static_cast<ReparamType>(get(VarType::REP))) {
      case ReparamType::NONE:
        return operations::make_field<MRF<idx_t, val_t>>(engine).release();
      case ReparamType::ISING:
        return operations::make_field<Ising<idx_t, val_t>>(engine).release();
      default:
        return new STRF<idx_t, val_t>(engine, reparam);
    }
  }
}

}  // namespace QZ
