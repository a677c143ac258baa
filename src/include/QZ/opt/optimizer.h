#pragma once

/// The optimizer loop, and the record that its steps and the caller's callbacks share.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <random>
#include <type_traits>

#include "QZ/mrf/function.h"
#include "QZ/support/conversions.h"
#include "QZ/support/interrupt.h"

namespace QZ {

/// State of a running optimization. Callbacks may be foreign functions, so the order and types of
/// the fields and their natural alignment are part of the interface.
template <class idx_t, class val_t>
struct OptState {
  /// Objective and gradient norm at the point.
  val_t obj;
  val_t gnorm;
  /// Step size of this iteration, and its lower bound; a bound of 0 means that the curvature of the
  /// objective is not known.
  val_t step;
  val_t min_step;
  /// Regularization weights, for callbacks. Nothing in the library applies them. 0 for integers.
  val_t lam;
  val_t elam;
  /// Iterations done, their limit, and the length of the point.
  idx_t iter;
  idx_t max_iter;
  idx_t dim;
  /// The point and the gradient, `dim` entries, borrowed from the function.
  val_t* x;
  val_t* grad;
  /// The extrapolated point of an accelerated method, borrowed from the optimizer; null otherwise.
  val_t* y;
  /// 1 for integers, 0 otherwise.
  val_t tag;
  /// Objective, gradient norm and copy of the point with the smallest gradient norm so far. The
  /// numbers start at the largest finite value.
  val_t best_obj;
  val_t best_gnorm;
  val_t* best_x;
  /// Bytes of one `val_t`.
  idx_t value_size;
  /// What the caller handed over.
  void* user;
  /// Set when the gradient norm has stopped to fall. The loop ends at its next test.
  bool converged;
};

/// Moves the point of a function towards a smaller objective, step by step.
///
/// The loop owns limits, step sizes, callbacks and the memory of the best point; `update` makes one
/// step. The best point is the one with the smallest gradient norm, whatever its objective.
template <class idx_t, class val_t, bool minimize>
class Optimizer {
  static_assert(minimize, "objectives are minimized");

 public:
  using State = OptState<idx_t, val_t>;
  using Callback = void (*)(State*);

  /// Moves the point of `f` by one step of size `s.step`.
  virtual void update(Function<idx_t, val_t>* f, State& s) = 0;
  virtual ~Optimizer() = default;
  /// Forgets what earlier steps have left behind.
  virtual void reset() {}

  /// Runs at most `max_iter` steps and leaves `f` at the point with the smallest gradient norm that
  /// a step has reached, or at its first point if there is none. Returns the objective there;
  /// without a finite gradient norm at any step, the largest finite value.
  ///
  /// before    called ahead of the first step and after every step; may be null
  /// after     called after every step, behind `before`, and once more at the end; may be null
  /// user      handed on to the callbacks
  /// step      first step size; step / sqrt(k) in iteration k for float and double, down to
  ///           1 / (eta * lipschitz), and constant for integers
  /// restore   whether a step that does not lower the gradient norm is undone
  ///
  /// Ends early when `epsilon` is above the last decrease of the best gradient norm, when a
  /// callback sets `converged`, or on a request to stop. Allocates one copy of the point.
  val_t opt(Function<idx_t, val_t>* f, Callback before, Callback after, void* user,
            const idx_t& max_iter, const val_t& step, const bool& restore, const val_t& lam,
            const val_t& elam);

  /// The loop ends once the best gradient norm falls by less than this.
  val_t epsilon = 0;
  /// Safety factor on the function's curvature bound.
  val_t eta = std::is_integral_v<val_t> ? val_t(1) : val_t(1.001);
  /// Borrowed source of randomness; null where none is needed.
  std::mt19937* rng = nullptr;

