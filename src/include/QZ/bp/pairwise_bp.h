#pragma once

/// Message passing on a pairwise graph, free of the arithmetic of one domain.

#include <algorithm>
#include <limits>
#include <type_traits>

#include "QZ/inference/engine.h"
#include "QZ/support/parallel.h"

namespace QZ {

/// Storage, schedule and iteration step of loopy belief propagation.
///
/// Every iteration computes all messages from the messages and beliefs of the iteration before, in
/// one parallel region, without damping, until no message moves by more than `epsilon` in the
/// linear domain or `max_iterations` is reached. Derived classes say what a logarithm and an
/// exponential are: natural ones for `LBP`, bit lengths for integers.
///
/// Messages  edge e = (s, t) sends to t from message_offsets[2e] on, one entry per state of t, and
/// to
///           s from message_offsets[2e + 1] on, one entry per state of s. The first `message_count`
///           entries are the new generation, the others the old one. Logarithms.
/// Beliefs   vertex v has states[v] entries from belief_offsets[v] on: the sum of the incoming log
///           messages, for floating types centred to mean 0.
/// Source    Pearl 1988, Probabilistic Reasoning in Intelligent Systems; Yedidia, Freeman, Weiss
///           2005, Constructing free-energy approximations.
template <class idx_t, class val_t>
class PairwiseBP : public InferenceAlgorithm<idx_t, val_t> {
 public:
  using Base = InferenceAlgorithm<idx_t, val_t>;
  using Base::graph;
  using Base::max_iterations;
  using Base::observed;
  using Base::states;
  using Base::weight_offsets;
  using Base::weights;

  /// `weights` may be null: then the engine owns a vector of zeros. Throws logic_error "the index
  /// type is too narrow for the model" if parameters, beliefs or both generations of messages
  /// cannot be numbered in `idx_t`.
  PairwiseBP(AbstractGraph<idx_t>* graph, idx_t* states, val_t* weights, std::mt19937* rng,
             unsigned char tree_flag);
  ~PairwiseBP() override;

  /// Mode 0: sum marginals. Mode 10: `infer_slow`, which leaves the beliefs alone. Any other mode:
  /// maximum marginals.
  void infer(const idx_t& mode) override;

  virtual void compute_edge_normalization() = 0;
  virtual void post_process() = 0;
  /// The estimate of the log partition function from beliefs and messages.
  virtual val_t A_local() const = 0;
  virtual val_t map_logarithm(const val_t& x) const = 0;
  virtual val_t map_exponential(const val_t& x) const = 0;
  virtual val_t map_other(const val_t& a, const val_t& b) const = 0;
  /// As `infer`, starting from the messages of the last run, and without a mode 10.
  virtual void infer_continue(const idx_t& mode);

  /// The whole loop, called by every thread of a team; `delta` is set before. MAX selects maximum
  /// marginals.
  template <bool MAX>
  void run(bool keep_messages) {
    run_as<MAX>(*this, keep_messages);
  }

  /// One new generation of messages, called by every thread of a team.
  template <bool MAX>
  void lbp() {
    step_as<MAX>(*this);
  }

  /// The log belief of state x at v without what came in over edge e. Nothing is left out for an
  /// `other` that is no vertex.
  val_t get_log_prod(const idx_t& v, const idx_t& x, const idx_t& other, const idx_t& e) const {
    const val_t belief = beliefs[std::size_t{belief_offsets[v]} + x];
    if (other >= graph->vertices()) return belief;
    const bool first = endpoints(*graph, e).s == v;
    return static_cast<val_t>(belief - messages[message_at(e, first) + x]);
  }

  /// Entries of one generation of messages, and of both.
  idx_t message_count;
  idx_t message_storage;
  /// Convergence threshold.
  val_t epsilon;
  val_t* messages;
  idx_t* message_offsets;
  idx_t* belief_offsets;
  idx_t belief_count;
  val_t* beliefs;
  /// Sum of the linear edge table, and the mean of the log edge table that was subtracted before.
  val_t* edge_partition;
  val_t* edge_centre;
  /// Sum of the linear beliefs of a vertex, -1 where it was not computed yet.
  mutable val_t* vertex_partition;
  /// Whether the caller holds the graph to be a tree. Read by nobody.
  unsigned char tree_flag;
  /// Largest movement of a message in the last iteration, shared by the team.
  val_t delta = 0;
  /// Iterations of the last run.
  idx_t iterations = 0;

