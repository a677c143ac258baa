#pragma once

/// Propagation of `HuginAlgorithm`.

#include "QZ/bp/hugin.h"

namespace QZ {

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::infer(const idx_t&) {
  for (const idx_t C : node_of_edge)
    assert_that(!tree->isSeparator(C), "!H->isSeparator(C)", door::bp);
  if (tree->vertices() > 0) {
    // A table is made when the messages to it are at hand, so that it is touched once on either
    // way.
    trace(0, 0);
    for (std::size_t i = steps_.size(); i-- > 0;) send_inwards(steps_[i], true);
    for (const Step& step : steps_) send_outwards(step);
  }
  double log_first = 0;
  for (idx_t node = 0; node < tree->vertices(); ++node) {
    const double term = node_size[node] == 0 ? 0 : static_cast<double>(log_of_first(node));
    log_first += tree->isSeparator(node) ? -term : term;
  }
  double first_weights = 0;
  for (idx_t e = 0; e < graph->edges(); ++e) {
    if (weight_offsets[e] != weight_offsets[std::size_t{e} + 1]) {
      first_weights += static_cast<double>(weights[weight_offsets[e]]);
    }
  }
  this->log_partition = static_cast<val_t>(first_weights - log_first);
}

/// The logarithm of the probability of state 0 of all vertices of a node, at least that of the
/// smallest number and at most 0.
template <class idx_t, class val_t>
val_t HuginAlgorithm<idx_t, val_t>::log_of_first(idx_t node) const {
  const val_t entry = *table(node);
  if (std::exp(entry) == 0) return std::log(std::numeric_limits<val_t>::min());
  return entry > 0 ? val_t(0) : entry;
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::convert_w_psi() {
  for (std::size_t node = 0; node + 1 < first_edge_.size(); ++node) {
    add_weights_of(static_cast<idx_t>(node));
  }
}

/// Lists the weights of all edges in the group of C as tables over their ends, the lower end as the
/// fastest digit.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::list_weights(idx_t C) {
  weight_margins_.clear();
  val_t* turned = clique_weights_.get();
  const std::size_t last = first_edge_[std::size_t{C} + 1];
  for (std::size_t i = first_edge_[C]; i < last; ++i) {
    const idx_t e = edges_by_node_[i];
    const idx_t node = node_of_edge[e];
    assert_that(!tree->isSeparator(node), "!H->isSeparator(C)", door::bp);
    if (node_size[node] == 0) continue;
    const auto [s, t] = endpoints(*graph, e);
    bool found_s = false;
    bool found_t = false;
    weight_margins_.begin();
    for (const idx_t v : tree->vertexObjects(node)) {
      weight_margins_.add_vertex(states[v], v == s || v == t);
      found_s = found_s || v == s;
      found_t = found_t || v == t;
    }
    assert_that(found_s && found_t, "xs!=(idx_t)-1&&xt!=(idx_t)-1", door::bp);
    const val_t* block = weights + weight_offsets[e];
    const std::size_t rows = states[s];
    const std::size_t columns = states[t];
    terms_.push_back({&weight_margins_, weight_margins_.size() - 1, t < s ? block : turned});
    if (t < s) continue;
    if (s == t) {
      for (std::size_t x = 0; x < rows; ++x) *turned++ = block[x * columns + x];
      continue;
    }
    for (std::size_t y = 0; y < columns; ++y) {
      for (std::size_t x = 0; x < rows; ++x) *turned++ = block[x * columns + y];
    }
  }
}

/// Adds the terms to block number b of C, or puts them in its place.
template <class idx_t, class val_t>
val_t* HuginAlgorithm<idx_t, val_t>::learn_block(idx_t C, std::size_t b, bool anew) {
  const std::size_t size = blocks_[C].entries;
  val_t* block = table(C) + b * size;
  if (anew) std::fill_n(block, size, val_t(0));
  for (const Term& term : terms_) term.margins->spread(term.margin, b, term.part, block);
  return block;
}

/// Adds the weights of the edges in the group of a node.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::add_weights_of(idx_t node) {
  terms_.clear();
  list_weights(node);
  if (terms_.empty()) return;
  for (std::size_t b = 0; b < blocks_[node].count; ++b) learn_block(node, b, false);
}

