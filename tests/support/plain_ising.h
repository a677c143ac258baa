#pragma once

/// Binary fields of biases and couplings by brute force, without blocks.

#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

namespace qz_test {

/// The density is proportional to exp(sum of biases of vertices in state 1 + sum of couplings of
/// edges with both ends in state 1). The point holds the biases and then the couplings.
struct PlainIsing {
  using Edges = std::vector<std::pair<std::size_t, std::size_t>>;
  using Point = std::vector<double>;

  struct Answers {
    double log_partition;
    /// The probability that a vertex is in state 1, and that both ends of an edge are.
    Point moments;
    /// Per edge the probability of the states (0,0), (0,1), (1,0), (1,1).
    Point pairs;
  };

  double energy(const Point& point, std::size_t x) const {
    double sum = 0;
    for (std::size_t v = 0; v < vertices; ++v) sum += state(x, v) * point[v];
    for (std::size_t e = 0; e < edges.size(); ++e) {
      sum += state(x, edges[e].first) * state(x, edges[e].second) * point[vertices + e];
    }
    return sum;
  }

  Answers infer(const Point& point) const {
    Answers answers{0, Point(vertices + edges.size()), Point(4 * edges.size())};
    double total = 0;
    for (std::size_t x = 0; x < std::size_t{1} << vertices; ++x) {
      const double p = std::exp(energy(point, x));
      total += p;
      for (std::size_t v = 0; v < vertices; ++v) answers.moments[v] += p * state(x, v);
      for (std::size_t e = 0; e < edges.size(); ++e) {
        const int pair = 2 * state(x, edges[e].first) + state(x, edges[e].second);
        answers.pairs[4 * e + static_cast<std::size_t>(pair)] += p;
        if (pair == 3) answers.moments[vertices + e] += p;
      }
    }
    for (double& p : answers.moments) p /= total;
    for (double& p : answers.pairs) p /= total;
    answers.log_partition = std::log(total);
    return answers;
  }

  /// The state of vertex v in configuration x, whose bit v it is.
  static int state(std::size_t x, std::size_t v) { return static_cast<int>(x >> v & 1); }

  std::size_t vertices;
  Edges edges;
};

}  // namespace qz_test
