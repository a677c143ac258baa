#pragma once

/// SCORE: the mean log-likelihood of the table's rows.

#include <cstddef>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "QZ/data/categorical_data.h"
#include "QZ/inference/engine.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/operations/infer.h"
#include "QZ/machine/vm.h"
#include "QZ/mrf/abstract_mrf.h"
#include "QZ/support/conversions.h"
#include "QZ/support/interrupt.h"
#include "QZ/support/progress.h"
#include "QZ/support/random.h"

namespace QZ {

/// Adds up the weights that a row selects. Gaps are filled by uniform draws, a fresh one for each.
template <class idx_t, class val_t>
class RowScorer {
 public:
  /// Throws logic_error "the table does not have one column per vertex of the model" if it has
  /// rows.
  RowScorer(const InferenceAlgorithm<idx_t, val_t>& engine, const CategoricalData& table,
            std::mt19937& rng)
      : engine_(engine), table_(table), rng_(rng), row_(engine.graph->vertices()) {
    if (table.N > 0 && table.n + table.H != row_.size()) {
      throw std::logic_error("the table does not have one column per vertex of the model");
    }
    blocks_.reserve(engine.graph->edges());
    for (idx_t e = 0; e < engine.graph->edges(); ++e) {
      const auto [s, t] = endpoints(*engine.graph, e);
      blocks_.push_back({s, t, engine.states[t], engine.weights + engine.weight_offsets[e]});
    }
  }

  /// The log-potential of a row. Throws logic_error for a cell that is no state of the model.
  val_t operator()(std::size_t row) {
    for (std::size_t c = 0; c < row_.size(); ++c) row_[c] = cell(c, row);
    val_t sum = 0;
    for (const Block& block : blocks_) {
      sum += block.weights[row_[block.s] * block.columns + row_[block.t]];
    }
    return sum;
  }

 private:
  struct Block {
    std::size_t s;
    std::size_t t;
    std::size_t columns;
    const val_t* weights;
  };

  std::size_t cell(std::size_t c, std::size_t row) {
    const idx_t states = engine_.states[c];
    const unsigned long x = table_.get(c, row);
    if (x == CategoricalData::MIS_VAL && states > 0) {
      return draw_uniform<idx_t>(rng_, 0, wrapping_sub<idx_t>(states, 1));
    }
    if (x >= states) {
      throw std::logic_error("row " + std::to_string(row) +
                             " holds no state of the model in column " + std::to_string(c));
    }
    return x;
  }

  const InferenceAlgorithm<idx_t, val_t>& engine_;
  const CategoricalData& table_;
  std::mt19937& rng_;
  std::vector<std::size_t> row_;
  std::vector<Block> blocks_;
};

/// The sum over rows divided by their number: NaN without rows for floating types, 0 for integers.
template <class val_t>
val_t mean_over_rows(val_t sum, std::size_t rows) {
  if constexpr (std::is_integral_v<val_t>) {
    return rows == 0 ? val_t(0) : static_cast<val_t>(sum / rows);
  } else {
    return sum / static_cast<val_t>(rows);
  }
}

template <class idx_t, class val_t>
void vm_t::scoreFunc0() {
  auto& table = *require_object<CategoricalData>(VarType::DPT);
  auto& container = *require_object<IO<idx_t, val_t>>(VarType::MPT);
  const std::unique_ptr<InferenceAlgorithm<idx_t, val_t>> engine(getIA<idx_t, val_t>());
  const std::unique_ptr<AbstractMRF<idx_t, val_t>> model(getMOD<idx_t, val_t>(engine.get()));
  const WeightKeeper<idx_t, val_t> weights(container);
  set_point(*model, weights.saved());
  // Real registers hold doubles, but what an integer model gives is stored as the word it is.
  using word_t = std::conditional_t<std::is_integral_v<val_t>, unsigned long, double>;

  engine->infer(get(VarType::SLW) != 0 ? 10 : 0);
  const val_t log_partition = engine->log_partition;
  set(VarType::LNZ, static_cast<word_t>(log_partition));

  const Progress progress{progress_callback(), "SCORE"};
  RowScorer<idx_t, val_t> score(*engine, table, *rng);
  val_t sum = 0;
  for (std::size_t row = 0; row < table.N; ++row) {
    progress(row + 1, table.N);
    sum += static_cast<val_t>(score(row) - log_partition);
    if (stop_requested()) break;
  }
  // All rows count, also those that a request to stop has left out.
  set(VarType::RES, static_cast<word_t>(mean_over_rows(sum, table.N)));
}

}  // namespace QZ
