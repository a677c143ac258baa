#pragma once

/// What an optimizer sees of a model.

#include <algorithm>
#include <cstddef>

namespace QZ {

/// A differentiable objective with a point that an optimizer may move.
///
/// The optimizer writes the array of `current_point`, then calls `decode_weights`, `comp_gradient`
/// and `eval`, in this order: each relies on the one before it.
template <class idx_t, class val_t>
class Function {
 public:
  /// Brings everything derived from the point up to date. To be called after every change of it.
  virtual void decode_weights() = 0;

  /// The point, `dim` entries, for reading and writing. Owned by the function.
  virtual val_t* current_point() = 0;

  /// The objective at the point. Meaningful only after `comp_gradient`.
  virtual val_t eval() = 0;

  /// Computes the gradient at the point, sets `gradient_norm` and returns `gradient`.
  virtual val_t* comp_gradient() = 0;

  /// The gradient as `comp_gradient` left it, `dim` entries. Owned by the function.
  virtual val_t* get_gradient() { return gradient; }

  Function(const Function&) = delete;
  Function& operator=(const Function&) = delete;

  /// Length of the point and of the gradient.
  idx_t dim;
  /// Owned, `dim` entries, zero before the first `comp_gradient`.
  val_t* gradient;
  /// Largest absolute entry of `gradient` after the last `comp_gradient`.
  val_t gradient_norm = 0;
  /// Bound on the curvature of the objective; 0 means that none is known.
  val_t lipschitz = 0;

 protected:
  explicit Function(idx_t length)
      : dim(length), gradient(new val_t[static_cast<std::size_t>(length)]()) {}
  ~Function() { delete[] gradient; }

  /// Changes `dim`, with a new zeroed `gradient`, where a model's point is not its weights.
  void resize(idx_t length) {
    val_t* zeros = new val_t[static_cast<std::size_t>(length)]();
    delete[] gradient;
    gradient = zeros;
    dim = length;
  }
};

}  // namespace QZ
