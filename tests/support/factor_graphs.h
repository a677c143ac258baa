#pragma once

/// Factor graphs in two public text forms, as pairwise models and as model files.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "QZ/support/file_fields.h"

namespace qz_test {

/// A table over one or two vertices; the last vertex is the fastest digit.
struct Factor {
  std::vector<std::size_t> vertices;
  std::vector<double> values;
};

struct FactorGraph {
  std::vector<std::size_t> states;
  std::vector<Factor> factors;
};

/// Reads a factor graph text: the number of factors, then for each the vertices, their state counts
/// and the non-zero entries by number, with the first vertex as the fastest digit.
inline FactorGraph read_factor_graph_text(std::istream& in) {
  while ((in >> std::ws).peek() == '#') in.ignore(1 << 20, '\n');
  std::size_t count = 0;
  in >> count;
  FactorGraph graph;
  for (std::size_t f = 0; f < count; ++f) {
    std::size_t order = 0;
    in >> order;
    if (!in || order < 1 || order > 2) throw std::runtime_error("not a pairwise factor graph");
    Factor factor{std::vector<std::size_t>(order), {}};
    std::vector<std::size_t> states(order);
    for (std::size_t& v : factor.vertices) in >> v;
    for (std::size_t& k : states) in >> k;
    const std::size_t last = order == 2 ? states[1] : 1;
    factor.values.assign(states[0] * last, 0);
    for (std::size_t i = 0; i < order; ++i) {
      if (graph.states.size() <= factor.vertices[i]) graph.states.resize(factor.vertices[i] + 1, 1);
      graph.states[factor.vertices[i]] = states[i];
    }
    std::size_t entries = 0;
    in >> entries;
    for (std::size_t i = 0; i < entries; ++i) {
      std::size_t at = 0;
      double value = 0;
      in >> at >> value;
      factor.values.at(at % states[0] * last + at / states[0]) = value;
    }
    graph.factors.push_back(factor);
  }
  if (!in) throw std::runtime_error("the factor graph ends early");
  return graph;
}

/// Reads a Markov network text: the state counts, the vertices of each factor, and then the
/// complete table of each, with the last vertex as the fastest digit.
inline FactorGraph read_markov_text(std::istream& in) {
  std::string kind;
  std::size_t vertices = 0;
  std::size_t count = 0;
  in >> kind >> vertices;
  if (kind != "MARKOV") throw std::runtime_error("not a Markov network");
  FactorGraph graph;
  graph.states.resize(vertices);
  for (std::size_t& k : graph.states) in >> k;
  in >> count;
  graph.factors.resize(count);
  for (Factor& factor : graph.factors) {
    std::size_t order = 0;
    in >> order;
    if (!in || order < 1 || order > 2) throw std::runtime_error("not a pairwise network");
    factor.vertices.resize(order);
    for (std::size_t& v : factor.vertices) in >> v;
  }
  for (Factor& factor : graph.factors) {
    std::size_t entries = 0;
    in >> entries;
    factor.values.resize(entries);
    for (double& value : factor.values) in >> value;
  }
  if (!in) throw std::runtime_error("the network ends early");
  return graph;
}

/// A pairwise model: weights are natural logarithms, row-major with the first endpoint as the row.
struct FoldedModel {
  std::vector<std::size_t> states;
  std::vector<std::pair<std::size_t, std::size_t>> edges;
  std::vector<std::vector<double>> weights;

  /// Numbers in all edge blocks, where the marginals of the vertices begin.
  std::size_t dim() const {
    std::size_t sum = 0;
    for (const auto& block : weights) sum += block.size();
    return sum;
  }
};

/// Each factor over two vertices becomes an edge, and one over a single vertex a part of the first
/// edge of its vertex. Throws if there is none.
inline FoldedModel fold(const FactorGraph& graph) {
  FoldedModel model{graph.states, {}, {}};
  for (const Factor& factor : graph.factors) {
    if (factor.vertices.size() != 2) continue;
    model.edges.emplace_back(factor.vertices[0], factor.vertices[1]);
    model.weights.emplace_back();
    for (const double value : factor.values) model.weights.back().push_back(std::log(value));
  }
  for (const Factor& factor : graph.factors) {
    if (factor.vertices.size() != 1) continue;
    const std::size_t v = factor.vertices[0];
    std::size_t e = 0;
    while (e < model.edges.size() && model.edges[e].first != v && model.edges[e].second != v) ++e;
    if (e == model.edges.size()) throw std::runtime_error("a vertex without an edge");
    const std::size_t columns = model.states[model.edges[e].second];
    for (std::size_t i = 0; i < model.weights[e].size(); ++i) {
      const std::size_t x = model.edges[e].first == v ? i / columns : i % columns;
      model.weights[e][i] += std::log(factor.values.at(x));
    }
  }
  return model;
}

/// Writes a model file for 32-bit indices and doubles, with statistics of 0.
inline void write_model_file(const FoldedModel& model, const std::string& filename) {
  using index_t = std::uint32_t;
  QZ::FieldWriter file(filename, QZ::FieldWriter::Mode::truncate);
  const auto index = [&](std::size_t value) { file.number(static_cast<index_t>(value)); };
  index(model.states.size());
  index(model.edges.size());
  for (const auto& [s, t] : model.edges) {
    index(s);
    index(t);
  }
  index(0);                                                   // kind of graph
  file.number<unsigned long>(0);                              // no layers
  file.number<unsigned long>(0);                              // reserved text
  for (const std::size_t value : {1, 0, 1, 0}) index(value);  // slices, decay, samples, reserved
  std::size_t entries = model.dim();
  for (std::size_t v = 0; v < model.states.size(); ++v) {
    index(model.states[v]);
    file.zero_text("v" + std::to_string(v));
    for (std::size_t x = 0; x < model.states[v]; ++x) file.zero_text(std::to_string(x));
    entries += model.states[v];
  }
  index(model.dim());
  const std::vector<double> statistics(entries);
  file.array(statistics.data(), entries);
  for (const auto& block : model.weights) file.array(block.data(), block.size());
  file.close();
}

}  // namespace qz_test
