#pragma once

/// The Gibbs sampler.

#include <cstddef>
#include <memory>
#include <optional>
#include <random>
#include <type_traits>
#include <vector>

#include "QZ/inference/gibbs_rule.h"
#include "QZ/inference/gibbs_tables.h"
#include "QZ/inference/pairwise_model.h"
#include "QZ/support/random.h"

namespace QZ {

/// A sequential-scan sampler that draws one vertex at a time from its distribution given its
/// neighbours. Each draw takes two outputs of the random engine, also where the outcome is certain.
///
/// Source   Geman, Geman 1984, Stochastic relaxation, Gibbs distributions, and the Bayesian
///          restoration of images.
template <class idx_t, class val_t>
class GibbsSampler {
 public:
  explicit GibbsSampler(const PairwiseModel<idx_t, val_t>& model)
      : model_(model), vertices_(model.graph->vertices()) {
    idx_t most = 0;
    for (idx_t v = 0; v < vertices_; ++v) most = std::max(most, model_.states[v]);
    potentials_.resize(most);
  }

  /// See `InferenceAlgorithm::GIBBS`. `x` and `observed` have one entry per vertex; `observed` is
  /// the working state and ends equal to `x`.
  void run(val_t* x, idx_t sweeps, bool fixed, val_t* observed, std::mt19937& rng);

 private:
  /// Vertex visits of one call. Counted in `idx_t`; for the narrow types the bound is an int that
  /// the counter may never reach.
  struct Visits {
    std::size_t count;
    bool endless;
  };
  Visits visits(idx_t sweeps) const;
  bool is_fixed(const val_t* x, idx_t v) const {
    return state_index<idx_t>(x[v]) < model_.states[v];
  }
  void start(const val_t* x, val_t* observed, std::mt19937& rng) const;
  void draw(idx_t v, val_t* observed, std::mt19937& rng);
  void run_on_tables(GibbsTables<idx_t, val_t>& tables, const std::vector<idx_t>& order,
                     std::size_t rounds, val_t* observed, std::mt19937& rng);

  /// Sweeps from which on the exponentials of all weights are worth their time.
  static constexpr std::size_t table_sweeps_ = 4;

  PairwiseModel<idx_t, val_t> model_;
  idx_t vertices_;
  std::vector<val_t> potentials_;
};

template <class idx_t, class val_t>
auto GibbsSampler<idx_t, val_t>::visits(idx_t sweeps) const -> Visits {
  if constexpr (sizeof(idx_t) < sizeof(int)) {
    const int bound =
        static_cast<int>(static_cast<unsigned>(vertices_) * static_cast<unsigned>(sweeps));
    if (bound <= 0) return {0, false};
    return {static_cast<std::size_t>(bound), bound > static_cast<int>(all_ones<idx_t>)};
  } else {
    return {wrapping_mul(vertices_, sweeps), false};
  }
}

/// The first state: uniform draws where `x` holds no state.
template <class idx_t, class val_t>
void GibbsSampler<idx_t, val_t>::start(const val_t* x, val_t* observed, std::mt19937& rng) const {
  for (idx_t v = 0; v < vertices_; ++v) {
    val_t first = x[v];
    if (!is_fixed(x, v)) {
      first =
          static_cast<val_t>(draw_uniform<idx_t>(rng, 0, wrapping_sub<idx_t>(model_.states[v], 1)));
    }
    observed[v] = storable_state(first, model_.states[v]);
  }
}

template <class idx_t, class val_t>
void GibbsSampler<idx_t, val_t>::draw(idx_t v, val_t* observed, std::mt19937& rng) {
  observed[v] = free_state<val_t>;
  const double u = draw_canonical(rng);
  const idx_t y = gibbs_choice(model_, observed, v, u, potentials_.data());
  observed[v] = storable_state(static_cast<val_t>(y), model_.states[v]);
}

template <class idx_t, class val_t>
void GibbsSampler<idx_t, val_t>::run(val_t* x, idx_t sweeps, bool fixed, val_t* observed,
                                     std::mt19937& rng) {
  start(x, observed, rng);
  const Visits planned = visits(sweeps);
  for (idx_t i = 0; planned.endless; ++i) {
    const idx_t v = static_cast<idx_t>(i % vertices_);
    if (!(fixed && is_fixed(x, v))) draw(v, observed, rng);
  }
  const std::size_t rounds = vertices_ == 0 ? 0 : planned.count / vertices_;
  const std::size_t rest = vertices_ == 0 ? 0 : planned.count % vertices_;
  std::vector<idx_t> order;
  for (idx_t v = 0; v < vertices_; ++v) {
    if (!(fixed && is_fixed(x, v))) order.push_back(v);
  }
  std::size_t done = 0;
  if constexpr (std::is_floating_point_v<val_t>) {
    if (rounds >= table_sweeps_ && !order.empty()) {
      if (auto tables = GibbsTables<idx_t, val_t>::build(model_)) {
        run_on_tables(*tables, order, rounds, observed, rng);
        done = rounds;
      }
    }
  }
  for (; done < rounds; ++done) {
    for (const idx_t v : order) draw(v, observed, rng);
  }
  for (const idx_t v : order) {
    if (v < rest) draw(v, observed, rng);
  }
  std::copy(observed, observed + vertices_, x);
}

template <class idx_t, class val_t>
void GibbsSampler<idx_t, val_t>::run_on_tables(GibbsTables<idx_t, val_t>& tables,
                                               const std::vector<idx_t>& order, std::size_t rounds,
                                               val_t* observed, std::mt19937& rng) {
  using Tables = GibbsTables<idx_t, val_t>;
  constexpr std::size_t block = 512;
  double draws[block];
  std::size_t drawn = 0;
  std::size_t used = 0;
  std::size_t left = rounds * order.size();
  std::vector<idx_t> state(vertices_);
  for (idx_t v = 0; v < vertices_; ++v) state[v] = state_index<idx_t>(observed[v]);
  for (std::size_t round = 0; round < rounds; ++round) {
    for (const idx_t v : order) {
      if (used == drawn) {
        drawn = std::min(block, left);
        draw_canonicals(rng, draws, drawn);
        left -= drawn;
        used = 0;
      }
      const double u = draws[used++];
      std::size_t y = tables.choose(v, state.data(), u);
      if (y == Tables::undecided) [[unlikely]] {
        observed[v] = free_state<val_t>;
        y = gibbs_choice(model_, observed, v, u, potentials_.data());
      }
      state[v] = static_cast<idx_t>(y);
      observed[v] = static_cast<val_t>(y);
    }
  }
}

}  // namespace QZ