/// Leaves in `steps_` the way from C through all that lies behind it, seen from `parent`.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::trace(idx_t C, idx_t parent) {
  // Walks the tree with a path of its own: a chain of cliques may be longer than the call stack.
  steps_.clear();
  links_.clear();
  open_.clear();
  pending_count_ = 0;
  open_.push_back({C, parent, {0, 0}});
  while (!open_.empty()) {
    Step step = open_.back();
    open_.pop_back();
    step.first = links_.size();
    const idx_t degree = tree->num_neighbors(step.clique);
    for (idx_t slot = 0; slot < degree; ++slot) {
      const idx_t e = tree->in_edge(step.clique, slot);
      const auto near = endpoints(*tree, e);
      const idx_t S = near.s == step.clique ? near.t : near.s;
      assert_that(tree->isSeparator(S), "H->isSeparator(S)", door::bp);
      idx_t far_edge = tree->in_edge(S, 0);
      if (far_edge == e) far_edge = tree->in_edge(S, 1);
      const auto far = endpoints(*tree, far_edge);
      const idx_t next = far.s == S ? far.t : far.s;
      if (next == step.parent) continue;
      links_.push_back({S, e});
      open_.push_back({next, step.clique, {S, far_edge}});
    }
    step.last = links_.size();
    steps_.push_back(step);
  }
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::collect(const idx_t& C, const idx_t& parent) {
  trace(C, parent);
  for (std::size_t i = steps_.size(); i-- > 0;) send_inwards(steps_[i], false);
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::distribute(const idx_t& C, const idx_t& parent) {
  trace(C, parent);
  for (const Step& step : steps_) send_outwards(step);
}

/// The entries of the tables of some separators.
template <class idx_t, class val_t>
std::size_t HuginAlgorithm<idx_t, val_t>::room_for(std::span<const Link> links) const {
  std::size_t room = 0;
  for (const Link& link : links) room += node_size[link.separator];
  return room;
}

/// A clique learns what is new in the messages from behind it, and sends its own to where it was
/// reached from. With `anew` its table is made of the weights, and the messages are the first ones;
/// otherwise what is new in them lies on top of the pending ones, in the order of the links.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::send_inwards(const Step& step, bool anew) {
  const idx_t C = step.clique;
  const idx_t S = step.origin.separator;
  terms_.clear();
  if (anew) list_weights(C);
  if (!anew) pending_count_ -= room_for(behind(step));
  const val_t* news = pending_.get() + pending_count_;
  for (const Link& link : behind(step)) {
    terms_.push_back({&separator_margins_, link.edge, anew ? table(link.separator) : news});
    news += node_size[link.separator];
  }
  if (S == 0) {
    for (std::size_t b = 0; b < blocks_[C].count; ++b) learn_block(C, b, anew);
    return;
  }
  learn(C, anew, {&step.origin, 1}, message_.get());
  scale_to_one(message_.get(), node_size[S]);
  if (anew) {
    log_all(message_.get(), table(S), node_size[S]);
  } else {
    send(S, message_.get());
  }
}

/// A clique learns what is new in the message from where it was reached from, which lies on top of
/// the pending ones, is normalised, and sends its messages to all that lie behind it.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::send_outwards(const Step& step) {
  const idx_t C = step.clique;
  const std::size_t learned = step.origin.separator == 0 ? 0 : node_size[step.origin.separator];
  // The sums for the next messages come above the message that is learned, and what is new in them
  // takes its place.
  val_t* sums = pending_.get() + pending_count_;
  pending_count_ -= learned;
  terms_.clear();
  if (step.origin.separator != 0) {
    terms_.push_back({&separator_margins_, step.origin.edge, sums - learned});
  }
  const val_t log_mass = std::log(learn(C, false, behind(step), sums));
  // A table that has just learned from a normalised one is normalised but for rounding.
  if (!(std::abs(log_mass) <= 32 * std::numeric_limits<val_t>::epsilon())) shift(C, -log_mass);
  for (const Link& link : behind(step)) {
    scale_to_one(sums, node_size[link.separator]);
    send(link.separator, sums);
    sums += node_size[link.separator];
  }
}

/// A clique learns its terms, `anew` or on top of what its table holds. Leaves the sums of its
/// exponentials for each link at `sums`, and returns the sum of all. Where that is out of range,
/// the table is shifted first so that its largest entry is 0.
template <class idx_t, class val_t>
val_t HuginAlgorithm<idx_t, val_t>::learn(idx_t C, bool anew, std::span<const Link> links,
                                          val_t* sums) {
  using limits = std::numeric_limits<val_t>;
  const val_t mass = learn_and_sum(C, anew, links, sums);
  if ((mass >= limits::min() && mass <= limits::max()) || node_size[C] == 0) return mass;
  const val_t top = *std::max_element(table(C), table(C) + node_size[C]);
  if (!std::isfinite(top)) return mass;
  shift(C, -top);
  terms_.clear();
  return learn_and_sum(C, false, links, sums);
}

