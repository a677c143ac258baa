#pragma once

/// Model files: reading and writing the container.
///
/// All numbers are in the machine's byte order, I bytes wide where nothing else is said; V is the
/// width of a value. The file says neither width.
///
///   graph file       n, m, 2m endpoints
///   graphType
///   layerText        its length in 8 bytes, then the bytes
///   reservedText     its length in 8 bytes, then the bytes
///   slices  reparam  samples  reservedWord
///   per vertex       state count, name and zero byte, then each state's name and zero byte; with
///                    several time slices, the vertices of all slices of the stored graph
///   dim
///   statistics       (sum of state counts + dim) * V bytes
///   weights          dim * V bytes, only if there are any

#include <filesystem>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

#include "QZ/data/statistics.h"
#include "QZ/graph/graph.h"
#include "QZ/graph/unrolled.h"
#include "QZ/inference/pairwise_model.h"
#include "QZ/io/model_container.h"
#include "QZ/support/file_fields.h"

namespace QZ {

/// Reads the fields of a model file and knows how many bytes are left, so that a count is tested
/// before anything is allocated for it.
class ModelFileReader {
 public:
  explicit ModelFileReader(const std::string& name) : name_(name), file_(name) {
    std::error_code unknown_size;
    size_ = std::filesystem::file_size(name, unknown_size);
    if (unknown_size) size_ = 0;
    left_ = size_;
  }

  void seek(std::size_t position) {
    if (position > size_) fail();
    file_.seek(position);
    left_ = size_ - position;
  }

  /// Throws unless `count` items of at least `width` bytes can follow.
  void expect(unsigned long count, std::size_t width) const {
    if (count > left_ / width) fail();
  }

  template <class number_t>
  number_t number() {
    take(sizeof(number_t));
    return file_.template number<number_t>();
  }

  /// Reads what the file still holds of `count` numbers.
  template <class number_t>
  void array(number_t* values, std::size_t count) {
    take(sizeof(number_t) * file_.array(values, count));
  }

  /// A text behind its length in 8 bytes.
  std::string counted_text() {
    const auto length = number<unsigned long>();
    expect(length, 1);
    take(length);
    return file_.text(length);
  }

  std::string zero_text() {
    std::string text = file_.zero_text();
    take(text.size() + 1);
    return text;
  }

  [[noreturn]] void fail() const {
    throw std::logic_error("the model file " + name_ + " is damaged");
  }

 private:
  void take(std::size_t bytes) {
    if (bytes > left_) fail();
    left_ -= bytes;
  }

  std::string name_;
  FieldReader file_;
  std::size_t size_ = 0;
  std::size_t left_ = 0;
};

/// The graph at the head of a model file, and the file's reader behind it. Throws as `IO` does.
template <class idx_t>
std::unique_ptr<AbstractGraph<idx_t>> read_model_graph(const std::string& filename,
                                                       ModelFileReader& file) {
  const auto vertices = file.number<idx_t>();
  const auto edges = file.number<idx_t>();
  file.expect(edges, 2 * sizeof(idx_t));
  file.expect(vertices, sizeof(idx_t) + 1);
  file.seek((static_cast<std::size_t>(edges) + 1) * 2 * sizeof(idx_t));
  try {
    return std::make_unique<Graph<idx_t>>(filename);
  } catch (const std::logic_error&) {
    file.fail();
  }
}

/// Moves the stored graph to `base` and puts the graph over all slices in its place.
template <class idx_t>
void unroll_model_graph(std::unique_ptr<AbstractGraph<idx_t>>& graph,
                        std::unique_ptr<AbstractGraph<idx_t>>& base, idx_t slices,
                        const ModelFileReader& file) {
  base = std::move(graph);
  try {
    graph = std::make_unique<STGraph<idx_t>>(slices, base.get());
  } catch (const std::logic_error&) {
    file.fail();
  }
}

template <class idx_t, class val_t>
IO<idx_t, val_t>::IO(const std::string& filename) : IO() {
  // A constructor that delegates has its destructor run when it throws, so the names are safe in
  // members; the rest waits in local owners.
  fromFile = 1;
  ModelFileReader file(filename);
  auto stored_graph = read_model_graph<idx_t>(filename, file);
  graphType = file.number<idx_t>();
  layerText = file.counted_text();
  reservedText = file.counted_text();
  slices = file.number<idx_t>();
  reparam = file.number<idx_t>();
  samples = file.number<idx_t>();
  reservedWord = file.number<idx_t>();
  std::unique_ptr<AbstractGraph<idx_t>> slice_graph;
  if (slices > 1) unroll_model_graph(stored_graph, slice_graph, slices, file);

  const std::size_t n = stored_graph->vertices();
  file.expect(n, sizeof(idx_t) + 1);
  auto counts = std::make_unique<idx_t[]>(n);
  vertexNames = new NameList;
  categoryLists = new std::vector<NameList*>;
  unsigned long entries = 0;
  for (std::size_t v = 0; v < n; ++v) {
    counts[v] = file.number<idx_t>();
    vertexNames->push_back(file.zero_text());
    file.expect(counts[v], 1);
    entries += counts[v];
    categoryLists->push_back(nullptr);
    categoryLists->back() = new NameList;
    for (idx_t x = 0; x < counts[v]; ++x) categoryLists->back()->push_back(file.zero_text());
  }
  dim = file.number<idx_t>();
  entries += unwrapped_dim(*stored_graph, counts.get());
  if (entries > std::numeric_limits<idx_t>::max() || calcDim(*stored_graph, counts.get()) != dim) {
    file.fail();
  }
  auto starts = statistics_offsets(*stored_graph, counts.get(), true, numOffsets);
  statsLength = static_cast<idx_t>(entries);
  file.expect(entries, sizeof(val_t));
  auto read_stats = std::make_unique<val_t[]>(statsLength);
  auto read_weights = std::make_unique<val_t[]>(dim);
  file.array(read_stats.get(), statsLength);
  file.array(read_weights.get(), dim);
  offsets = starts.release();
  graph = stored_graph.release();
  baseGraph = slice_graph.release();
  states = counts.release();
  stats = read_stats.release();
  weights = read_weights.release();
}

template <class idx_t, class val_t>
void IO<idx_t, val_t>::store(const std::string& filename) const {
  require_matching_arrays();
  // The file holds one slice, and its reader unrolls it by their number.
  const auto* unrolled = dynamic_cast<const STGraph<idx_t>*>(graph);
  if ((unrolled == nullptr ? slices > 1 : slices != unrolled->slices)) {
    throw std::logic_error("the model's time slices are not those of its graph");
  }
  graph->store(filename);
  FieldWriter file(filename, FieldWriter::Mode::append);
  const auto counted_text = [&](const std::string& text) {
    file.number(static_cast<unsigned long>(text.size()));
    file.text(text);
  };
  // A zero byte inside a name would end it for the reader, so it ends here.
  const auto name = [&](const std::string& text) { file.zero_text(text.c_str()); };
  file.number(graphType);
  counted_text(layerText);
  counted_text(reservedText);
  file.number(slices);
  file.number(reparam);
  file.number(samples);
  file.number(reservedWord);
  for (std::size_t v = 0; v < graph->vertices(); ++v) {
    file.number(states[v]);
    name(vertex_name(v));
    for (std::size_t x = 0; x < states[v]; ++x) name(state_name(v, x));
  }
  file.number(dim);
  file.array(stats, statsLength);
  if (weights != nullptr) file.array(weights, dim);
  file.close();
}

}  // namespace QZ
