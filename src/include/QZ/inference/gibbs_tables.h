#pragma once

/// Conditional distributions from tables of exponentials, for long runs of the Gibbs sampler.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "QZ/inference/pairwise_model.h"
#include "QZ/support/pack.h"
#include "QZ/support/vector_math.h"

namespace QZ {

/// The exponentials of all weights, arranged by vertex: the potential of a state is a product of
/// entries that lie next to each other for neighbouring states.
///
/// A product of exponentials and the exponential of a sum differ by rounding. A choice is made from
/// the tables only where the draw is farther from every boundary than that; elsewhere the table
/// says that it cannot tell. So the choices are those of the rule, to the last one.
template <class idx_t, class val_t>
class GibbsTables {
 public:
  using Model = PairwiseModel<idx_t, val_t>;

  /// Nothing for a model with a self-loop, with a vertex without states, or with weights that could
  /// bring a potential out of range.
  static std::optional<GibbsTables> build(const Model& model);

  /// What `choose` returns where it cannot tell.
  static constexpr std::size_t undecided = std::numeric_limits<std::size_t>::max();

  /// The state of v that `u` selects, or `undecided`. `state` is the current configuration.
  std::size_t choose(std::size_t v, const idx_t* state, double u) {
    const Vertex& vertex = vertices_[v];
    switch (vertex.states) {
      case 2:
        return choose_binary(vertex, state, u);
      case 3:
        return choose_any<3>(vertex, state, u);
      case 4:
        return choose_any<4>(vertex, state, u);
      default:
        return choose_any<0>(vertex, state, u);
    }
  }

 private:
  /// One neighbour, and where its rows of exponentials begin: one row per state of the neighbour,
  /// one entry per state of the vertex.
  struct Slot {
    std::uint32_t neighbour;
    std::uint32_t table;
  };
  struct Vertex {
    std::uint32_t first;
    std::uint32_t degree;
    std::uint32_t states;
    /// Relative distance from a boundary within which the tables cannot tell.
    val_t doubt;
  };

  GibbsTables() = default;
  bool add_vertex(const Model& model, idx_t v);
  /// Adds the weights shared with one neighbour, as rows, and returns the largest magnitude among
  /// the weights.
  val_t add_rows(const val_t* block, std::size_t rows, std::size_t columns, bool transposed);

  /// State 1 is drawn where u p1 > (1 - u) p0. The neighbour that changed last comes in last, so
  /// that little has to wait for it.
  std::size_t choose_binary(const Vertex& vertex, const idx_t* state, double u) const {
    const Slot* slots = slots_.data() + vertex.first;
    using pack = Pack<val_t, 2>;
    typename pack::type potential{1, 1};
    typename pack::type weighted{static_cast<val_t>(1 - u), static_cast<val_t>(u)};
    for (std::size_t j = 0; j < vertex.degree; ++j) {
      const auto& row =
          pack::at(factors_.data() + slots[j].table + 2 * std::size_t{state[slots[j].neighbour]});
      potential *= row;
      weighted *= row;
    }
    const val_t distance = weighted[1] - weighted[0];
    const val_t margin = vertex.doubt * (potential[0] + potential[1]);
    // Beyond the last boundary the rule falls back to state 0, so it is a boundary as well.
    if (!(std::abs(distance) > margin) || !(1 - u > vertex.doubt)) [[unlikely]]
      return undecided;
    return distance > 0 ? 1 : 0;
  }

  /// For vertices of N states, or of any number for N = 0.
  template <unsigned N>
  std::size_t choose_any(const Vertex& vertex, const idx_t* state, double u);

