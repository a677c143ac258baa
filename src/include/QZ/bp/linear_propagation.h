#pragma once

/// Belief propagation on linear values, for the models whose numbers stay in range.

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "QZ/bp/clamped_message.h"
#include "QZ/bp/linear_bounds.h"
#include "QZ/bp/linear_layout.h"
#include "QZ/bp/linear_sweep.h"
#include "QZ/inference/pairwise_model.h"
#include "QZ/support/vector_math.h"

namespace QZ {

/// The iterations of loopy belief propagation as products: messages are linear values that sum to
/// 1, a belief is the product of the messages to a vertex, and a cavity is a belief over a message.
/// The exponential of a weight is taken once per run, and no transcendental function within an
/// iteration.
///
/// What the logarithmic rule clamps would differ here. So bounds on the weights, taken once, tell
/// how far the entries of one belief may lie apart before any number of that rule could leave its
/// range; a run that meets a wider belief gives up and says so.
///
/// Each thread owns a contiguous run of vertices and computes their incoming messages and beliefs
/// in one pass, from the generation before; one barrier separates the iterations.
template <class idx_t, class val_t>
class LinearPropagation {
 public:
  using Model = PairwiseModel<idx_t, val_t>;

  /// Arranges a model for which `LinearLayout::suits` holds. Each run reads its weights anew.
  explicit LinearPropagation(const Model& model);

  struct Settings {
    bool max;
    val_t epsilon;
    idx_t max_iterations;
  };

  /// Makes room for the team of the next run; called outside the parallel region.
  void begin();

  /// The iterations, called by every thread of the team. Returns false, to all of them, where a
  /// clamp could bite.
  bool iterate(const Model& model, const val_t* observed, const Settings& settings);

  /// Afterwards: the logarithms of the messages to the vertices of this thread.
  void take_logarithms();

  /// How many iterations the last run took.
  idx_t iterations() const { return iterations_; }
  const LinearLayout& layout() const { return layout_; }
  /// The exponentials of the weights of edge e: one row per state of its first end, each as long as
  /// the stride of its second end.
  const val_t* potential(std::size_t e) const {
    return potentials_.data() + layout_.first_matrix[e];
  }
  /// The log messages to vertex v, slot after slot, each as long as the stride of v.
  const val_t* log_messages(std::size_t v) const {
    return messages_[1 - current_].data() + layout_.first_entry[v];
  }
  /// The vertices of the calling thread.
  Range<std::size_t> my_vertices() const {
    return layout_.share(omp_get_thread_num(), omp_get_num_threads());
  }

 private:
  /// What a thread tells the others, on cache lines of its own. The movement alternates between two
  /// places, so that a fast thread does not overwrite what a slow one still reads.
  struct alignas(128) Report {
    val_t moved[2] = {0, 0};
    WeightBounds<val_t> bounds;
  };

  void exponentiate(const Model& model, WeightBounds<val_t>& bounds);
  void fill_matrix(const Model& model, std::size_t e, bool with_weights);
  void start_vertex(const Model& model, const val_t* observed, std::size_t v);
  void constant_message(const Model& model, val_t x, std::size_t message, val_t* out) const;
  LinearSweep<val_t> sweep_from(int generation, bool first, std::size_t rank);

