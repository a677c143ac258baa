#pragma once

/// The model container: graph, state counts, statistics, weights and names, which together make a
/// fitted model.

#include <cstddef>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "QZ/graph/abstract_graph.h"
#include "QZ/io/callbacks.h"
#include "QZ/support/conversions.h"
#include "QZ/support/progress.h"
#include "QZ/support/type_pairs.h"

namespace QZ {

/// What register `MPT` holds and a model file stores.
///
/// Blocks     the block of vertex v starts at `offsets[v]` of the statistics; where all pairs were
///            counted for a union of cliques, that is the block of vertex n - 1 - v, as subsets are
///            numbered, until STATS counts anew.
///            The block of edge e = (s, t) starts at `offsets[n + e]` of the statistics and at
///            `offsets[n + e] - offsets[n]` of the weights; the entry of (xs, xt) lies
///            xs * states[t] + xt behind it.
/// Ownership  the destructor destroys the names and texts. Graph and arrays are left alone: the
///            machine shares the graph with register `GPT`, and operations hand the arrays on.
template <class idx_t, class val_t>
class IO {
 public:
  using NameList = std::vector<std::string>;

  /// An empty container: every count 0, every pointer null.
  IO() = default;

  /// Reads a model file that this same instantiation wrote; the file does not say which one that
  /// is. Weights that the file does not hold are 0. Throws logic_error "cannot read NAME" for a
  /// file that does not open, and "the model file NAME is damaged" for one whose counts do not fit
  /// its size or each other.
  explicit IO(const std::string& filename);

  ~IO();
  IO(const IO&) = delete;
  IO& operator=(const IO&) = delete;

  /// Writes the model file. Throws logic_error "cannot write NAME".
  void store(const std::string& filename) const;

  /// Replaces the graph by the one whose edges the n-by-n matrix `adjacency` of 0 and 1 marks, the
  /// statistics and offsets by those of its edges, and the weights by zeroes. Edges are numbered by
  /// a scan of the strict upper triangle, row by row. The old graph is destroyed, the old arrays
  /// are freed.
  ///
  /// edgeIndex     the place of a pair of the new graph among the old edge blocks, or, with a
  ///               `statFunction`, its rank among the pairs of n vertices. An empty one throws
  ///               bad_function_call at the first edge, before anything is changed.
  /// statFunction  counts the blocks afresh; an empty one has them copied.
  void reconfigure(idx_t* adjacency, EdgeIndexFunction<idx_t> edgeIndex,
                   StatFunction<idx_t, val_t> statFunction);

  /// Replaces the graph by its spanning tree of largest mutual information, copies the statistics
  /// of the tree's edges and sets `graphType` to `CHOWLIU`. Natural logarithms. `progress` may be
  /// null; the tag is "CL   ". Source: Chow and Liu 1968, Approximating discrete probability
  /// distributions with dependence trees.
  void buildChowLiu(ProgressCallback progress);

  /// Replaces the graph by those of its edges on which some pair of states is strongly associated,
  /// and sets `graphType` to `ELEMGM`. The largest share `t` of all state pairs is strong, and at
  /// most the share `t` of the edges is kept; of more, those with the weaker entries. Throws
  /// logic_error for a share outside 0 to 1. `progress` may be null; the tags are "EGM  ", "EGM E".
  void buildElemGM(val_t t, ProgressCallback progress);

  /// Replaces the graph by a union of k-cliques, in descending order of their interaction
  /// information, until all vertices hang together. Needs statistics of `configureStats` up to
  /// order k; `stat` is called from several threads. `theta` is not used. Sets `graphType` to
  /// `CHOWLIU` for k = 2 and to `CLIQUES` otherwise.
  ///
  /// Returns the mean of a score per accepted clique: the absolute interaction that stands, in the
  /// sorted list, at the place of the clique's rank, which is in general another clique's. A NaN if
  /// no clique was accepted. Throws logic_error for k below 2. Tags "ENT  ", "MI   ", "SORT " and
  /// "CLIQS".
  double buildCliques(val_t theta, idx_t k, ProgressCallback progress,
                      StatFunction<idx_t, val_t> stat);

  /// As `buildCliques`, but draws cliques at random and accepts them by their interaction, so that
  /// nothing but what is drawn is counted. Needs statistics of `sumStats`. Sets `graphType` to
  /// `RNDCLIQUES` and returns the mean absolute interaction of the accepted cliques. Asserts
  /// "Imax < upper". Throws logic_error for k below 2, above 63 or above the number of vertices,
  /// and when refusals have left no chance to go on. The tag is "STRUCT", followed after the first
  /// clique by ";" and the share of accepted draws.
  double buildCliquesRnd(val_t theta, idx_t k, ProgressCallback progress,
                         StatFunction<idx_t, val_t> stat, std::mt19937* rng);

