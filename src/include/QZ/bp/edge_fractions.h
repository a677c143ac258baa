#pragma once

/// The marginals of whole edges as fractions.

#include <cstddef>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "QZ/bp/bit_length_bp.h"
#include "QZ/inference/engine.h"

namespace QZ {

/// Sets q and Z to the marginals of all state pairs of edge `e`, row-major with states[s] rows of
/// states[t] entries. Bit-length propagation has them all at once; any other engine, or one that is
/// derived from it, is asked for one after the other.
template <class idx_t, class val_t>
void read_edge_fractions(const InferenceAlgorithm<idx_t, val_t>& engine, idx_t e,
                         std::vector<val_t>& q, std::vector<val_t>& Z) {
  const auto [s, t] = endpoints(*engine.graph, e);
  const std::size_t count = static_cast<std::size_t>(engine.states[s]) * engine.states[t];
  q.assign(count, val_t(0));
  Z.assign(count, val_t(0));
  if constexpr (std::is_integral_v<val_t>) {
    if (typeid(engine) == typeid(BitLengthBP<idx_t>)) {
      static_cast<const BitLengthBP<idx_t>&>(engine).edge_marginals(e, q.data(), Z.data());
      return;
    }
  }
  std::size_t i = 0;
  for (idx_t xs = 0; xs < engine.states[s]; ++xs) {
    for (idx_t xt = 0; xt < engine.states[t]; ++xt, ++i)
      engine.edge_marginal(e, xs, xt, q[i], Z[i]);
  }
}

}  // namespace QZ
