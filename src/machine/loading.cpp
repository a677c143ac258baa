#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <istream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "QZ/data/binary_data.h"
#include "QZ/data/categorical_data.h"
#include "QZ/data/csv_data.h"
#include "QZ/data/numpy_data.h"
#include "QZ/graph/adjacency.h"
#include "QZ/graph/chain.h"
#include "QZ/graph/complete.h"
#include "QZ/graph/graph.h"
#include "QZ/graph/grid.h"
#include "QZ/graph/layered.h"
#include "QZ/graph/star.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/file_list.h"
#include "QZ/machine/values.h"
#include "QZ/machine/vm.h"
#include "QZ/support/conversions.h"

namespace QZ {

namespace {

using Names = std::vector<std::vector<std::string>*>;
using enum VarType;

GraphType graph_kind(const vm_t& vm) {
  return static_cast<GraphType>(static_cast<unsigned char>(vm.get(GRA)));
}

/// The category names of each vertex of a model: the model's own lists, or made up from its state
/// counts as "Y0", "Y1", ...
template <class idx_t, class val_t>
class StateNames {
 public:
  explicit StateNames(const IO<idx_t, val_t>& model) {
    if (model.categoryLists != nullptr && !model.categoryLists->empty()) {
      lists_ = model.categoryLists;
      return;
    }
    if (model.graph == nullptr || model.states == nullptr) {
      throw std::logic_error("the model has no vertices to name");
    }
    const std::size_t vertices = model.graph->vertices();
    made_.resize(vertices);
    for (std::size_t v = 0; v < vertices; ++v) {
      for (std::size_t x = 0; x < model.states[v]; ++x) {
        made_[v].emplace_back("Y").append(std::to_string(x));
      }
      pointers_.push_back(&made_[v]);
    }
    lists_ = &pointers_;
  }

  Names* lists() { return lists_; }

