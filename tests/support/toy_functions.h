#pragma once

/// Objectives that are small enough to follow by hand.

#include <cmath>
#include <string>
#include <vector>

#include "QZ/mrf/function.h"

namespace qz_test {

/// Half the weighted square distance from `target`. Writes each call it receives into `calls`, a
/// letter each: d(ecode), g(radient), e(val), p(oint).
template <class idx_t, class val_t>
class Quadratic : public QZ::Function<idx_t, val_t> {
 public:
  Quadratic(std::vector<val_t> start, std::vector<val_t> target, std::vector<val_t> curvature)
      : QZ::Function<idx_t, val_t>(static_cast<idx_t>(start.size())),
        point(start),
        target(target),
        curvature(curvature) {}

  void decode_weights() override { calls += 'd'; }
  val_t* current_point() override {
    calls += 'p';
    return point.data();
  }
  val_t eval() override {
    calls += 'e';
    val_t sum = 0;
    for (std::size_t i = 0; i < point.size(); ++i) {
      sum += curvature[i] * (point[i] - target[i]) * (point[i] - target[i]) / 2;
    }
    return sum;
  }
  val_t* comp_gradient() override {
    calls += 'g';
    this->gradient_norm = 0;
    for (std::size_t i = 0; i < point.size(); ++i) {
      this->gradient[i] = curvature[i] * (point[i] - target[i]);
      this->gradient_norm = std::max(this->gradient_norm, std::abs(this->gradient[i]));
    }
    return this->gradient;
  }

  std::vector<val_t> point, target, curvature;
  std::string calls;
};

/// Reports the gradient norms of a list, one after the other, whatever its point is. The objective
/// is 100 plus the number of evaluations so far.
template <class idx_t, class val_t>
class Scripted : public QZ::Function<idx_t, val_t> {
 public:
  Scripted(std::vector<val_t> point, std::vector<val_t> norms)
      : QZ::Function<idx_t, val_t>(static_cast<idx_t>(point.size())), point(point), norms(norms) {}

  void decode_weights() override { decoded_at.push_back(point.empty() ? val_t(0) : point[0]); }
  val_t* current_point() override { return point.data(); }
  val_t eval() override { return static_cast<val_t>(100 + evaluations); }
  val_t* comp_gradient() override {
    this->gradient_norm = norms.at(evaluations++);
    return this->gradient;
  }

  std::vector<val_t> point, norms;
  std::size_t evaluations = 0;
  /// The first coordinate at each call of `decode_weights`.
  std::vector<val_t> decoded_at;
};

}  // namespace qz_test