 protected:
  /// `run` and `lbp` on behalf of a derived class whose operations the compiler then knows.
  template <bool MAX, class Self>
  static void run_as(Self& self, bool keep_messages);
  template <bool MAX, class Self>
  static void step_as(Self& self);

  /// Opens the team of one inference on behalf of a derived class.
  template <class Self>
  static void infer_as(Self& self, const idx_t& mode, bool keep_messages);

  /// First entry of a message in the new generation: to the first endpoint of e, or to the second.
  std::size_t message_at(idx_t e, bool to_first) const {
    return message_offsets[2 * std::size_t{e} + (to_first ? 1 : 0)];
  }

 private:
  template <class Self>
  static val_t team_movement(const Self& self);
  void clear_messages();
  void keep_generation();
  void update_belief(idx_t v);
};

template <class idx_t, class val_t>
PairwiseBP<idx_t, val_t>::PairwiseBP(AbstractGraph<idx_t>* graph, idx_t* states, val_t* weights,
                                     std::mt19937* rng, unsigned char tree_flag)
    : Base(graph, states, weights, rng), tree_flag(tree_flag) {
  const std::size_t vertices = graph->vertices();
  const std::size_t edges = graph->edges();
  std::size_t entries = 0;
  for (idx_t e = 0; e < edges; ++e) {
    const auto [s, t] = endpoints(*graph, e);
    entries += std::size_t{states[s]} + states[t];
  }
  std::size_t belief_entries = 0;
  for (std::size_t v = 0; v < vertices; ++v) belief_entries += states[v];
  require_addressable<idx_t>(2 * entries);
  require_addressable<idx_t>(belief_entries);

  auto own_messages = std::make_unique<val_t[]>(2 * entries);
  auto own_message_offsets = std::make_unique<idx_t[]>(2 * edges);
  auto own_belief_offsets = std::make_unique<idx_t[]>(vertices);
  auto own_beliefs = std::make_unique<val_t[]>(belief_entries);
  auto own_edge_partition = std::make_unique<val_t[]>(edges);
  auto own_edge_centre = std::make_unique<val_t[]>(edges);
  auto own_vertex_partition = std::make_unique<val_t[]>(vertices);

  message_count = wrapping_cast<idx_t>(entries);
  message_storage = wrapping_cast<idx_t>(2 * entries);
  belief_count = wrapping_cast<idx_t>(belief_entries);
  epsilon = static_cast<val_t>(1e-6);
  idx_t offset = 0;
  for (idx_t e = 0; e < edges; ++e) {
    const auto [s, t] = endpoints(*graph, e);
    own_message_offsets[2 * std::size_t{e}] = offset;
    own_message_offsets[2 * std::size_t{e} + 1] = wrapping_add(offset, states[t]);
    offset = wrapping_add(offset, wrapping_add(states[s], states[t]));
  }
  offset = 0;
  for (std::size_t v = 0; v < vertices; ++v) {
    own_belief_offsets[v] = offset;
    offset = wrapping_add(offset, states[v]);
    own_vertex_partition[v] = free_state<val_t>;
  }
  messages = own_messages.release();
  message_offsets = own_message_offsets.release();
  belief_offsets = own_belief_offsets.release();
  beliefs = own_beliefs.release();
  edge_partition = own_edge_partition.release();
  edge_centre = own_edge_centre.release();
  vertex_partition = own_vertex_partition.release();
}

template <class idx_t, class val_t>
PairwiseBP<idx_t, val_t>::~PairwiseBP() {
  delete[] messages;
  delete[] message_offsets;
  delete[] belief_offsets;
  delete[] beliefs;
  delete[] edge_partition;
  delete[] edge_centre;
  delete[] vertex_partition;
}

template <class idx_t, class val_t>
void PairwiseBP<idx_t, val_t>::infer(const idx_t& mode) {
  if (mode == 10) return this->infer_slow(mode);
  infer_as(*this, mode, false);
}

template <class idx_t, class val_t>
void PairwiseBP<idx_t, val_t>::infer_continue(const idx_t& mode) {
  infer_as(*this, mode, true);
}

}  // namespace QZ

#include "QZ/bp/flooding.h"
