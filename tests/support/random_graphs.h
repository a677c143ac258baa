#pragma once

/// Random graphs with the shapes that tell constructions apart: trees, sparse, dense, disconnected,
/// regular ones full of ties, parallel edges and self-loops.

#include <algorithm>
#include <random>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "support/listed_graph.h"

namespace qz_test {

struct GraphSketch {
  std::string kind;
  std::size_t n;
  std::vector<std::pair<std::size_t, std::size_t>> edges;
};

inline unsigned draw_below(std::mt19937& rng, std::size_t bound) {
  return static_cast<unsigned>(rng() % bound);
}

/// Adds each pair of the vertices from `begin` to `end` - 1 with the given chance in percent.
inline void add_pairs(GraphSketch& sketch, std::mt19937& rng, unsigned begin, unsigned end,
                      unsigned percent) {
  for (unsigned i = begin; i < end; ++i) {
    for (unsigned j = i + 1; j < end; ++j) {
      if (draw_below(rng, 100) < percent) sketch.edges.emplace_back(i, j);
    }
  }
}

/// A graph with n vertices, of kind `round` modulo the number of kinds, under a random numbering of
/// the vertices in two rounds of three.
inline GraphSketch random_sketch(std::mt19937& rng, std::size_t n, int round) {
  static const char* const kinds[] = {"tree",      "sparse",   "medium", "dense",
                                      "two parts", "edgeless", "cycle",  "grid",
                                      "star",      "parallel", "forest", "path"};
  const int kind = round % 12;
  GraphSketch sketch{kinds[kind], n, {}};
  const auto last = static_cast<unsigned>(n);
  const unsigned side = n < 9 ? 2 : n < 16 ? 3 : 4;
  switch (kind) {
    case 0:
      for (unsigned v = 1; v < last; ++v) sketch.edges.emplace_back(draw_below(rng, v), v);
      break;
    case 1:
      add_pairs(sketch, rng, 0, last, static_cast<unsigned>(200 / n) + 1);
      break;
    case 2:
      add_pairs(sketch, rng, 0, last, 30);
      break;
    case 3:
      add_pairs(sketch, rng, 0, last, 85);
      break;
    case 4:
      add_pairs(sketch, rng, 0, last / 2, 60);
      add_pairs(sketch, rng, last / 2, last, 60);
      break;
    case 5:
      break;
    case 6:
      for (unsigned v = 0; v < last; ++v) sketch.edges.emplace_back(v, (v + 1) % last);
      break;
    case 7:
      for (unsigned v = 0; v < last; ++v) {
        if (v + side < last) sketch.edges.emplace_back(v, v + side);
        if ((v + 1) % side != 0 && v + 1 < last) sketch.edges.emplace_back(v, v + 1);
      }
      break;
    case 8:
      for (unsigned v = 1; v < last; ++v) sketch.edges.emplace_back(0, v);
      break;
    case 9:
      for (unsigned e = 0; e < 2 * last; ++e) {
        sketch.edges.emplace_back(draw_below(rng, n), draw_below(rng, n));
      }
      break;
    case 10:
      for (unsigned v = 1; v < last; ++v) {
        if (draw_below(rng, 3) != 0) sketch.edges.emplace_back(draw_below(rng, v), v);
      }
      break;
    default:
      for (unsigned v = 1; v < last; ++v) sketch.edges.emplace_back(v - 1, v);
  }
  if (round / 12 % 3 != 0) {
    std::vector<unsigned> names(n);
    for (unsigned v = 0; v < last; ++v) names[v] = v;
    std::shuffle(names.begin(), names.end(), rng);
    for (auto& [s, t] : sketch.edges) std::tie(s, t) = std::pair(names[s], names[t]);
    std::shuffle(sketch.edges.begin(), sketch.edges.end(), rng);
  }
  return sketch;
}

}  // namespace qz_test
