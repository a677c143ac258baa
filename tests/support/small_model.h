#pragma once

/// Model containers made by hand, whose graph and arrays live as long as the test's object.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "QZ/data/statistics.h"
#include "QZ/graph/graph.h"
#include "QZ/io/model_container.h"

namespace qz_test {

/// Releases what a container leaves alone.
template <class idx_t, class val_t>
struct ReleaseModel {
  void operator()(QZ::IO<idx_t, val_t>* model) const {
    delete model->graph;
    delete model->baseGraph;
    delete[] model->weights;
    delete[] model->stats;
    delete[] model->states;
    delete[] model->offsets;
    delete model;
  }
};

template <class idx_t, class val_t>
using OwnedModel = std::unique_ptr<QZ::IO<idx_t, val_t>, ReleaseModel<idx_t, val_t>>;

template <class idx_t, class val_t>
OwnedModel<idx_t, val_t> read_model(const std::string& filename) {
  return OwnedModel<idx_t, val_t>(new QZ::IO<idx_t, val_t>(filename));
}

/// The graph on n vertices with these edges, in this order.
template <class idx_t>
QZ::AbstractGraph<idx_t>* listed_graph(unsigned long n,
                                       const std::vector<std::pair<int, int>>& edges) {
  struct Listed : QZ::Graph<idx_t> {
    Listed(unsigned long n, const std::vector<std::pair<int, int>>& edges) {
      this->n = static_cast<idx_t>(n);
      this->allocateEdges(static_cast<idx_t>(edges.size()));
      for (std::size_t e = 0; e < edges.size(); ++e) {
        this->setEdge(e, edges[e].first, edges[e].second);
      }
      this->buildNeighborhoods();
    }
  };
  return new Listed(n, edges);
}

/// A model whose statistics are 1, 2, 3, ..., whose weights are 0, 1, 2, ..., and whose vertices
/// are named "v0", "v1", ... with the states "a", "b", ....
template <class idx_t, class val_t>
OwnedModel<idx_t, val_t> numbered_model(QZ::AbstractGraph<idx_t>* graph,
                                        const std::vector<int>& states) {
  OwnedModel<idx_t, val_t> model(new QZ::IO<idx_t, val_t>);
  model->graph = graph;
  model->states = new idx_t[states.size()];
  std::copy(states.begin(), states.end(), model->states);
  model->dim = calcDim(*graph, model->states);
  model->offsets = QZ::statistics_offsets(*graph, model->states, true, model->numOffsets).release();
  model->statsLength = model->offsets[model->numOffsets - 1];
  model->stats = new val_t[model->statsLength];
  for (std::size_t i = 0; i < model->statsLength; ++i) model->stats[i] = static_cast<val_t>(i + 1);
  model->weights = new val_t[model->dim];
  for (std::size_t i = 0; i < model->dim; ++i) model->weights[i] = static_cast<val_t>(i);
  model->samples = 10;
  model->slices = 1;
  model->vertexNames = new std::vector<std::string>;
  model->categoryLists = new std::vector<std::vector<std::string>*>;
  for (std::size_t v = 0; v < states.size(); ++v) {
    model->vertexNames->push_back(std::string(1, 'v').append(std::to_string(v)));
    model->categoryLists->push_back(new std::vector<std::string>);
    for (int x = 0; x < states[v]; ++x) {
      model->categoryLists->back()->push_back(std::string(1, static_cast<char>('a' + x)));
    }
  }
  return model;
}

template <class number_t>
std::vector<number_t> copy_of(const number_t* values, std::size_t count) {
  return {values, values + count};
}

}  // namespace qz_test
