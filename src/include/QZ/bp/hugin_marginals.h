#pragma once

/// What the tables of `HuginAlgorithm` say after propagation.

#include "QZ/bp/hugin.h"

namespace QZ {

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
  const Place& place = place_of_vertex_.at(v);
  // The other digit is the whole rest of the table.
  const Digit rest{node_size[place.node], 1, 0};
  q = x < states[v] ? sum_at(place, {place.stride, states[v], x}, rest) : val_t(0);
  Z = 1;
}

template <class idx_t, class val_t>
void HuginAlgorithm<idx_t, val_t>::edge_marginal(const idx_t& e, const idx_t& xs, const idx_t& xt,
                                                 val_t& q, val_t& Z) const {
  const Place& place = place_of_edge_.at(e);
  const auto [s, t] = endpoints(*graph, e);
  const Digit at_s{place.stride, states[s], xs};
  const Digit at_t{place.second_stride, states[t], xt};
  if (xs >= states[s] || xt >= states[t]) {
    q = 0;
  } else if (s == t) {
    q = xs == xt ? sum_at(place, at_s, {node_size[place.node], 1, 0}) : val_t(0);
  } else {
    q = s < t ? sum_at(place, at_s, at_t) : sum_at(place, at_t, at_s);
  }
  Z = 1;
}

}  // namespace QZ
