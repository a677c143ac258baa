#pragma once

/// SAMPLE: fills the table with samples from the model.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <numeric>
#include <random>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/inference/engine.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/operations/cell_state.h"
#include "QZ/machine/vm.h"
#include "QZ/mrf/abstract_mrf.h"
#include "QZ/support/assertion.h"
#include "QZ/support/conversions.h"
#include "QZ/support/first_exception.h"
#include "QZ/support/parallel.h"
#include "QZ/support/progress.h"
#include "QZ/support/random.h"

namespace QZ {

/// Gives an engine a private copy of the weights and a private random engine, and takes them away
/// again before the engine goes.
template <class idx_t, class val_t>
class PrivateWeights {
 public:
  PrivateWeights(InferenceAlgorithm<idx_t, val_t>& engine, std::mt19937& rng)
      : engine_(engine),
        shared_(engine.weights),
        own_(engine.weights, engine.weights + engine.dim) {
    engine_.weights = own_.data();
    engine_.rng = &rng;
  }
  ~PrivateWeights() { engine_.weights = shared_; }
  PrivateWeights(const PrivateWeights&) = delete;
  PrivateWeights& operator=(const PrivateWeights&) = delete;

 private:
  InferenceAlgorithm<idx_t, val_t>& engine_;
  val_t* shared_;
  std::vector<val_t> own_;
};

/// Samples by decoding: perturbs the parameters by Gumbel noise and takes the most probable states.
///
/// Every vertex perturbs one edge that no vertex before it has perturbed, entry by entry; a vertex
/// that finds none adds one number per state of its own to the whole block of its first edge.
/// Source  Papandreou, Yuille 2011, Perturb-and-MAP random fields.
template <class idx_t, class val_t>
class PerturbedDecoder {
 public:
  /// Borrows all four; `scale` multiplies the noise.
  PerturbedDecoder(AbstractMRF<idx_t, val_t>& model, const IO<idx_t, val_t>& container,
                   double scale, std::mt19937& rng)
      : model_(model),
        engine_(*model.engine()),
        container_(container),
        scale_(scale),
        rng_(rng),
        vertices_(engine_.graph->vertices()),
        finished_(engine_.graph->edges()) {}

  /// Replaces the states in `x` that are at or above their vertex's count.
  void sample(val_t* x) {
    const std::size_t n = engine_.graph->vertices();
    for (std::size_t v = 0; v < n; ++v) engine_.observe(static_cast<idx_t>(v), x[v]);
    perturb();
    model_.decode_weights();
    engine_.infer(1);
    for (std::size_t v = 0; v < n; ++v) x[v] = state(static_cast<idx_t>(v));
    std::copy_n(container_.weights, static_cast<std::size_t>(model_.dim), model_.current_point());
  }

 private:
  void perturb() {
    std::fill(finished_.begin(), finished_.end(), false);
    point_ = model_.current_point();
    draw_order(vertices_);
    for (const idx_t v : vertices_) {
      slots_.resize(engine_.graph->num_neighbors(v));
      draw_order(slots_);
      const auto fresh = std::find_if(slots_.begin(), slots_.end(), [&](idx_t slot) {
        return !finished_[engine_.graph->in_edge(v, slot)];
      });
      if (fresh != slots_.end()) {
        perturb_entries(engine_.graph->in_edge(v, *fresh));
      } else if (!slots_.empty()) {
        shift_block(engine_.graph->in_edge(v, 0), engine_.states[v]);
      }
    }
  }

  /// Numbers 0, 1, ... in an order drawn by swaps over the whole range, not over what is left of
  /// it, so not all orders are equally likely.
  void draw_order(std::vector<idx_t>& order) {
    std::iota(order.begin(), order.end(), idx_t(0));
    const std::size_t n = order.size();
    for (std::size_t i = 0; i < n; ++i) {
      std::swap(order[i], order[draw_uniform<idx_t>(rng_, 0, static_cast<idx_t>(n - 1))]);
    }
  }

  void perturb_entries(idx_t e) {
    finished_[e] = true;
    const Range<std::size_t> block = block_of(e);
    for (std::size_t k = block.begin; k < block.end; ++k) add(k, noise());
  }

  void shift_block(idx_t e, idx_t count) {
    const Range<std::size_t> block = block_of(e);
    for (idx_t y = 0; y < count; ++y) {
      const double shift = noise();
      for (std::size_t k = block.begin; k < block.end; ++k) add(k, shift);
    }
  }

  /// The parameters of an edge, as far as the point goes.
  Range<std::size_t> block_of(idx_t e) const {
    const auto place = [&](idx_t edge) {
      return std::min<std::size_t>(container_.weight_offset(edge), model_.dim);
    };
    return {place(e), place(wrapping_add<idx_t>(e, 1))};
  }

