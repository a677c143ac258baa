#pragma once

/// Gradient descent whose step the caller may replace.

#include <cstddef>
#include <type_traits>

#include "QZ/opt/optimizer.h"
#include "QZ/support/fused.h"

namespace QZ {

/// One gradient step, or whatever the caller's proximal operator makes of it.
///
/// With a `prox_hook` the hook replaces the whole step: it moves `x` by itself, from the gradient,
/// step size and regularization weights in the state.
template <class idx_t, class val_t>
class ProximalGradient : public Optimizer<idx_t, val_t, true> {
  static_assert(std::is_floating_point_v<val_t>);

 public:
  using Callback = typename Optimizer<idx_t, val_t, true>::Callback;

  explicit ProximalGradient(Callback update_hook = nullptr, Callback prox_hook = nullptr)
      : update_hook(update_hook), prox_hook(prox_hook) {}

  void update(Function<idx_t, val_t>* f, OptState<idx_t, val_t>& s) override {
    // Asked of the function even ahead of the hook: a model notes that its point may change.
    val_t* x = f->current_point();
    const val_t* gradient = f->get_gradient();
    if (prox_hook != nullptr) return prox_hook(&s);
    add_scaled(x, x, -s.step, gradient, static_cast<std::size_t>(s.dim));
  }

  /// Kept for the caller; not called.
  Callback update_hook;
  /// Replaces the step; may be null.
  Callback prox_hook;
};

}  // namespace QZ
