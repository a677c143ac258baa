#pragma once

/// A model: an objective bound to one inference engine and one set of empirical moments.

#include "QZ/graph/abstract_graph.h"
#include "QZ/inference/engine.h"
#include "QZ/mrf/function.h"

namespace QZ {

/// The objective of an undirected model whose weights are those of an engine.
///
/// Layout    one row-major block per edge, in edge order: the state pair (xs, xt) of edge e = (s,
/// t)
///           lies at weight_offsets[e] + xs * states[t] + xt. There are no vertex parameters.
/// Ownership the engine, the arrays borrowed from it and the empirical moments belong to the
///           caller and must outlive the model.
template <class idx_t, class val_t>
class AbstractMRF : public Function<idx_t, val_t> {
 public:
  val_t* current_point() override { return weights; }

  virtual ~AbstractMRF() = default;

  /// Gives the model its data, before the first `comp_gradient`. `moments` has one entry per engine
  /// weight, in the layout above: relative frequencies for float and double, counts for integers.
  /// `n` is the number of data rows. The array is borrowed.
  virtual void set_empirical(val_t*& moments, const idx_t& n) {
    emp = moments;
    samples = n;
  }

  /// The engine that answers for this model. Borrowed.
  virtual InferenceAlgorithm<idx_t, val_t>* engine() { return engine_; }

  /// Data rows behind `emp`; 0 before `set_empirical`.
  idx_t samples = 0;
  /// The engine's graph, state counts and weights, never copies.
  AbstractGraph<idx_t>* graph;
  idx_t* states;
  val_t* weights;
  /// Null before `set_empirical`.
  val_t* emp = nullptr;

 protected:
  explicit AbstractMRF(InferenceAlgorithm<idx_t, val_t>* engine)
      : Function<idx_t, val_t>(engine->wdim()),
        graph(engine->graph),
        states(engine->states),
        weights(engine->weights),
        engine_(engine) {}

  InferenceAlgorithm<idx_t, val_t>* engine_;
};

}  // namespace QZ