  void add(std::size_t k, double amount) {
    const double sum = static_cast<double>(point_[k]) + amount;
    if constexpr (std::is_integral_v<val_t>) {
      point_[k] = saturating_cast<val_t>(sum);
    } else {
      point_[k] = static_cast<val_t>(sum);
    }
  }

  /// A Gumbel variate. The draw stays below 1, so that the inner logarithm is finite.
  double noise() { return -std::log(-std::log(1 - draw_canonical(rng_))) * scale_; }

  /// The observed state where there is one, the last of the most probable ones otherwise. A free
  /// vertex of a floating type holds -1, which counts as an observed state 0 and stays as it is.
  val_t state(idx_t v) const {
    if (state_index<idx_t>(engine_.observed[v]) < engine_.states[v]) return engine_.observed[v];
    idx_t winner = 0;
    val_t best = 0;
    val_t Z = 0;
    for (idx_t y = 0; y < engine_.states[v]; ++y) {
      val_t q = 0;
      engine_.vertex_marginal(v, y, q, Z);
      if (q >= best) {
        best = q;
        winner = y;
      }
    }
    return static_cast<val_t>(winner);
  }

  AbstractMRF<idx_t, val_t>& model_;
  InferenceAlgorithm<idx_t, val_t>& engine_;
  const IO<idx_t, val_t>& container_;
  double scale_;
  std::mt19937& rng_;
  std::vector<idx_t> vertices_;
  std::vector<idx_t> slots_;
  std::vector<bool> finished_;
  val_t* point_ = nullptr;
};

/// The sampler's first state of a row: its cells, and -1 for missing ones.
template <class val_t>
void read_row(const CategoricalData& table, std::size_t row, std::vector<val_t>& x) {
  for (std::size_t v = 0; v < x.size(); ++v) {
    const unsigned long cell = v < table.n + table.H ? table.get(v, row) : CategoricalData::MIS_VAL;
    x[v] = cell_state<val_t>(cell);
  }
}

/// Writes states back as the table's cells. Asserts that each is a category of its column.
template <class idx_t, class val_t>
void write_row(CategoricalData& table, std::size_t row, const std::vector<val_t>& x) {
  const std::size_t columns = std::min<std::size_t>(table.n + table.H, x.size());
  for (std::size_t c = 0; c < columns; ++c) {
    table.set(wrapping_cast<unsigned short>(state_index<idx_t>(x[c])), c, row);
  }
}

/// A narrow index type counts site updates in itself and would never reach the end.
template <class idx_t>
void require_countable_sweeps(std::size_t vertices, idx_t sweeps) {
  if (sizeof(idx_t) < sizeof(unsigned int) &&
      vertices * sweeps > std::numeric_limits<idx_t>::max()) {
    throw std::logic_error("the index type is too narrow for GRE sweeps over the model");
  }
}

template <class idx_t, class val_t>
void vm_t::sampleFunc0() {
  const auto& container = *require_object<IO<idx_t, val_t>>(VarType::MPT);
  assert_that(word(VarType::DPT) != 0, "false", door::misc);
  auto& table = *require_object<CategoricalData>(VarType::DPT);
  set(VarType::GNU, table.N);
  const std::size_t rows = get(VarType::GNU);
  const double scale = getR(VarType::PAM);
  const idx_t sweeps = wrapping_cast<idx_t>(get(VarType::GRE));
  if (scale == 0) require_countable_sweeps<idx_t>(container.graph->vertices(), sweeps);
  const Progress progress{progress_callback(), "SAMPLE"};
  std::size_t started = 1;

  // Known to end the process in a plain run.
  FirstException failure(true);
#pragma omp parallel
  failure.guard([&] {
    unsigned long seed = 0;
#pragma omp critical
    seed = draw_uniform<unsigned long>(*rng, 0, std::numeric_limits<unsigned long>::max());
    std::mt19937 own_rng(static_cast<unsigned int>(seed));
    const std::unique_ptr<InferenceAlgorithm<idx_t, val_t>> engine(getIA<idx_t, val_t>());
    const PrivateWeights<idx_t, val_t> own_weights(*engine, own_rng);
    const std::unique_ptr<AbstractMRF<idx_t, val_t>> model(getMOD<idx_t, val_t>(engine.get()));
    std::copy_n(container.weights, static_cast<std::size_t>(model->dim), model->current_point());
    model->decode_weights();
    PerturbedDecoder<idx_t, val_t> decoder(*model, container, scale, own_rng);
    std::vector<val_t> x(container.graph->vertices());

    const Range<std::size_t> mine = my_share<std::size_t>(rows);
    for (std::size_t row = mine.begin; row < mine.end && !failure.met(); ++row) {
#pragma omp critical
      failure.guard([&] { progress(++started, rows); });
      read_row(table, row, x);
      val_t* states = x.data();
      if (scale == 0) {
        engine->GIBBS(states, sweeps, true);
      } else {
        decoder.sample(states);
      }
      write_row<idx_t>(table, row, x);
    }
  });
  failure.rethrow();
}

}  // namespace QZ
