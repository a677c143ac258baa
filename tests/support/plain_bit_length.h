#pragma once

/// Bit-length propagation as plainly as it can be written, every sum of powers of two formed as a
/// sparse number.

#include <algorithm>
#include <cstddef>
#include <vector>

#include "QZ/comb/sparse_uint.h"
#include "support/pairwise_models.h"

namespace qz_test {

template <class idx_t>
class PlainBitLength {
 public:
  using Model = TestModel<idx_t, idx_t>;
  static constexpr unsigned long width = sizeof(idx_t) * 8;

  PlainBitLength(const Model& model, std::vector<idx_t> observed)
      : model_(model), observed_(std::move(observed)) {
    for (std::size_t e = 0; e < model.edges(); ++e) {
      const auto [s, t] = model.ends(e);
      fresh.push_back({std::vector<idx_t>(model.states[t]), std::vector<idx_t>(model.states[s])});
    }
    old = fresh;
    for (std::size_t v = 0; v < model.vertices(); ++v) beliefs.emplace_back(model.states[v]);
  }

  void run(bool maximum, std::size_t iterations) {
    for (std::size_t i = 0; i < iterations; ++i) {
      for (std::size_t e = 0; e < model_.edges(); ++e) {
        for (int d : {0, 1}) fresh[e][d] = message(e, d, maximum);
      }
      const bool settled = fresh == old;
      old = fresh;
      gather();
      if (settled) return;
    }
  }

  struct Fraction {
    idx_t q;
    idx_t Z;
    bool operator==(const Fraction&) const = default;
  };

  Fraction vertex_marginal(std::size_t v, std::size_t x) const {
    if (beliefs[v].size() == 1) return {1, 1};
    return scaled(beliefs[v], x);
  }

  Fraction edge_marginal(std::size_t e, std::size_t xs, std::size_t xt) const {
    const auto [s, t] = model_.ends(e);
    if (model_.states[s] * model_.states[t] == 1) return {1, 1};
    std::vector<idx_t> exponents;
    for (std::size_t i = 0; i < model_.states[s]; ++i) {
      for (std::size_t j = 0; j < model_.states[t]; ++j) {
        exponents.push_back(static_cast<idx_t>(beliefs[s][i] - fresh[e][1][i] +
                                               model_.weights[model_.at(e, i, j)] + beliefs[t][j] -
                                               fresh[e][0][j]));
      }
    }
    return scaled(exponents, xs * model_.states[t] + xt);
  }

  idx_t log_partition() const { return static_cast<idx_t>(length(sum_of(beliefs[0]))); }

  /// fresh[e][0] goes to the second endpoint of e, fresh[e][1] to the first.
  std::vector<std::vector<std::vector<idx_t>>> fresh, old;
  std::vector<std::vector<idx_t>> beliefs;

 private:
  static QZ::sparse_uint_t sum_of(const std::vector<idx_t>& exponents) {
    QZ::sparse_uint_t sum;
    for (const idx_t e : exponents) sum.p2x(e);
    return sum;
  }
  static unsigned long length(const QZ::sparse_uint_t& x) {
    return x.positions().empty() ? 1 : *x.positions().rbegin() + 1;
  }

  static Fraction scaled(const std::vector<idx_t>& exponents, std::size_t x) {
    QZ::sparse_uint_t S = sum_of(exponents);
    QZ::sparse_uint_t Q;
    Q.p2x(exponents[x]);
    const auto shift_to_fit = [&](const QZ::sparse_uint_t& number) {
      if (number.positions().empty() || length(number) <= width) return;
      const unsigned long k = length(number) - width;
      Q >>= k;
      S >>= k;
    };
    shift_to_fit(QZ::sparse_uint_t(S));
    QZ::sparse_uint_t P = Q;
    P *= 255;
    shift_to_fit(P);
    return {static_cast<idx_t>(Q.to_uint64()), static_cast<idx_t>(S.to_uint64())};
  }

  std::vector<idx_t> message(std::size_t e, int d, bool maximum) const {
    const auto [s, t] = model_.ends(e);
    const std::size_t from = d == 0 ? s : t;
    std::vector<idx_t> out(d == 0 ? model_.states[t] : model_.states[s]);
    for (std::size_t y = 0; y < out.size(); ++y) {
      const auto weight = [&](std::size_t x) {
        return model_.weights[d == 0 ? model_.at(e, x, y) : model_.at(e, y, x)];
      };
      if (observed_[from] < model_.states[from]) {
        out[y] = weight(observed_[from]);
        continue;
      }
      std::vector<idx_t> terms;
      for (std::size_t x = 0; x < model_.states[from]; ++x) {
        terms.push_back(static_cast<idx_t>(beliefs[from][x] - old[e][1 - d][x] + weight(x)));
      }
      out[y] = maximum ? *std::max_element(terms.begin(), terms.end())
                       : static_cast<idx_t>(length(sum_of(terms)));
    }
    const idx_t smallest = *std::min_element(out.begin(), out.end());
    for (idx_t& entry : out) entry = static_cast<idx_t>(entry - smallest);
    return out;
  }

  void gather() {
    for (auto& belief : beliefs) std::fill(belief.begin(), belief.end(), idx_t(0));
    for (std::size_t e = 0; e < model_.edges(); ++e) {
      const auto [s, t] = model_.ends(e);
      for (std::size_t x = 0; x < beliefs[t].size(); ++x) beliefs[t][x] += old[e][0][x];
      for (std::size_t x = 0; x < beliefs[s].size(); ++x) beliefs[s][x] += old[e][1][x];
    }
  }

  const Model& model_;
  std::vector<idx_t> observed_;
};

}  // namespace qz_test
