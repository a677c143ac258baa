#pragma once

/// The loop and the iteration step of `PairwiseBP`: all messages of an iteration are computed from
/// the generation before.

#include "QZ/bp/clamped_message.h"
#include "QZ/bp/pairwise_bp.h"

namespace QZ {

namespace flooding {

/// Everything that one message of an iteration is computed from.
template <class val_t>
struct Message {
  BlockView block;
  /// What the sender's states are worth: its log beliefs, and the old message that came the other
  /// way, which is subtracted.
  const val_t* belief;
  const val_t* reverse;
};

/// The largest term of entry y. Floating types start from the smallest number and turn a magnitude
/// out of range into plus the largest one; integers start from 0.
template <class val_t, class Term>
val_t largest_term(std::size_t states, Term&& term) {
  if constexpr (std::is_integral_v<val_t>) {
    val_t best = 0;
    for (std::size_t x = 0; x < states; ++x) best = std::max<val_t>(best, term(x));
    return best;
  } else {
    constexpr val_t limit = std::numeric_limits<val_t>::max();
    val_t best = -limit;
    for (std::size_t x = 0; x < states; ++x) {
      const val_t value = term(x);
      if (value > best) best = value;
    }
    return std::abs(best) > limit ? limit : best;
  }
}

/// The logarithm of the sum of all terms of entry y, in the domain of `self`. An integer engine may
/// know the whole sum at once; term by term it accumulates through `map_other`.
template <class val_t, class Self, class Term>
val_t summed_terms(Self& self, std::size_t states, Term&& term) {
  if constexpr (std::is_integral_v<val_t>) {
    if constexpr (requires { self.sum_length(states, term); }) {
      return self.sum_length(states, term);
    } else {
      val_t length = 0;
      for (std::size_t x = 0; x < states; ++x) {
        length = self.map_other(self.map_exponential(term(x)), x == 0);
      }
      return self.map_logarithm(length);
    }
  } else {
    constexpr val_t limit = std::numeric_limits<val_t>::max();
    val_t sum = 0;
    for (std::size_t x = 0; x < states; ++x) sum += self.map_exponential(term(x));
    if (sum == 0 || std::isnan(sum)) sum = std::numeric_limits<val_t>::min();
    const val_t value = self.map_logarithm(sum);
    return std::abs(value) > limit ? limit : value;
  }
}

template <bool MAX, class val_t, class Self>
val_t free_entry(Self& self, const val_t* weights, const Message<val_t>& message, std::size_t y) {
  const auto term = [&](std::size_t x) {
    const val_t cavity = static_cast<val_t>(message.belief[x] - message.reverse[x]);
    return static_cast<val_t>(cavity + weights[message.block.at(x, y)]);
  };
  if constexpr (MAX) {
    return largest_term<val_t>(message.block.sender_states, term);
  } else {
    return summed_terms<val_t>(self, message.block.sender_states, term);
  }
}

}  // namespace flooding

template <class idx_t, class val_t>
template <bool MAX, class Self>
void PairwiseBP<idx_t, val_t>::step_as(Self& self) {
  const auto share = my_share<idx_t>(self.graph->edges());
  for (idx_t e = share.begin; e < share.end; ++e) {
    const auto [s, t] = endpoints(*self.graph, e);
    for (const bool to_first : {false, true}) {
      const idx_t sender = to_first ? t : s;
      const BlockView block =
          block_view(self.weight_offsets[e], self.states[s], self.states[t], to_first);
      val_t* out = self.messages + self.message_at(e, to_first);
      const val_t seen = self.observed[sender];
      if (is_clamped<idx_t>(seen, self.states[sender])) {
        for (std::size_t y = 0; y < block.receiver_states; ++y) {
          out[y] = clamped_entry<idx_t>(self.weights, block, seen, y);
        }
        continue;
      }
      const flooding::Message<val_t> message{
          block, self.beliefs + self.belief_offsets[sender],
          self.messages + self.message_count + self.message_at(e, !to_first)};
      for (std::size_t y = 0; y < block.receiver_states; ++y) {
        out[y] = flooding::free_entry<MAX>(self, self.weights, message, y);
      }
    }
  }
#pragma omp barrier
}

template <class idx_t, class val_t>
template <bool MAX, class Self>
void PairwiseBP<idx_t, val_t>::run_as(Self& self, bool keep_messages) {
  const auto share = my_share<idx_t>(self.graph->vertices());
  if (!keep_messages) self.clear_messages();
  for (idx_t v = share.begin; v < share.end; ++v) {
    std::fill_n(self.beliefs + self.belief_offsets[v], self.states[v], val_t(0));
  }
#pragma omp barrier
  const auto goes_on = [&](idx_t iterations) {
    return self.delta > self.epsilon && self.delta != 0 && iterations != self.max_iterations;
  };
  idx_t iterations = 0;
  // Nobody may reset the movement before everybody has read it.
  bool moving = goes_on(iterations);
  while (moving) {
    step_as<MAX>(self);
    self.post_process();
#pragma omp single
    self.delta = 0;
    if (const val_t moved = team_movement(self); moved > 0) atomic_max(self.delta, moved);
#pragma omp barrier
    self.keep_generation();
#pragma omp barrier
    for (idx_t v = share.begin; v < share.end; ++v) self.update_belief(v);
    ++iterations;
    moving = goes_on(iterations);
#pragma omp barrier
  }
#pragma omp single
  self.iterations = iterations;
  self.compute_edge_normalization();
  for (idx_t v = share.begin; v < share.end; ++v) self.vertex_partition[v] = free_state<val_t>;
#pragma omp barrier
}

template <class idx_t, class val_t>
template <class Self>
void PairwiseBP<idx_t, val_t>::infer_as(Self& self, const idx_t& mode, bool keep_messages) {
  self.message_count = static_cast<idx_t>(self.message_storage / 2);
  self.delta = static_cast<val_t>(self.epsilon + 1);
#pragma omp parallel
  {
    if (mode == 0) {
      run_as<false>(self, keep_messages);
    } else {
      run_as<true>(self, keep_messages);
    }
  }
  self.log_partition = self.A_local();
}

/// The largest change of a linear message entry in the share of this thread.
template <class idx_t, class val_t>
template <class Self>
val_t PairwiseBP<idx_t, val_t>::team_movement(const Self& self) {
  const auto share = my_share<idx_t>(self.message_count);
  val_t moved = 0;
  for (std::size_t i = share.begin; i < share.end; ++i) {
    const val_t a = self.map_exponential(self.messages[i]);
    const val_t b = self.map_exponential(self.messages[i + self.message_count]);
    const val_t d = static_cast<val_t>(a > b ? a - b : b - a);
    if (d > moved) moved = d;
  }
  return moved;
}

template <class idx_t, class val_t>
void PairwiseBP<idx_t, val_t>::clear_messages() {
  const auto share = my_share<idx_t>(message_storage);
  std::fill(messages + share.begin, messages + share.end, val_t(0));
}

/// Copies this thread's share of the new generation onto the old one.
template <class idx_t, class val_t>
void PairwiseBP<idx_t, val_t>::keep_generation() {
  const auto share = my_share<idx_t>(message_count);
  std::copy(messages + share.begin, messages + share.end, messages + message_count + share.begin);
}

template <class idx_t, class val_t>
void PairwiseBP<idx_t, val_t>::update_belief(idx_t v) {
  const std::size_t count = states[v];
  val_t* belief = beliefs + belief_offsets[v];
  const val_t* old = messages + message_count;
  std::fill_n(belief, count, val_t(0));
  const idx_t degree = graph->num_neighbors(v);
  for (idx_t j = 0; j < degree; ++j) {
    const idx_t e = graph->in_edge(v, j);
    const auto [a, b] = endpoints(*graph, e);
    const bool second = v == b && a != all_ones<idx_t>;
    const bool first = !second && v == a && b != all_ones<idx_t>;
    if (!second && !first) continue;
    const val_t* incoming = old + message_at(e, first);
    for (std::size_t x = 0; x < count; ++x) {
      belief[x] = static_cast<val_t>(belief[x] + incoming[x]);
    }
  }
  if constexpr (std::is_floating_point_v<val_t>) {
    val_t sum = 0;
    for (std::size_t x = 0; x < count; ++x) sum += belief[x];
    const val_t mean = sum / static_cast<val_t>(count);
    for (std::size_t x = 0; x < count; ++x) belief[x] -= mean;
  }
}

}  // namespace QZ
