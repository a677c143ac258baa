#pragma once

/// Plain gradient descent.

#include <cstddef>
#include <type_traits>

#include "QZ/opt/optimizer.h"
#include "QZ/support/fused.h"

namespace QZ {

/// x <- x - step * gradient, each entry fused.
template <class idx_t, class val_t>
class GradientDescent : public Optimizer<idx_t, val_t, true> {
  static_assert(std::is_floating_point_v<val_t>);

 public:
  using Callback = typename Optimizer<idx_t, val_t, true>::Callback;

  explicit GradientDescent(Callback update_hook = nullptr) : update_hook(update_hook) {}

  /// Works on the arrays of the state alone.
  void update(Function<idx_t, val_t>*, OptState<idx_t, val_t>& s) override {
    add_scaled(s.x, s.x, -s.step, s.grad, static_cast<std::size_t>(s.dim));
  }

  /// Kept for the caller; not called.
  Callback update_hook;
};

}  // namespace QZ