 private:
  static State initial_state(Function<idx_t, val_t>& f);
  val_t smallest_step(val_t lipschitz, val_t step) const;
  static val_t scheduled_step(const State& s, val_t first_step);
  static void evaluate(Function<idx_t, val_t>& f, State& s);
  void keep_better(State& s, val_t* point, val_t* best, std::size_t n, bool restore) const;
};

/// Evaluates `f` at its point, for the first time.
template <class idx_t, class val_t, bool minimize>
auto Optimizer<idx_t, val_t, minimize>::initial_state(Function<idx_t, val_t>& f) -> State {
  State s{};
  s.best_obj = s.best_gnorm = std::numeric_limits<val_t>::max();
  s.value_size = sizeof(val_t);
  s.tag = std::is_integral_v<val_t> ? 1 : 0;
  s.dim = f.dim;
  evaluate(f, s);
  s.x = f.current_point();
  return s;
}

template <class idx_t, class val_t, bool minimize>
void Optimizer<idx_t, val_t, minimize>::evaluate(Function<idx_t, val_t>& f, State& s) {
  f.decode_weights();
  f.comp_gradient();
  s.grad = f.get_gradient();
  s.obj = f.eval();
  s.gnorm = f.gradient_norm;
}

template <class idx_t, class val_t, bool minimize>
val_t Optimizer<idx_t, val_t, minimize>::smallest_step(val_t lipschitz, val_t step) const {
  if (lipschitz == 0) return 0;
  if constexpr (std::is_integral_v<val_t>) {
    const float bound = 1.0f / static_cast<float>(wrapping_mul(lipschitz, eta));
    return std::min(step, saturating_cast<val_t>(bound));
  } else {
    const val_t bound = 1 / (lipschitz * eta);
    return bound > step ? step : bound;
  }
}

template <class idx_t, class val_t, bool minimize>
val_t Optimizer<idx_t, val_t, minimize>::scheduled_step(const State& s, val_t first_step) {
  if constexpr (std::is_integral_v<val_t>) {
    return first_step;
  } else {
    const double k = static_cast<double>(s.iter) + 1;
    const val_t decayed = static_cast<val_t>(static_cast<double>(first_step) / std::sqrt(k));
    return s.min_step < decayed ? decayed : s.min_step;
  }
}

/// Remembers the point if its gradient norm is the smallest so far. A NaN is never smaller.
template <class idx_t, class val_t, bool minimize>
void Optimizer<idx_t, val_t, minimize>::keep_better(State& s, val_t* point, val_t* best,
                                                    std::size_t n, bool restore) const {
  if (s.gnorm < s.best_gnorm) {
    std::copy_n(point, n, best);
    // Integers are compared as doubles, like the floating types.
    using real_t = std::conditional_t<std::is_integral_v<val_t>, double, val_t>;
    const real_t change = static_cast<real_t>(s.best_gnorm) - static_cast<real_t>(s.gnorm);
    if (static_cast<real_t>(epsilon) > std::abs(change)) s.converged = true;
    s.best_obj = s.obj;
    s.best_gnorm = s.gnorm;
  } else if (restore) {
    std::copy_n(best, n, point);
  }
}

template <class idx_t, class val_t, bool minimize>
val_t Optimizer<idx_t, val_t, minimize>::opt(Function<idx_t, val_t>* f, Callback before,
                                             Callback after, void* user, const idx_t& max_iter,
                                             const val_t& step, const bool& restore,
                                             const val_t& lam, const val_t& elam) {
  State s = initial_state(*f);
  s.max_iter = max_iter;
  s.step = step;
  s.lam = lam;
  s.elam = elam;
  s.user = user;
  s.min_step = smallest_step(f->lipschitz, step);

  // A callback may write to the record, so the loop keeps its own view of the arrays.
  val_t* const point = s.x;
  const std::size_t n = static_cast<std::size_t>(s.dim);
  const std::unique_ptr<val_t[]> best(new val_t[n]);
  std::copy_n(point, n, best.get());
  s.best_x = best.get();

  if (before != nullptr) before(&s);
  while (s.iter < s.max_iter && !stop_requested() && !s.converged) {
    s.step = scheduled_step(s, step);
    update(f, s);
    evaluate(*f, s);
    if (before != nullptr) before(&s);
    if (after != nullptr) after(&s);
    keep_better(s, point, best.get(), n, restore);
    ++s.iter;
  }
  if (after != nullptr) after(&s);

  std::copy_n(best.get(), n, point);
  f->decode_weights();
  return s.best_obj;
}

}  // namespace QZ