  LinearLayout layout_;
  std::vector<val_t> potentials_;
  /// Two generations; after a run those at `current_` are the last ones.
  std::vector<val_t> messages_[2];
  std::vector<val_t> beliefs_[2];
  int current_ = 0;
  idx_t iterations_ = 0;
  BeliefBounds<val_t> belief_bounds_;
  std::size_t largest_stride_ = 1;
  std::vector<Report> reports_;
  std::vector<std::vector<val_t>> scratch_;
};

template <class idx_t, class val_t>
LinearPropagation<idx_t, val_t>::LinearPropagation(const Model& model)
    : layout_(*model.graph, model.states), potentials_(layout_.first_matrix.back()) {
  for (int generation : {0, 1}) {
    messages_[generation].resize(layout_.first_entry.back());
    beliefs_[generation].resize(layout_.first_belief.back());
  }
  for (std::size_t v = 0; v < layout_.vertices(); ++v) {
    largest_stride_ = std::max(largest_stride_, layout_.stride(v));
  }
}

template <class idx_t, class val_t>
void LinearPropagation<idx_t, val_t>::begin() {
  reports_.assign(static_cast<std::size_t>(omp_get_max_threads()), Report{});
  scratch_.resize(reports_.size());
  // Padded, so that the ends of two threads' entries share no cache line.
  for (auto& scratch : scratch_) scratch.resize(largest_stride_ + 128 / sizeof(val_t));
  current_ = 0;
}

template <class idx_t, class val_t>
bool LinearPropagation<idx_t, val_t>::iterate(const Model& model, const val_t* observed,
                                              const Settings& settings) {
  const std::size_t team = static_cast<std::size_t>(omp_get_num_threads());
  const std::size_t rank = static_cast<std::size_t>(omp_get_thread_num());
  const auto range = my_vertices();
  exponentiate(model, reports_[rank].bounds);
  for (std::size_t v = range.begin; v < range.end; ++v) start_vertex(model, observed, v);
#pragma omp barrier
#pragma omp single
  {
    WeightBounds<val_t> all;
    for (std::size_t i = 0; i < team; ++i) all.merge(reports_[i].bounds);
    belief_bounds_ = BeliefBounds<val_t>(all);
  }
  if (!belief_bounds_.fit) return false;

  const auto sweep = linear_sweep_function<val_t>(settings.max, layout_.uniform_states);
  int current = 0;
  idx_t iterations = 0;
  val_t moved = settings.epsilon + 1;
  while (moved > settings.epsilon && moved != 0 && iterations != settings.max_iterations) {
    reports_[rank].moved[current] = sweep(sweep_from(current, iterations == 0, rank));
#pragma omp barrier
    moved = 0;
    for (std::size_t i = 0; i < team; ++i) moved = std::max(moved, reports_[i].moved[current]);
    if (moved == unfit_belief<val_t>) return false;
    current = 1 - current;
    ++iterations;
  }
#pragma omp single
  {
    current_ = current;
    iterations_ = iterations;
  }
  return true;
}

/// Takes the exponentials of this thread's share of the edge blocks, and the bounds of their
/// weights.
template <class idx_t, class val_t>
void LinearPropagation<idx_t, val_t>::exponentiate(const Model& model,
                                                   WeightBounds<val_t>& bounds) {
  const auto share = my_share<std::size_t>(model.graph->edges());
  if (share.begin == share.end) return;
  bool padded = false;
  for (std::size_t e = share.begin; e < share.end; ++e) {
    const auto [s, t] = endpoints(*model.graph, static_cast<idx_t>(e));
    const std::size_t rows = model.states[s];
    const std::size_t columns = model.states[t];
    bounds.add_block(model.weights + model.weight_offsets[e], rows * columns,
                     std::max(rows, columns));
    padded = padded || columns != layout_.stride(t);
  }
  if (!BeliefBounds<val_t>(bounds).fit) return;
  val_t* begin = potentials_.data() + layout_.first_matrix[share.begin];
  const std::size_t count = layout_.first_matrix[share.end] - layout_.first_matrix[share.begin];
  if (!padded) {
    // The blocks lie one behind the other, as their exponentials do.
    exp_all(model.weights + model.weight_offsets[share.begin], begin, count);
    return;
  }
  for (std::size_t e = share.begin; e < share.end; ++e) fill_matrix(model, e, true);
  exp_all(begin, begin, count);
  for (std::size_t e = share.begin; e < share.end; ++e) fill_matrix(model, e, false);
}

/// Copies the weights of an edge to the rows of its matrix, or leaves them, and sets to 0 what lies
/// behind the states.
template <class idx_t, class val_t>
void LinearPropagation<idx_t, val_t>::fill_matrix(const Model& model, std::size_t e,
                                                  bool with_weights) {
  const auto [s, t] = endpoints(*model.graph, static_cast<idx_t>(e));
  const std::size_t columns = model.states[t];
  const std::size_t length = layout_.stride(t);
  const val_t* from = model.weights + model.weight_offsets[e];
  val_t* to = potentials_.data() + layout_.first_matrix[e];
  for (std::size_t x = 0; x < model.states[s]; ++x, from += columns, to += length) {
    if (with_weights) std::copy(from, from + columns, to);
    std::fill(to + columns, to + length, val_t(0));
  }
}

/// Sets the belief of v and the messages to it to 1. What clamped neighbours send goes where the
/// first iteration writes.
template <class idx_t, class val_t>
void LinearPropagation<idx_t, val_t>::start_vertex(const Model& model, const val_t* observed,
                                                   std::size_t v) {
  const std::size_t count = layout_.states[v];
  const std::size_t stride = layout_.stride(v);
  std::fill_n(beliefs_[0].data() + layout_.first_belief[v], count, val_t(1));
  val_t* before = messages_[0].data() + layout_.first_entry[v];
  val_t* after = messages_[1].data() + layout_.first_entry[v];
  for (std::size_t k = layout_.first_slot[v]; k < layout_.first_slot[v + 1]; ++k) {
    std::fill_n(before, count, val_t(1));
    std::fill(before + count, before + stride, val_t(0));
    std::fill(after + count, after + stride, val_t(0));
    const std::size_t sender = layout_.sender[k];
    const bool clamped = is_clamped<idx_t>(observed[sender], model.states[sender]);
    layout_.slots[k].constant = clamped ? 1 : 0;
    if (clamped) constant_message(model, observed[sender], layout_.message_of_slot[k], after);
    before += stride;
    after += stride;
  }
}

template <class idx_t, class val_t>
void LinearPropagation<idx_t, val_t>::constant_message(const Model& model, val_t x,
                                                       std::size_t message, val_t* out) const {
  const auto [s, t] = endpoints(*model.graph, static_cast<idx_t>(message / 2));
  const BlockView block = block_view(model.weight_offsets[message / 2], model.states[s],
                                     model.states[t], message % 2 == 1);
  const std::size_t count = block.receiver_states;
  for (std::size_t y = 0; y < count; ++y) out[y] = clamped_entry<idx_t>(model.weights, block, x, y);
  const val_t top = *std::max_element(out, out + count);
  val_t sum = 0;
  for (std::size_t y = 0; y < count; ++y) {
    out[y] = std::exp(out[y] - top);
    sum += out[y];
  }
  for (std::size_t y = 0; y < count; ++y) out[y] /= sum;
}

template <class idx_t, class val_t>
LinearSweep<val_t> LinearPropagation<idx_t, val_t>::sweep_from(int generation, bool first,
                                                               std::size_t rank) {
  return {&layout_,
          belief_bounds_,
          my_vertices(),
          potentials_.data(),
          messages_[generation].data(),
          messages_[1 - generation].data(),
          beliefs_[generation].data(),
          beliefs_[1 - generation].data(),
          scratch_[rank].data(),
          first};
}

template <class idx_t, class val_t>
void LinearPropagation<idx_t, val_t>::take_logarithms() {
  const auto range = my_vertices();
  const std::size_t begin = layout_.first_entry[range.begin];
  const std::size_t end = layout_.first_entry[range.end];
  val_t* linear = messages_[current_].data();
  // The zeros behind the states would keep the others from the vector form.
  for (std::size_t v = range.begin; v < range.end; ++v) {
    const std::size_t count = layout_.states[v];
    const std::size_t stride = layout_.stride(v);
    if (count == stride) continue;
    for (std::size_t at = layout_.first_entry[v]; at < layout_.first_entry[v + 1]; at += stride) {
      std::fill(linear + at + count, linear + at + stride, val_t(1));
    }
  }
  log_all(linear + begin, messages_[1 - current_].data() + begin, end - begin);
}

}  // namespace QZ