template <class idx_t, class val_t>
val_t HuginAlgorithm<idx_t, val_t>::learn_and_sum(idx_t C, bool anew, std::span<const Link> links,
                                                  val_t* sums) {
  std::fill_n(sums, room_for(links), val_t(0));
  val_t mass = 0;
  const std::size_t size = blocks_[C].entries;
  for (std::size_t b = 0; b < blocks_[C].count; ++b) {
    exp_all(learn_block(C, b, anew), block_.get(), size);
    val_t* part = sums;
    for (const Link& link : links) {
      separator_margins_.sum(link.edge, b, block_.get(), part);
      part += node_size[link.separator];
    }
    if (links.empty()) mass += sum_all(block_.get(), size);
  }
  return links.empty() ? mass : sum_all(sums, node_size[links.front().separator]);
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::shift(idx_t C, val_t by) {
  val_t* entries = table(C);
  for (std::size_t i = 0; i < node_size[C]; ++i) entries[i] += by;
}

template <class idx_t, class val_t>
idx_t HuginAlgorithm<idx_t, val_t>::edge_between(idx_t clique, idx_t separator) const {
  const idx_t e = tree->in_edge(separator, 0);
  const auto [a, b] = endpoints(*tree, e);
  return a == clique || b == clique ? e : tree->in_edge(separator, 1);
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::hugin_message(const idx_t& from, const idx_t& to,
                                                 const idx_t& S) {
  val_t* message = message_.get();
  std::fill_n(message, node_size[S], val_t(0));
  const idx_t sender = edge_between(from, S);
  for (std::size_t b = 0; b < blocks_[from].count; ++b) {
    const std::size_t entries = blocks_[from].entries;
    exp_all(table(from) + b * entries, block_.get(), entries);
    separator_margins_.sum(sender, b, block_.get(), message);
  }
  hold(message, node_size[S]);
  store_message(S, message, message);
  const idx_t receiver = edge_between(to, S);
  for (std::size_t b = 0; b < blocks_[to].count; ++b) {
    separator_margins_.spread(receiver, b, message, table(to) + b * blocks_[to].entries);
  }
}

/// Holds sums above the largest number there.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::hold(val_t* sums, std::size_t size) {
  constexpr val_t limit = std::numeric_limits<val_t>::max();
  for (std::size_t j = 0; j < size; ++j) sums[j] = sums[j] > limit ? limit : sums[j];
}

/// Takes the total mass out of the sums for a separator. A sum above the largest number is held
/// there.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::scale_to_one(val_t* sums, std::size_t size) {
  val_t mass = sum_all(sums, size);
  if (!std::isfinite(mass)) {
    hold(sums, size);
    mass = sum_all(sums, size);
  }
  if (!(mass > 0 && std::isfinite(mass))) return;
  const val_t factor = 1 / mass;
  if (std::isfinite(factor)) {
    on_widest_registers([=]() __attribute__((always_inline)) {
      for (std::size_t j = 0; j < size; ++j) sums[j] *= factor;
    });
  } else {
    for (std::size_t j = 0; j < size; ++j) sums[j] /= mass;
  }
}

/// Stores the logarithms of the sums for S there, and puts what is new in them on top of the
/// pending messages, which may reach up to the sums.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::send(idx_t S, val_t* sums) {
  const std::size_t size = node_size[S];
  store_message(S, sums, pending_.get() + pending_count_);
  pending_count_ += size;
}

/// Stores the logarithms of the sums for S there, and leaves what is new in them at `news`, which
/// may begin where the sums do, or below.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::store_message(idx_t S, val_t* sums, val_t* news) {
  // In blocks that stay in the first cache.
  constexpr std::size_t most = TableBlocks::least;
  for (std::size_t begin = 0; begin < node_size[S]; begin += most) {
    const std::size_t size = std::min(most, node_size[S] - begin);
    val_t* stored = table(S) + begin;
    val_t* message = sums + begin;
    val_t* change = news + begin;
    log_all(message, message, size);
    on_widest_registers([=]() __attribute__((always_inline)) {
      for (std::size_t j = 0; j < size; ++j) {
        const val_t before = stored[j];
        stored[j] = message[j];
        // A state that both sides rule out is nothing new: the difference of two infinities.
        change[j] = stored[j] == before ? val_t(0) : stored[j] - before;
      }
    });
  }
}

}  // namespace QZ
