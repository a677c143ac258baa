#pragma once

/// Engines that a caller could have written: one that enumerates, one that recites a table.

#include <atomic>
#include <cmath>
#include <vector>

#include "QZ/inference/engine.h"

namespace qz_test {

/// Exact marginals by a walk through all configurations, in double, with clamped vertices held at
/// their `observed` state. Mode 1 scores a configuration by the maximum instead of the sum.
template <class idx_t, class val_t>
class ExactEngine : public QZ::InferenceAlgorithm<idx_t, val_t> {
 public:
  using Base = QZ::InferenceAlgorithm<idx_t, val_t>;
  ExactEngine(QZ::AbstractGraph<idx_t>* graph, idx_t* states, val_t* weights = nullptr,
              std::mt19937* rng = nullptr)
      : Base(graph, states, weights, rng) {}

  void infer(const idx_t& mode) override {
    modes.push_back(mode);
    const std::size_t n = this->graph->vertices();
    edge_sums_.assign(this->dim, 0);
    vertex_sums_.assign(n * this->max_states, 0);
    total_ = 0;
    configuration_.assign(n, 0);
    walk(0, mode == 1);
    this->log_partition = static_cast<val_t>(std::log(total_));
  }
  void vertex_marginal(const idx_t& v, const idx_t& x, val_t& q, val_t& Z) const override {
    q = static_cast<val_t>(vertex_sums_[v * std::size_t{this->max_states} + x]);
    Z += static_cast<val_t>(total_);
  }
  void edge_marginal(const idx_t& e, const idx_t& xs, const idx_t& xt, val_t& q,
                     val_t& Z) const override {
    ++edge_calls;
    q = static_cast<val_t>(edge_sums_[entry(e, xs, xt)]);
    Z += static_cast<val_t>(total_);
  }

  std::vector<idx_t> modes;
  mutable std::atomic<std::size_t> edge_calls = 0;

 private:
  std::size_t entry(idx_t e, idx_t xs, idx_t xt) const {
    const auto [s, t] = QZ::endpoints(*this->graph, e);
    return this->weight_offsets[e] + std::size_t{xs} * this->states[t] + xt;
  }
  void walk(std::size_t v, bool maximum) {
    if (v == configuration_.size()) return score(maximum);
    const bool clamped = this->observed[v] >= 0 && this->observed[v] < this->states[v];
    for (idx_t x = 0; x < this->states[v]; ++x) {
      if (clamped && this->observed[v] != x) continue;
      configuration_[v] = x;
      walk(v + 1, maximum);
    }
  }
  void score(bool maximum) {
    double sum = 0;
    for (idx_t e = 0; e < this->graph->edges(); ++e) sum += this->weights[selected(e)];
    const double p = std::exp(sum);
    total_ += p;
    const auto gather = [&](double& slot) { slot = maximum ? std::max(slot, p) : slot + p; };
    for (idx_t e = 0; e < this->graph->edges(); ++e) gather(edge_sums_[selected(e)]);
    for (std::size_t v = 0; v < configuration_.size(); ++v) {
      gather(vertex_sums_[v * this->max_states + configuration_[v]]);
    }
  }
  std::size_t selected(idx_t e) const {
    const auto [s, t] = QZ::endpoints(*this->graph, e);
    return entry(e, configuration_[s], configuration_[t]);
  }

  std::vector<double> edge_sums_, vertex_sums_;
  std::vector<idx_t> configuration_;
  double total_ = 0;
};

/// Gives the q and Z that a test has written down for each parameter.
template <class idx_t, class val_t>
class RecitingEngine : public QZ::InferenceAlgorithm<idx_t, val_t> {
 public:
  RecitingEngine(QZ::AbstractGraph<idx_t>* graph, idx_t* states)
      : QZ::InferenceAlgorithm<idx_t, val_t>(graph, states, nullptr, nullptr),
        q(this->dim),
        Z(this->dim) {}

  void infer(const idx_t&) override {}
  void vertex_marginal(const idx_t&, const idx_t&, val_t&, val_t&) const override {}
  void edge_marginal(const idx_t& e, const idx_t& xs, const idx_t& xt, val_t& q,
                     val_t& Z) const override {
    const auto [s, t] = QZ::endpoints(*this->graph, e);
    const std::size_t k = this->weight_offsets[e] + std::size_t{xs} * this->states[t] + xt;
    q += this->q[k];
    Z += this->Z[k];
  }

  std::vector<val_t> q, Z;
};

}  // namespace qz_test
