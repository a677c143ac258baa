#pragma once

/// Exact propagation on a junction tree.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

#include "QZ/bp/table_margin.h"
#include "QZ/graph/junction_tree.h"
#include "QZ/inference/engine.h"
#include "QZ/support/assertion.h"
#include "QZ/support/large_array.h"
#include "QZ/support/vector_math.h"

namespace QZ {

/// Exact marginals and the exact log partition function, by messages between the cliques of a
/// junction tree of the model's graph. Knows neither observations nor maximum marginals, and takes
/// no notice of a mode.
///
/// Tables   natural logarithms, one table per clique and per separator, in node order, the table of
///          node C from node_offsets[C] on. Entry i decodes over the node's vertices in ascending
///          order, with the lowest vertex as the fastest digit.
/// Cost     that of the largest clique table; one exponential per entry and pass. The tree and the
///          ways through the tables are built once, and nothing is allocated afterwards.
/// Threads  `infer` runs on the calling thread; several threads may ask for marginals afterwards.
/// Source   Jensen, Lauritzen, Olesen 1990, Bayesian updating in causal probabilistic networks.
template <class idx_t, class val_t>
class HuginAlgorithm : public InferenceAlgorithm<idx_t, val_t> {
  static_assert(std::is_floating_point_v<val_t>);

 public:
  using Base = InferenceAlgorithm<idx_t, val_t>;
  using Base::graph;
  using Base::states;
  using Base::weight_offsets;
  using Base::weights;

  /// `weights` may be null: then the engine owns a vector of zeros. Throws logic_error "the index
  /// type is too narrow for the model" if the entries of all tables cannot be numbered in `idx_t`.
  HuginAlgorithm(AbstractGraph<idx_t>* graph, idx_t* states, val_t* weights, std::mt19937* rng);
  ~HuginAlgorithm() override;

  void infer(const idx_t& mode) override;
  /// The sum over the smallest node that holds v, 0 if v has no state x. Z is 1. Throws
  /// out_of_range if there is no such vertex.
  void vertex_marginal(const idx_t& v, const idx_t& x, val_t& q, val_t& Z) const override;
  /// The sum over the smallest node that holds both ends of e, 0 if one of them has no such state.
  /// Z is 1. Throws out_of_range if there is no such edge.
  void edge_marginal(const idx_t& e, const idx_t& xs, const idx_t& xt, val_t& q,
                     val_t& Z) const override;

  /// Adds the weights of every edge to the table of the first node that holds both of its ends.
  /// Asserts that this node is a clique.
  void convert_w_psi();

  /// Sends messages from the far ends of the tree towards C, not beyond `parent`. What a message
  /// says about the total mass behind it is left out: it is the same for every entry, and would
  /// outgrow the range of exp on a long tree.
  void collect(const idx_t& C, const idx_t& parent);

  /// Sends messages from C outwards, not towards `parent`, and normalises every table on the way.
  void distribute(const idx_t& C, const idx_t& parent);

  /// One Hugin step: the clique `to` learns what `from` believes about the vertices that both
  /// share. The separator S takes the new log margin of `from`, and `to` is shifted by new - old. A
  /// margin above the largest number is held there.
  void hugin_message(const idx_t& from, const idx_t& to, const idx_t& S);

  /// Entries of each node's table, and where it begins.
  idx_t* node_size;
  idx_t* node_offsets;
  /// All tables, cliques and separators.
  val_t* potentials;
  idx_t potential_count = 0;
  /// Entries of the cliques alone.
  idx_t clique_potential_count = 0;
  JunctionTree<idx_t>* tree;
  /// The node that takes the weights of each edge; the first separator where no clique holds both
  /// ends.
  std::vector<idx_t> node_of_edge;

 private:
  /// A node that holds some vertices, and what one step of their digits means in its table.
  struct Place {
    idx_t node = 0;
    std::size_t stride = 0;
    std::size_t second_stride = 0;
  };
  /// A vertex of a node in a given state.
  struct Digit {
    std::size_t stride;
    std::size_t states;
    std::size_t state;
  };
  /// A separator at a clique, and the edge of the tree between the two.
  struct Link {
    idx_t separator;
    idx_t edge;
  };
  /// A clique on the way through the tree, with the separator that it was reached by, and the range
  /// of the other separators at it among `links_`. Node 0 is a clique, so that as a separator 0
  /// means none.
  struct Step {
    idx_t clique;
    idx_t parent;
    Link origin;
    std::size_t first = 0;
    std::size_t last = 0;
  };
  /// A table over a part of a clique, to be added to the clique's, and how it lies in it.
  struct Term {
    const TableMargins* margins;
    std::size_t margin;
    const val_t* part;
  };

  void lay_out_tables();
  void find_places();
  void group_edges();
  void trace_margins();
  std::size_t stride_in(idx_t node, idx_t v) const;
  Place place_in(idx_t node, idx_t s, idx_t t) const;

  val_t* table(idx_t node) { return potentials + node_offsets[node]; }
  const val_t* table(idx_t node) const { return potentials + node_offsets[node]; }
  /// The edge of the tree between a separator and one of its two cliques.
  idx_t edge_between(idx_t clique, idx_t separator) const;
  std::span<const Link> behind(const Step& step) const {
    return {links_.data() + step.first, links_.data() + step.last};
  }
  std::size_t room_for(std::span<const Link> links) const;

  void list_weights(idx_t C);
  void add_weights_of(idx_t node);
  void trace(idx_t C, idx_t parent);
  void send_inwards(const Step& step, bool anew);
  void send_outwards(const Step& step);
  val_t* learn_block(idx_t C, std::size_t b, bool anew);
  val_t learn(idx_t C, bool anew, std::span<const Link> links, val_t* sums);
  val_t learn_and_sum(idx_t C, bool anew, std::span<const Link> links, val_t* sums);

  static void hold(val_t* sums, std::size_t size);
  static void scale_to_one(val_t* sums, std::size_t size);
  void send(idx_t S, val_t* sums);
  void store_message(idx_t S, val_t* sums, val_t* news);
  void shift(idx_t C, val_t by);
  val_t log_of_first(idx_t node) const;
  val_t sum_at(const Place& place, const Digit& low, const Digit& high) const;

  /// Edges grouped by the node that takes their weights, and where the group of each node begins.
  std::vector<idx_t> edges_by_node_;
  std::vector<std::size_t> first_edge_;
  /// The smallest node that holds each vertex, and both ends of each edge.
  std::vector<Place> place_of_vertex_;
  std::vector<Place> place_of_edge_;
  /// How a separator lies in a clique, by edge of the tree, and the ends of an edge in theirs.
  TableMargins separator_margins_;
  TableMargins weight_margins_;
  /// How each clique is walked.
  std::vector<TableBlocks> blocks_;
  /// What `potentials` points to.
  LargeArray<val_t> tables_;
  /// A block of the largest clique, the weights of the edges of one clique, and one message.
  std::unique_ptr<val_t[]> block_;
  std::unique_ptr<val_t[]> clique_weights_;
  std::unique_ptr<val_t[]> message_;
  /// What is new in the messages that the next cliques have not learned yet, the last one on top.
  std::unique_ptr<val_t[]> pending_;
  std::size_t pending_count_ = 0;
  /// The way through the tree, each clique before all that lie behind it.
  std::vector<Step> steps_;
  std::vector<Link> links_;
  std::vector<Step> open_;
  std::vector<Term> terms_;
};

}  // namespace QZ

#include "QZ/bp/hugin_layout.h"
#include "QZ/bp/hugin_marginals.h"
#include "QZ/bp/hugin_messages.h"
