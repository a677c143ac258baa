#pragma once

/// INFER: the log partition function and all marginals of the model.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <type_traits>
#include <vector>

#include "QZ/bp/edge_fractions.h"
#include "QZ/data/categorical_data.h"
#include "QZ/inference/engine.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/vm.h"
#include "QZ/mrf/abstract_mrf.h"

namespace QZ {

/// Puts a container's weights back at the end of an operation that works on them in place, also
/// when it ends by an exception.
template <class idx_t, class val_t>
class WeightKeeper {
 public:
  explicit WeightKeeper(IO<idx_t, val_t>& model)
      : model_(model), saved_(model.weights, model.weights + model.dim) {}
  ~WeightKeeper() { std::copy(saved_.begin(), saved_.end(), model_.weights); }
  WeightKeeper(const WeightKeeper&) = delete;
  WeightKeeper& operator=(const WeightKeeper&) = delete;

  const std::vector<val_t>& saved() const { return saved_; }

 private:
  IO<idx_t, val_t>& model_;
  std::vector<val_t> saved_;
};

/// Makes `weights` the model's current point, as far as the point goes, and decodes it.
template <class idx_t, class val_t>
void set_point(AbstractMRF<idx_t, val_t>& model, const std::vector<val_t>& weights) {
  const std::size_t count = std::min<std::size_t>(weights.size(), model.dim);
  std::copy_n(weights.begin(), count, model.current_point());
  model.decode_weights();
}

/// A table's cell as an observed state: -1 where it is missing or, for integers, no state.
template <class idx_t, class val_t>
val_t observed_state(unsigned long cell, idx_t states) {
  if (cell == CategoricalData::MIS_VAL) return free_state<val_t>;
  if (std::is_integral_v<val_t> && cell >= states) return free_state<val_t>;
  return static_cast<val_t>(cell);
}

/// Clamps the engine's vertices to the first row of a table; without one, frees them all.
template <class idx_t, class val_t>
void observe_first_row(InferenceAlgorithm<idx_t, val_t>& engine, const CategoricalData* table) {
  const bool has_row = table != nullptr && table->N > 0;
  for (idx_t v = 0; v < engine.graph->vertices(); ++v) {
    engine.observe(v, has_row ? observed_state<idx_t, val_t>(table->get(v, 0), engine.states[v])
                              : free_state<val_t>);
  }
}

/// Writes all marginals, as fractions formed in double: those of the edges, laid out like the
/// parameters, and behind the `engine.wdim()` of them those of the vertices, one after another.
template <class idx_t, class val_t>
void write_marginals(const InferenceAlgorithm<idx_t, val_t>& engine, double* block) {
  const auto* states = engine.states;
  const auto fraction = [](val_t q, val_t Z) {
    return static_cast<double>(q) / static_cast<double>(Z);
  };
  double* next = block + engine.wdim();
  for (idx_t v = 0; v < engine.graph->vertices(); ++v) {
    for (idx_t x = 0; x < states[v]; ++x) {
      val_t q = 0;
      val_t Z = 0;
      engine.vertex_marginal(v, x, q, Z);
      *next++ = fraction(q, Z);
    }
  }
  std::vector<val_t> q;
  std::vector<val_t> Z;
  for (idx_t e = 0; e < engine.graph->edges(); ++e) {
    read_edge_fractions(engine, e, q, Z);
    std::transform(q.begin(), q.end(), Z.begin(), block + engine.weight_offsets[e], fraction);
  }
}

template <class idx_t, class val_t>
void vm_t::inferFunc0() {
  require_object<AbstractGraph<idx_t>>(VarType::GPT);
  IO<idx_t, val_t>& container = *require_object<IO<idx_t, val_t>>(VarType::MPT);
  const std::unique_ptr<InferenceAlgorithm<idx_t, val_t>> engine(getIA<idx_t, val_t>());
  const std::unique_ptr<AbstractMRF<idx_t, val_t>> model(getMOD<idx_t, val_t>(engine.get()));

  std::size_t entries = engine->wdim();
  for (idx_t v = 0; v < engine->graph->vertices(); ++v) entries += engine->states[v];
  if (word(VarType::PPT) != 0) freeMarginals();
  auto* marginals = new double[entries]();
  set_word(VarType::PPT, reinterpret_cast<unsigned long>(marginals));

  const WeightKeeper<idx_t, val_t> weights(container);
  set_point(*model, weights.saved());
  observe_first_row(*engine, object<CategoricalData>(VarType::DPT));
  engine->infer(get(VarType::SLW) != 0 ? 10 : 0);
  set(VarType::LNZ, static_cast<double>(engine->log_partition));
  write_marginals(*engine, marginals);
}

}  // namespace QZ
