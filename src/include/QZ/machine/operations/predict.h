#pragma once

/// PREDICT: the missing cells of the table, row by row.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/inference/engine.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/operations/cell_state.h"
#include "QZ/machine/operations/infer.h"
#include "QZ/machine/vm.h"
#include "QZ/mrf/abstract_mrf.h"
#include "QZ/support/conversions.h"
#include "QZ/support/interrupt.h"
#include "QZ/support/progress.h"

namespace QZ {

/// Completes one row after the other with the most probable states given its other cells.
///
/// The cells of a row clamp their vertices; the engine's maximum marginals then speak for the free
/// ones. Columns without a vertex are left alone, vertices without a column stay free.
template <class idx_t, class val_t>
class RowPredictor {
 public:
  RowPredictor(InferenceAlgorithm<idx_t, val_t>& engine, const IO<idx_t, val_t>& model,
               CategoricalData& table)
      : engine_(engine),
        model_(model),
        table_(table),
        columns_(std::min<std::size_t>(table.n + table.H, engine.graph->vertices())),
        states_(engine.graph->vertices()),
        seen_(columns_) {}

  /// Fills the gaps of a row and writes all of it back.
  void complete(std::size_t row) {
    observe(row);
    engine_.infer(1);
    for (std::size_t v = 0; v < states_.size(); ++v) states_[v] = state(static_cast<idx_t>(v));
    for (std::size_t c = 0; c < columns_; ++c) {
      const idx_t x = state_index<idx_t>(states_[c]);
      table_.set(wrapping_cast<unsigned short>(x), c, row, true);
    }
  }

  /// Attaches the probabilities of the states to each cell that was missing before `complete`.
  void annotate(std::size_t row) {
    for (std::size_t c = 0; c < columns_; ++c) {
      if (!seen_[c]) table_.annotations[{row, c}] = probabilities(static_cast<idx_t>(c));
    }
  }

 private:
  void observe(std::size_t row) {
    for (std::size_t c = 0; c < columns_; ++c) {
      const unsigned long cell = table_.get(c, row);
      seen_[c] = cell != CategoricalData::MIS_VAL;
      engine_.observe(static_cast<idx_t>(c), cell_state<val_t>(cell));
    }
  }

  /// The observed state where there is one. A free vertex of a floating type holds -1, which counts
  /// as an observed state 0 here, so that the decoded state reaches the table for integers only.
  val_t state(idx_t v) const {
    const val_t observed = engine_.observed[v];
    return state_index<idx_t>(observed) < engine_.states[v] ? observed
                                                            : static_cast<val_t>(most_probable(v));
  }

  /// The last of the states with the largest marginal.
  idx_t most_probable(idx_t v) const {
    idx_t winner = 0;
    val_t best = 0;
    for (idx_t x = 0; x < engine_.states[v]; ++x) {
      val_t q = 0;
      val_t Z = 0;
      engine_.vertex_marginal(v, x, q, Z);
      if (best <= q) {
        best = q;
        winner = x;
      }
    }
    return winner;
  }

  std::string probabilities(idx_t v) {
    text_.str("");
    text_ << '[';
    for (idx_t x = 0; x < engine_.states[v]; ++x) {
      if (x > 0) text_ << ';';
      write_name(v, x);
      text_ << ':' << probability(v, x);
    }
    text_ << ']';
    return text_.str();
  }

  /// A number for a state without a name.
  void write_name(idx_t v, idx_t x) {
    const auto* lists = model_.categoryLists;
    const bool named = lists != nullptr && v < lists->size() && x < lists->at(v)->size();
    if (named) {
      text_ << lists->at(v)->at(x);
    } else {
      text_ << static_cast<unsigned long>(x);
    }
  }

  /// As `val_t` holds it: for integers a certain state has 1 and any other one 0.
  auto probability(idx_t v, idx_t x) const {
    val_t q = 0;
    val_t Z = 0;
    engine_.vertex_marginal(v, x, q, Z);
    const double fraction = static_cast<double>(q) / static_cast<double>(Z);
    if constexpr (std::is_integral_v<val_t>) {
      return static_cast<unsigned long>(saturating_cast<val_t>(fraction));
    } else {
      return static_cast<val_t>(fraction);
    }
  }

  InferenceAlgorithm<idx_t, val_t>& engine_;
  const IO<idx_t, val_t>& model_;
  CategoricalData& table_;
  std::size_t columns_;
  std::vector<val_t> states_;
  std::vector<bool> seen_;
  std::ostringstream text_;
};

template <class idx_t, class val_t>
void vm_t::predictFunc0() {
  auto& table = *require_object<CategoricalData>(VarType::DPT);
  auto& container = *require_object<IO<idx_t, val_t>>(VarType::MPT);
  const std::unique_ptr<InferenceAlgorithm<idx_t, val_t>> engine(getIA<idx_t, val_t>());
  const std::unique_ptr<AbstractMRF<idx_t, val_t>> model(getMOD<idx_t, val_t>(engine.get()));
  const WeightKeeper<idx_t, val_t> weights(container);
  set_point(*model, weights.saved());

  const bool annotates = get(VarType::PPX) != 0;
  const Progress progress{progress_callback(), "PREDICT"};
  RowPredictor<idx_t, val_t> predictor(*engine, container, table);
  progress(0, table.N);
  for (std::size_t row = 0; row < table.N; ++row) {
    predictor.complete(row);
    if (annotates) predictor.annotate(row);
    progress(row + 1, table.N);
    if (stop_requested()) break;
  }
}

}  // namespace QZ