  std::vector<Vertex> vertices_;
  std::vector<Slot> slots_;
  std::vector<val_t> factors_;
  std::vector<val_t> potentials_;
};

template <class idx_t, class val_t>
std::optional<GibbsTables<idx_t, val_t>> GibbsTables<idx_t, val_t>::build(const Model& model) {
  GibbsTables tables;
  const std::size_t n = model.graph->vertices();
  std::size_t most = 0;
  tables.vertices_.reserve(n);
  tables.slots_.reserve(2 * std::size_t{model.graph->edges()});
  tables.factors_.reserve(2 * unwrapped_dim(*model.graph, model.states));
  for (std::size_t v = 0; v < n; ++v) {
    if (!tables.add_vertex(model, static_cast<idx_t>(v))) return std::nullopt;
    most = std::max<std::size_t>(most, model.states[v]);
  }
  tables.potentials_.resize(most);
  exp_all(tables.factors_.data(), tables.factors_.data(), tables.factors_.size());
  return tables;
}

template <class idx_t, class val_t>
bool GibbsTables<idx_t, val_t>::add_vertex(const Model& model, idx_t v) {
  const idx_t degree = model.graph->num_neighbors(v);
  if (model.states[v] == 0) return false;
  const std::size_t first = slots_.size();
  val_t magnitude = 0;
  for (idx_t j = 0; j < degree; ++j) {
    const idx_t e = model.graph->in_edge(v, j);
    const auto [a, b] = endpoints(*model.graph, e);
    const idx_t neighbour = v == a ? b : a;
    const std::size_t pairs = std::size_t{model.states[a]} * model.states[b];
    if (a == b || model.states[neighbour] == 0 ||
        factors_.size() + pairs > std::numeric_limits<std::uint32_t>::max()) {
      return false;
    }
    slots_.push_back(
        {static_cast<std::uint32_t>(neighbour), static_cast<std::uint32_t>(factors_.size())});
    magnitude +=
        add_rows(model.weights + model.weight_offsets[e], model.states[a], model.states[b], v == a);
    if (!(magnitude <= safe_exponent<val_t>)) return false;
  }
  // A pass in vertex order has drawn the lower neighbours last.
  std::sort(slots_.begin() + static_cast<long>(first), slots_.end(),
            [v](const Slot& a, const Slot& b) {
              const bool a_drawn = a.neighbour < v;
              const bool b_drawn = b.neighbour < v;
              return a_drawn != b_drawn ? b_drawn : a.neighbour < b.neighbour;
            });
  const val_t roundings = static_cast<val_t>(16 + 4 * std::size_t{degree} + model.states[v]);
  vertices_.push_back({static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(degree),
                       static_cast<std::uint32_t>(model.states[v]),
                       roundings * (1 + magnitude) * std::numeric_limits<val_t>::epsilon()});
  return true;
}

template <class idx_t, class val_t>
val_t GibbsTables<idx_t, val_t>::add_rows(const val_t* block, std::size_t rows, std::size_t columns,
                                          bool transposed) {
  val_t magnitude = 0;
  bool finite = true;
  for (std::size_t i = 0; i < rows * columns; ++i) {
    const val_t size = std::abs(block[i]);
    magnitude = size > magnitude ? size : magnitude;
    finite &= size <= std::numeric_limits<val_t>::max();
  }
  if (!finite) return std::numeric_limits<val_t>::infinity();
  const std::size_t start = factors_.size();
  factors_.resize(start + rows * columns);
  val_t* out = factors_.data() + start;
  if (transposed) {
    for (std::size_t y = 0; y < columns; ++y) {
      for (std::size_t x = 0; x < rows; ++x) out[y * rows + x] = block[x * columns + y];
    }
  } else {
    std::copy(block, block + rows * columns, out);
  }
  return magnitude;
}

template <class idx_t, class val_t>
template <unsigned N>
std::size_t GibbsTables<idx_t, val_t>::choose_any(const Vertex& vertex, const idx_t* state,
                                                  double u) {
  val_t fixed[N > 0 ? N : 1];
  val_t* p = N > 0 ? fixed : potentials_.data();
  const std::size_t states = N > 0 ? N : vertex.states;
  for (std::size_t y = 0; y < states; ++y) p[y] = 1;
  const Slot* slots = slots_.data() + vertex.first;
  for (std::size_t j = 0; j < vertex.degree; ++j) {
    const val_t* row = factors_.data() + slots[j].table + states * state[slots[j].neighbour];
    for (std::size_t y = 0; y < states; ++y) p[y] *= row[y];
  }
  val_t sum = 0;
  for (std::size_t y = 0; y < states; ++y) sum += p[y];
  const val_t target = static_cast<val_t>(u) * sum;
  const val_t margin = vertex.doubt * sum;
  val_t total = 0;
  std::size_t passed = 0;
  bool clear = true;
  for (std::size_t y = 0; y < states; ++y) {
    total += p[y];
    clear &= std::abs(total - target) > margin;
    passed += total < target ? 1 : 0;
  }
  return clear && passed < states ? passed : undecided;
}

}  // namespace QZ
