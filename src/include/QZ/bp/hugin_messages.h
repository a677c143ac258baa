#pragma once

/// Propagation and answers of `HuginAlgorithm`.

#include "QZ/bp/hugin.h"

namespace QZ {

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::infer(const idx_t&) {
  // A table is filled while it is in the cache.
  for (idx_t node = 0; node < tree->vertices(); ++node) {
    std::fill_n(table(node), node_size[node], val_t(0));
    add_weights_of(node);
  }
  double log_first = 0;
  if (tree->vertices() > 0) {
    collect(0, 0);
    distribute(0, 0);
    for (idx_t node = 0; node < tree->vertices(); ++node) {
      const double term = node_size[node] == 0 ? 0 : static_cast<double>(log_of_first(node));
      log_first += isSeparator(node) ? -term : term;
    }
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

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::add_weights_of(idx_t node) {
  for (std::size_t i = first_edge_[node]; i < first_edge_[std::size_t{node} + 1]; ++i) {
    add_weights(edges_by_node_[i]);
  }
}

/// Adds the weights of e to every entry of its clique.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::add_weights(idx_t e) {
  const idx_t C = node_of_edge[e];
  assert_that(!isSeparator(C), "!H->isSeparator(C)", door::bp);
  const std::size_t size = node_size[C];
  if (size == 0) return;
  const auto [s, t] = endpoints(*graph, e);
  const Place place = place_in(C, s, t);
  assert_that(place.stride != 0 && place.second_stride != 0, "xs!=(idx_t)-1&&xt!=(idx_t)-1",
              door::bp);
  const val_t* block = weights + weight_offsets[e];
  const std::size_t rows = states[s];
  const std::size_t columns = states[t];
  // The lower vertex is the faster digit; a loop at a vertex has one digit only.
  const bool s_is_low = s < t;
  const std::size_t low = s_is_low ? place.stride : place.second_stride;
  const std::size_t low_states = s_is_low ? rows : columns;
  const std::size_t high =
      s == t ? low * low_states : (s_is_low ? place.second_stride : place.stride);
  const std::size_t high_states = s == t ? 1 : (s_is_low ? columns : rows);
  val_t* entry = table(C);
  for (std::size_t outer = 0; outer < size; outer += high * high_states) {
    for (std::size_t y = 0; y < high_states; ++y) {
      for (std::size_t middle = 0; middle < high; middle += low * low_states) {
        for (std::size_t x = 0; x < low_states; ++x) {
          const std::size_t xs = s_is_low || s == t ? x : y;
          const std::size_t xt = s_is_low && s != t ? y : x;
          const val_t weight = block[xs * columns + xt];
          for (std::size_t i = 0; i < low; ++i) *entry++ += weight;
        }
      }
    }
  }
}

template <class idx_t, class val_t>
idx_t HuginAlgorithm<idx_t, val_t>::edge_between(idx_t clique, idx_t separator) const {
  const idx_t e = tree->in_edge(separator, 0);
  const auto [a, b] = endpoints(*tree, e);
  return a == clique || b == clique ? e : tree->in_edge(separator, 1);
}

template <class idx_t, class val_t>
std::pair<idx_t, idx_t> HuginAlgorithm<idx_t, val_t>::beyond(idx_t C, idx_t slot) const {
  const auto near = endpoints(*tree, tree->in_edge(C, slot));
  const idx_t S = near.s == C ? near.t : near.s;
  assert_that(isSeparator(S), "H->isSeparator(S)", door::bp);
  auto far = endpoints(*tree, tree->in_edge(S, 0));
  if (far.s == C || far.t == C) far = endpoints(*tree, tree->in_edge(S, 1));
  return {S, far.s == S ? far.t : far.s};
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::collect(const idx_t& C, const idx_t& parent) {
  // Walks the tree with a path of its own: a chain of cliques may be longer than the call stack.
  path_.clear();
  path_.push_back({C, parent, 0, 0});
  while (true) {
    Step& step = path_.back();
    if (step.slot < tree->num_neighbors(step.clique)) {
      const auto [S, far] = beyond(step.clique, step.slot++);
      if (far != step.parent) path_.push_back({far, step.clique, S, 0});
      continue;
    }
    const Step done = step;
    path_.pop_back();
    if (path_.empty()) return;
    take_exponentials(done.clique);
    gather(done.clique, done.separator);
    take_logarithms(done.separator);
    pass_on(done.parent, done.separator);
  }
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::distribute(const idx_t& C, const idx_t& parent) {
  path_.clear();
  path_.push_back({C, parent, 0, 0});
  while (!path_.empty()) {
    const Step step = path_.back();
    path_.pop_back();
    normalize(step.clique);
    const idx_t degree = tree->num_neighbors(step.clique);
    for (idx_t slot = 0; slot < degree; ++slot) {
      const auto [S, far] = beyond(step.clique, slot);
      if (far == step.parent) continue;
      gather(step.clique, S);
      take_logarithms(S);
      pass_on(far, S);
      path_.push_back({far, step.clique, S, 0});
    }
  }
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::hugin_message(const idx_t& from, const idx_t& to,
                                                 const idx_t& S) {
  take_exponentials(from);
  gather(from, S);
  log_all(message_.get(), message_.get(), node_size[S]);
  pass_on(to, S);
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::take_exponentials(idx_t node) {
  // In blocks that stay in the first cache between the look at their range and the work.
  constexpr std::size_t block = 1024;
  const std::size_t size = node_size[node];
  for (std::size_t i = 0; i < size; i += block) {
    exp_all(table(node) + i, linear_.get() + i, std::min(block, size - i));
  }
}

/// Turns the message into logarithms, without the total mass that is common to its entries.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::take_logarithms(idx_t S) {
  const std::size_t size = node_size[S];
  val_t* message = message_.get();
  const val_t mass = sum_all(message, size);
  if (mass > 0 && std::isfinite(mass)) {
    for (std::size_t j = 0; j < size; ++j) message[j] /= mass;
  }
  log_all(message, message, size);
}

/// Leaves the sums of `from`, whose exponentials are at hand, over all vertices outside S as the
/// message. A sum above the largest number is held there.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::gather(idx_t from, idx_t S) {
  constexpr val_t limit = std::numeric_limits<val_t>::max();
  const std::size_t size = node_size[S];
  val_t* message = message_.get();
  std::fill_n(message, size, val_t(0));
  margins_[edge_between(from, S)].sum(linear_.get(), message);
  for (std::size_t j = 0; j < size; ++j) {
    if (std::abs(message[j]) > limit) message[j] = limit;
  }
}

/// Stores the message, by now logarithms, in S and shifts `to` by what is new in it.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::pass_on(idx_t to, idx_t S) {
  const std::size_t size = node_size[S];
  val_t* message = message_.get();
  val_t* stored = table(S);
  for (std::size_t j = 0; j < size; ++j) {
    const val_t before = stored[j];
    stored[j] = message[j];
    message[j] -= before;
  }
  margins_[edge_between(to, S)].spread(message, table(to));
}

/// Brings the sum of the linear table of C to 1 and leaves the exponentials of its entries, up to a
/// common factor, at hand.
template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::normalize(idx_t C) {
  using limits = std::numeric_limits<val_t>;
  const std::size_t size = node_size[C];
  if (size == 0) return;
  val_t* entry = table(C);
  take_exponentials(C);
  val_t z = sum_all(linear_.get(), size);
  if (!(z >= limits::min() && z <= limits::max())) {
    // Out of range as it stands: the largest entry becomes 0 first.
    const val_t top = *std::max_element(entry, entry + size);
    if (std::isfinite(top)) {
      for (std::size_t i = 0; i < size; ++i) entry[i] -= top;
      take_exponentials(C);
      z = sum_all(linear_.get(), size);
    }
  }
  // A table that has just learned from a normalised one is normalised but for rounding.
  const val_t log_z = std::log(z);
  if (!(std::abs(log_z) <= 8 * limits::epsilon())) {
    for (std::size_t i = 0; i < size; ++i) entry[i] -= log_z;
  }
}

/// The sum of the exponentials of a node's entries whose digits at `place` are x and, for two
/// vertices, y.
template <class idx_t, class val_t>
val_t HuginAlgorithm<idx_t, val_t>::sum_at(const Place& place, const Digit& low,
                                           const Digit& high) const {
  // Entries are gathered, so that the exponentials of short runs are taken together.
  constexpr std::size_t room = 128;
  val_t buffer[room] = {};
  std::size_t held = 0;
  val_t sum = 0;
  const auto flush = [&] {
    exp_all(buffer, buffer, held);
    sum += sum_all(buffer, held);
    held = 0;
  };
  const val_t* entries = table(place.node);
  const std::size_t size = node_size[place.node];
  const std::size_t outer_step = high.stride * high.states;
  const std::size_t middle_step = low.stride * low.states;
  for (std::size_t outer = high.stride * high.state; outer < size; outer += outer_step) {
    for (std::size_t middle = 0; middle < high.stride; middle += middle_step) {
      const val_t* run = entries + outer + middle + low.stride * low.state;
      for (std::size_t left = low.stride; left > 0;) {
        const std::size_t part = std::min(left, room - held);
        std::copy(run, run + part, buffer + held);
        run += part;
        left -= part;
        held += part;
        if (held == room) flush();
      }
    }
  }
  flush();
  return sum;
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::vertex_marginal(const idx_t& v, const idx_t& x, val_t& q,
                                                   val_t& Z) const {
  const Place& place = place_of_vertex_[v];
  // The other digit is the whole rest of the table.
  q = sum_at(place, {place.stride, states[v], x}, {node_size[place.node], 1, 0});
  Z = 1;
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::edge_marginal(const idx_t& e, const idx_t& xs, const idx_t& xt,
                                                 val_t& q, val_t& Z) const {
  const auto [s, t] = endpoints(*graph, e);
  const Place& place = place_of_edge_[e];
  const Digit at_s{place.stride, states[s], xs};
  const Digit at_t{place.second_stride, states[t], xt};
  if (s == t) {
    q = xs == xt ? sum_at(place, at_s, {node_size[place.node], 1, 0}) : val_t(0);
  } else {
    q = s < t ? sum_at(place, at_s, at_t) : sum_at(place, at_t, at_s);
  }
  Z = 1;
}

}  // namespace QZ
