#pragma once

/// What a clamped vertex tells its neighbours.

#include <cmath>
#include <cstddef>

#include "QZ/inference/pairwise_model.h"

namespace QZ {

/// One message's view of its edge block: the parameter of sender state x and receiver state y is
/// at start + x * sender_stride + y * receiver_stride.
struct BlockView {
  std::size_t start;
  std::size_t sender_stride;
  std::size_t receiver_stride;
  std::size_t sender_states;
  std::size_t receiver_states;

  std::size_t at(std::size_t x, std::size_t y) const {
    return start + x * sender_stride + y * receiver_stride;
  }
};

/// The view of the message to the second endpoint of an edge, or of the one to the first.
inline BlockView block_view(std::size_t start, std::size_t s_states, std::size_t t_states,
                            bool to_first) {
  return to_first ? BlockView{start, 1, t_states, t_states, s_states}
                  : BlockView{start, t_states, 1, s_states, t_states};
}

/// Entry y of the message from a sender observed in state `x`: the parameter itself. A real x
/// strictly between 0 and 1 is a soft observation and mixes the rows of the states 0 and 1; a
/// sender of one state has only row 0 to mix.
template <class idx_t, class val_t>
val_t clamped_entry(const val_t* weights, const BlockView& block, val_t x, std::size_t y) {
  if constexpr (std::is_floating_point_v<val_t>) {
    if (x > 0 && x < 1) {
      const val_t w0 = weights[block.at(0, y)];
      const val_t w1 = weights[block.at(block.sender_states > 1 ? 1 : 0, y)];
      return std::fma(1 - x, w0, x * w1);
    }
  }
  return weights[block.at(state_index<idx_t>(x), y)];
}

}  // namespace QZ
