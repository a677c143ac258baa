#pragma once

/// The table's cells as states of a model.

#include <type_traits>

#include "QZ/data/categorical_data.h"
#include "QZ/inference/pairwise_model.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// -1 for a missing cell. A number beyond an integer type is no state of any model and must not be
/// cut down to one.
template <class val_t>
val_t cell_state(unsigned long cell) {
  if (cell == CategoricalData::MIS_VAL) return free_state<val_t>;
  if constexpr (std::is_integral_v<val_t>) {
    return saturating_cast<val_t>(cell);
  } else {
    return static_cast<val_t>(cell);
  }
}

}  // namespace QZ