  /// Throws logic_error unless the arrays belong to the graph: a graph that was loaded or converted
  /// over a model leaves it with arrays of other lengths.
  void require_matching_arrays() const;

  /// The name of a vertex or of one of its states; empty where the container has none.
  std::string vertex_name(std::size_t v) const {
    return vertexNames != nullptr && v < vertexNames->size() ? (*vertexNames)[v] : std::string();
  }
  std::string state_name(std::size_t v, std::size_t x) const {
    if (categoryLists == nullptr || v >= categoryLists->size()) return {};
    const NameList& names = *(*categoryLists)[v];
    return x < names.size() ? names[x] : std::string();
  }

  /// The parameters of one edge begin at this entry of the weights.
  idx_t weight_offset(idx_t e) const {
    const std::size_t n = graph->vertices();
    return wrapping_sub(offsets[n + e], offsets[n]);
  }

  /// Writes the adjacency matrix as text: cells joined by ",". With one-byte indices each cell is
  /// the raw byte 0 or 1.
  void storeADJ(const std::string& filename) const;
  /// Writes the Trivial Graph Format: vertices with their names, "#", edges, all counted from 1.
  void storeTGF(const std::string& filename) const;
  /// Writes a factor graph text: one table of exp(weight) per edge, its first vertex fastest.
  void storeFG(const std::string& filename) const;

  unsigned char idxCode = static_cast<unsigned char>(idx_code<idx_t>());
  unsigned char valCode = static_cast<unsigned char>(val_code<val_t>());
  /// 1 for a container that was read from a file.
  unsigned char fromFile = 0;
  /// 1 keeps the machine from destroying the container; always 0 here.
  unsigned char reservedByte = 0;
  AbstractGraph<idx_t>* graph = nullptr;
  /// The graph of one time slice below a graph over time; null otherwise.
  AbstractGraph<idx_t>* baseGraph = nullptr;
  /// `dim` parameters.
  val_t* weights = nullptr;
  /// `statsLength` counts: a block per vertex, then a block per edge.
  val_t* stats = nullptr;
  /// The state count of each vertex.
  idx_t* states = nullptr;
  /// `numOffsets` block starts of `stats`.
  idx_t* offsets = nullptr;
  /// The name of each state, per vertex; null in an empty container.
  std::vector<NameList*>* categoryLists = nullptr;
  /// The name of each vertex; null in an empty container.
  NameList* vertexNames = nullptr;
  /// The sum over edges of states[s] * states[t].
  idx_t dim = 0;
  /// Vertices + edges + 1.
  idx_t numOffsets = 0;
  /// The sum of `states`, plus `dim`.
  idx_t statsLength = 0;
  /// The `GraphType`.
  idx_t graphType = 0;
  /// Time slices.
  idx_t slices = 0;
  /// The `ReparamType`.
  idx_t reparam = 0;
  idx_t reservedWord = 0;
  /// Data rows behind `stats`.
  idx_t samples = 0;
  /// The layer sizes of register `LPT`, in program text.
  std::string layerText;
  std::string reservedText;
};

template <class idx_t, class val_t>
IO<idx_t, val_t>::~IO() {
  if (categoryLists != nullptr) {
    for (const NameList* names : *categoryLists) delete names;
  }
  delete categoryLists;
  delete vertexNames;
}

template <class idx_t, class val_t>
void IO<idx_t, val_t>::require_matching_arrays() const {
  if (graph == nullptr || states == nullptr) throw std::logic_error("the model has no graph");
  const std::size_t n = graph->vertices();
  bool fits = vertexNames == nullptr || vertexNames->size() == n;
  fits = fits && offsets != nullptr && numOffsets == wrapping_cast<idx_t>(n + graph->edges() + 1);
  idx_t vertex_entries = 0;
  for (std::size_t v = 0; fits && v < n; ++v) {
    vertex_entries = wrapping_add(vertex_entries, states[v]);
  }
  fits = fits && offsets[n] == vertex_entries;
  for (idx_t e = 0; fits && e < graph->edges(); ++e) {
    const auto [s, t] = endpoints(*graph, e);
    fits = wrapping_sub(offsets[n + e + 1], offsets[n + e]) == wrapping_mul(states[s], states[t]);
  }
  fits = fits && wrapping_sub(offsets[n + graph->edges()], offsets[n]) == dim;
  if (!fits) throw std::logic_error("the model's arrays do not belong to its graph");
}

}  // namespace QZ

// The bodies, by theme. None of them rests on another.
#include "QZ/io/chow_liu.h"
#include "QZ/io/cliques.h"
#include "QZ/io/elementary.h"
#include "QZ/io/graph_export.h"
#include "QZ/io/model_file.h"
#include "QZ/io/random_cliques.h"
#include "QZ/io/reconfigure.h"