 private:
  std::vector<std::vector<std::string>> made_;
  Names pointers_;
  Names* lists_ = nullptr;
};

/// The hidden columns that a table gets for a layered model.
struct HiddenColumns {
  unsigned long count = 0;
  unsigned long states = 0;
};

/// How many vertices a model has state counts for. A graph that was converted over the model may
/// have more; names are there one per state count, if at all.
template <class idx_t, class val_t>
std::size_t vertices_with_states(const IO<idx_t, val_t>& model) {
  const std::size_t vertices = model.graph->vertices();
  return model.vertexNames == nullptr ? vertices : std::min(vertices, model.vertexNames->size());
}

/// The inner layers are hidden; their vertices have the states of the first vertex behind layer 0.
template <class idx_t, class val_t>
HiddenColumns hidden_columns(const vm_t& vm, const IO<idx_t, val_t>& model) {
  const GraphType kind = graph_kind(vm);
  if (kind != GraphType::RBM && kind != GraphType::DBT) return {};
  const auto& layers = *vm.require_object<std::vector<unsigned long>>(LPT);
  HiddenColumns hidden;
  for (std::size_t i = 1; i + 1 < layers.size(); ++i) hidden.count += layers[i];
  if (hidden.count == 0) return {};
  if (model.graph == nullptr || model.states == nullptr ||
      layers.front() >= vertices_with_states(model)) {
    throw std::logic_error("the layers do not fit the model");
  }
  hidden.states = model.states[layers.front()];
  return hidden;
}

bool has_binary_magic(const std::string& name) {
  char head[sizeof CategoricalBinaryData::magic] = {};
  std::ifstream(name, std::ios::binary).read(head, sizeof head);
  return std::memcmp(head, CategoricalBinaryData::magic, sizeof head) == 0;
}

std::unique_ptr<CategoricalData> binary_table() {
  return std::make_unique<CategoricalBinaryData>(false, '?', true, nullptr);
}

std::unique_ptr<CategoricalData> text_table(const vm_t& vm, Names* names) {
  return std::make_unique<CategoricalCSVData>(vm.get(HED) != 0, static_cast<char>(vm.get(MIS)),
                                              vm.get(YYC) != 0, names);
}

/// The caller's block: `NXX` rows of 16-bit cells, `GPX` bytes in all, row-major.
std::unique_ptr<CategoricalData> cell_block_table(const vm_t& vm, Names* names) {
  auto table = std::make_unique<CategoricalNumPyData>(false, '?', vm.get(YYC) != 0, names);
  const unsigned long rows = vm.get(NXX);
  table->read(vm.function<unsigned short>(EDP), rows, vm.get(GPX) / rows / sizeof(unsigned short));
  return table;
}

/// The table of the caller's memory or of the data file. Only a text and a file get the hidden
/// columns, and report their size in `RES`.
std::unique_ptr<CategoricalData> read_table(vm_t& vm, Names* names, HiddenColumns hidden) {
  const auto* block = vm.function<const void>(EDP);
  if (block != nullptr && vm.get(NXX) != 0) return cell_block_table(vm, names);
  unsigned long size = 0;
  std::unique_ptr<CategoricalData> table;
  if (block != nullptr) {
    const auto& text = *static_cast<const std::string*>(block);
    table = text_table(vm, names);
    std::istringstream in(text);
    table->read(in);
    size = text.size();
  } else {
    const std::string name = vm.text(DFN);
    table = has_binary_magic(name) ? binary_table() : text_table(vm, names);
    table->read(name);
    size = static_cast<unsigned long>(std::streamoff(filesize(name)));
  }
  table->addColumns(hidden.count, hidden.states);
  vm.set(RES, size);
  return table;
}

/// The vertices of the next graph: the table's columns per time slice, or what `GVX` says.
template <class idx_t>
idx_t vertices_to_make(const vm_t& vm) {
  unsigned long vertices = vm.get(GVX);
  if (vm.word(DPT) != 0) {
    const auto& table = *vm.require_object<CategoricalData>(DPT);
    const unsigned long slices = vm.get(TXX);
    if (table.N != 0) vertices = slices == 0 ? 0 : (table.n + table.H) / slices;
  }
  return wrapping_cast<idx_t>(vertices);
}

template <class idx_t>
std::unique_ptr<AbstractGraph<idx_t>> layered_graph(const vm_t& vm) {
  if (vm.get(TXX) > 1) throw std::out_of_range("Temporal RBM is not supported");
  const auto* layers = vm.object<std::vector<unsigned long>>(LPT);
  if (layers == nullptr) throw std::out_of_range("RBM requires layer definition");
  if (layers->size() < 2) throw std::out_of_range("RBM requires more than one layer");
  return std::make_unique<RBMGraph<idx_t>>(*layers);
}

template <class idx_t>
std::unique_ptr<AbstractGraph<idx_t>> listed_graph(const vm_t& vm) {
  if (auto* edges = vm.function<idx_t>(EAP); edges != nullptr) {
    return std::make_unique<Graph<idx_t>>(borrowed_edges, edges, wrapping_cast<idx_t>(vm.get(GVX)),
                                          wrapping_cast<idx_t>(vm.get(GEX)));
  }
  idx_t* adjacency = nullptr;
  idx_t n = 0;
  idx_t m = 0;
  adjFromCSV(vm.text(GFN), adjacency, n, m, static_cast<char>(vm.get(SEP)));
  const std::unique_ptr<idx_t, decltype(&std::free)> owner(adjacency, &std::free);
  return std::make_unique<Graph<idx_t>>(adjacency, n, m);
}

/// The graph that the registers ask for; null for a kind that is not made but converted to.
template <class idx_t>
std::unique_ptr<AbstractGraph<idx_t>> make_graph(const vm_t& vm) {
  const idx_t n = vertices_to_make<idx_t>(vm);
  switch (graph_kind(vm)) {
    case GraphType::RBM:
      return layered_graph<idx_t>(vm);
    case GraphType::CHAIN:
    // The clique learners start from a path and replace it.
    case GraphType::CLIQUES:
    case GraphType::RNDCLIQUES:
      return std::make_unique<Chain<idx_t>>(n);
    case GraphType::GRID:
      return std::make_unique<Grid<idx_t>>(
          static_cast<idx_t>(std::floor(std::sqrt(static_cast<double>(n)))));
    case GraphType::STAR:
      return std::make_unique<Star<idx_t>>(n, wrapping_cast<idx_t>(vm.get(CEN)));
    case GraphType::FULL:
    // The tree and elementary learners start from the complete graph.
    case GraphType::CHOWLIU:
    case GraphType::ELEMGM:
      return std::make_unique<Kn<idx_t>>(n, vm.progress_callback());
    case GraphType::FILE:
      return listed_graph<idx_t>(vm);
    default:
      return nullptr;
  }
}

/// Throws unless the loaded model can take over the graph.
template <class idx_t, class val_t>
void require_fit(const IO<idx_t, val_t>& model, const AbstractGraph<idx_t>* graph) {
  if (graph == nullptr) {
    throw std::logic_error("a graph of this kind cannot be loaded into a model");
  }
  // One name per vertex, so one per state count too; categories may be there for further columns.
  const bool named = model.vertexNames != nullptr;
  if (model.states == nullptr || (named && graph->vertices() > model.vertexNames->size())) {
    throw std::logic_error("the graph has more vertices than the model");
  }
}

/// Gives a model a new graph and the dimension that follows from it. Where that is larger, the
/// weights grow by zeroes, so that they have as many entries as the model has parameters.
template <class idx_t, class val_t>
void replace_graph(IO<idx_t, val_t>& model, AbstractGraph<idx_t>& graph, idx_t kind) {
  const idx_t old_dim = model.dim;
  model.graph = &graph;
  model.graphType = kind;
  model.dim = calcDim(graph, model.states);
  if (model.weights == nullptr || model.dim <= old_dim) return;
  auto grown = std::make_unique<val_t[]>(model.dim);
  std::copy_n(model.weights, old_dim, grown.get());
  delete[] model.weights;
  model.weights = grown.release();
}

}  // namespace

template <class idx_t, class val_t>
void vm_t::loadData0() {
  std::unique_ptr<StateNames<idx_t, val_t>> names;
  HiddenColumns hidden;
  if (word(MPT) != 0) {
    const auto& model = *require_object<IO<idx_t, val_t>>(MPT);
    names = std::make_unique<StateNames<idx_t, val_t>>(model);
    hidden = hidden_columns(*this, model);
  }
  auto table = read_table(*this, names == nullptr ? nullptr : names->lists(), hidden);
  const unsigned long rows = table->N;
  set_word(DPT, reinterpret_cast<unsigned long>(table.release()));
  set(NXX, rows);
}

template <class idx_t, class val_t>
void vm_t::loadGraph0() {
  auto* model = word(MPT) == 0 ? nullptr : require_object<IO<idx_t, val_t>>(MPT);
  auto made = make_graph<idx_t>(*this);
  if (model != nullptr) require_fit(*model, made.get());
  AbstractGraph<idx_t>* graph = made.release();
  set(GPT, static_cast<void*>(graph));
  if (model != nullptr) replace_graph(*model, *graph, wrapping_cast<idx_t>(get(GRA)));
}

template <class idx_t, class val_t>
void vm_t::loadModel0() {
  auto* model = new IO<idx_t, val_t>(text(MFN));
  set(MPT, static_cast<void*>(model));
  set(NXX, static_cast<unsigned long>(model->samples));
  set(GPT, static_cast<void*>(model->graph));
  set(GRA, static_cast<unsigned long>(model->graphType));
  set_word(LPT, reinterpret_cast<unsigned long>(getL<unsigned long>(model->layerText)));
  set(REP, static_cast<unsigned long>(model->reparam));
}

void vm_t::loadData() {
  for_type_pair(
      [&]<class idx_t, class val_t>(type_pair<idx_t, val_t>) { loadData0<idx_t, val_t>(); });
}

void vm_t::loadGraph() {
  for_type_pair(
      [&]<class idx_t, class val_t>(type_pair<idx_t, val_t>) { loadGraph0<idx_t, val_t>(); });
}

void vm_t::loadModel() {
  for_type_pair(
      [&]<class idx_t, class val_t>(type_pair<idx_t, val_t>) { loadModel0<idx_t, val_t>(); });
}

void vm_t::storeGraph() {
  for_type_pair([&]<class idx_t, class val_t>(type_pair<idx_t, val_t>) {
    requireMPT();
    const auto& model = *require_object<IO<idx_t, val_t>>(MPT);
    switch (static_cast<GraphExport>(static_cast<unsigned char>(get(FMT)))) {
      case GraphExport::ADJ:
        return model.storeADJ(text(GFN));
      case GraphExport::TGF:
        return model.storeTGF(text(GFN));
      case GraphExport::FG:
        return model.storeFG(text(GFN));
    }
  });
}

}  // namespace QZ
