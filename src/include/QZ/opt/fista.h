#pragma once

/// Accelerated proximal gradient.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <type_traits>

#include "QZ/opt/optimizer.h"
#include "QZ/support/fused.h"

namespace QZ {

/// Gradient steps from a point that momentum has carried ahead.
///
///   x_k = y_k - step * gradient(y_k)                         (or the caller's proximal operator)
///   t_{k+1} = (1 + sqrt(1 + 4 t_k^2)) / 2,   t_1 = 1
///   y_{k+1} = x_k + (t_k - 1) / t_{k+1} * (x_k - x_{k-1})
///
/// Cost    two gradients an iteration: one here at y, one in the loop at x.
/// Source  Beck, Teboulle 2009, A fast iterative shrinkage-thresholding algorithm.
///
/// Keeps two arrays of the point's length from the first step on. Call `reset` before the same
/// object optimizes another function.
template <class idx_t, class val_t>
class FISTA : public Optimizer<idx_t, val_t, true> {
  static_assert(std::is_floating_point_v<val_t>);

 public:
  using Callback = typename Optimizer<idx_t, val_t, true>::Callback;

  explicit FISTA(Callback update_hook = nullptr, Callback prox_hook = nullptr)
      : update_hook(update_hook), prox_hook(prox_hook) {}
  ~FISTA() override { release(); }
  FISTA(const FISTA&) = delete;
  FISTA& operator=(const FISTA&) = delete;

  void update(Function<idx_t, val_t>* f, OptState<idx_t, val_t>& s) override {
    const std::size_t n = static_cast<std::size_t>(s.dim);
    val_t* x = f->current_point();
    extrapolated_start(x, n);
    s.y = y_point;
    // The weights behind the point are not decoded here: a model that expands them only then gives
    // the gradient at the last decoded point.
    s.grad = f->comp_gradient();
    if (update_hook != nullptr) update_hook(&s);
    if (prox_hook != nullptr) {
      prox_hook(&s);
    } else {
      add_scaled(x, y_point, -s.step, s.grad, n);
    }
    extrapolate(y_point, x, next_momentum(), prev_point, n);
  }

  void reset() override {
    release();
    y_point = prev_point = nullptr;
    t_k = 1;
  }

  /// The extrapolated point and the iterate before the last step, owned; null before the first
  /// step.
  val_t* y_point = nullptr;
  val_t* prev_point = nullptr;
  /// The momentum scalar.
  val_t t_k = 1;
  /// Called when the gradient at the extrapolated point is known; may be null.
  Callback update_hook;
  /// Writes the new `x` in place of the gradient step; may be null.
  Callback prox_hook;

 private:
  /// Saves the iterate in `prev_point` and moves `x` to the extrapolated point.
  void extrapolated_start(val_t* x, std::size_t n) {
    if (prev_point == nullptr) prev_point = new val_t[n];
    std::copy_n(x, n, prev_point);
    if (y_point != nullptr) {
      std::copy_n(y_point, n, x);
    } else {
      y_point = new val_t[n];
      std::copy_n(x, n, y_point);
    }
  }

  /// Advances `t_k` and returns the weight of the momentum.
  val_t next_momentum() {
    const val_t t = t_k;
    t_k = (1 + std::sqrt(std::fma(4 * t, t, val_t(1)))) / 2;
    return (t - 1) / t_k;
  }

  void release() {
    delete[] y_point;
    delete[] prev_point;
  }
};

}  // namespace QZ
