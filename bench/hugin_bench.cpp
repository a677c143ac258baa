/// Exact propagation. `tree` makes the junction tree, `build` makes it and lays out the tables, one
/// item per tree; `infer` propagates, and `marginals` asks for all vertex marginals, one item per
/// table entry and per vertex state; `all` is the whole way from a graph to log Z and the vertex
/// marginals.

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "QZ/bp/hugin.h"
#include "scalar_exp.h"
#include "support/pairwise_models.h"

namespace {

using Index = unsigned int;
using Model = qz_test::TestModel<Index, double>;
using Engine = QZ::HuginAlgorithm<Index, double>;

struct Shape {
  std::string name;
  std::size_t vertices;
  typename qz_test::ListedGraph<Index>::Edges edges;
  std::size_t states;
};

Model make_model(const Shape& shape) {
  std::mt19937 rng(3);
  Model model(shape.vertices, shape.edges, std::vector<std::size_t>(shape.vertices, shape.states));
  model.gaussian(0.5, rng);
  return model;
}

Engine engine_on(Model& model) {
  return {model.graph.get(), model.states.data(), model.weights.data(), nullptr};
}

double all_marginals(const Engine& engine, const Model& model) {
  double sum = 0;
  for (Index v = 0; v < model.vertices(); ++v) {
    for (Index x = 0; x < model.states[v]; ++x) {
      double q = 0;
      double Z = 0;
      engine.vertex_marginal(v, x, q, Z);
      sum += q / Z;
    }
  }
  return sum;
}

void tree(benchmark::State& state, const Shape& shape) {
  Model model = make_model(shape);
  for (auto _ : state) {
    const QZ::JunctionTree<Index> tree(*model.graph);
    benchmark::DoNotOptimize(tree.cliqueCount);
  }
  state.SetItemsProcessed(state.iterations());
}

void build(benchmark::State& state, const Shape& shape) {
  Model model = make_model(shape);
  for (auto _ : state) {
    Engine engine = engine_on(model);
    benchmark::DoNotOptimize(engine.tree);
  }
  state.SetItemsProcessed(state.iterations());
}

void infer(benchmark::State& state, const Shape& shape) {
  Model model = make_model(shape);
  Engine engine = engine_on(model);
  for (auto _ : state) engine.infer(0);
  state.SetItemsProcessed(state.iterations() * engine.potential_count);
}

void marginals(benchmark::State& state, const Shape& shape) {
  Model model = make_model(shape);
  Engine engine = engine_on(model);
  engine.infer(0);
  double sum = 0;
  for (auto _ : state) benchmark::DoNotOptimize(sum = all_marginals(engine, model));
  if (std::abs(sum / static_cast<double>(model.vertices()) - 1) > 1e-9) {
    state.SkipWithError("the marginals do not sum to 1");
  }
  state.SetItemsProcessed(state.iterations() *
                          static_cast<std::int64_t>(model.vertices() * shape.states));
}

void all(benchmark::State& state, const Shape& shape) {
  Model model = make_model(shape);
  for (auto _ : state) {
    Engine engine = engine_on(model);
    engine.infer(0);
    benchmark::DoNotOptimize(all_marginals(engine, model));
    benchmark::DoNotOptimize(engine.log_partition);
  }
  state.SetItemsProcessed(state.iterations());
}

const bool registered = [] {
  std::mt19937 rng(7);
  const std::vector<Shape> shapes{
      {"grid_12x12_2_states", 144, qz_test::grid_edges(12, 12), 2},
      {"grid_10x10_3_states", 100, qz_test::grid_edges(10, 10), 3},
      {"chain_10000_5_states", 10000, qz_test::chain_edges(10000), 5},
      {"random_tree_2000_5_states", 2000, qz_test::tree_edges(2000, rng), 5}};
  const auto add = [](const std::string& what, auto function, const Shape& shape) {
    benchmark::RegisterBenchmark(
        ("hugin/" + what + "/" + shape.name).c_str(),
        [function, shape](benchmark::State& state) { function(state, shape); })
        ->Unit(benchmark::kMillisecond);
  };
  for (const Shape& shape : shapes) {
    add("tree", tree, shape);
    add("build", build, shape);
    add("infer", infer, shape);
    add("marginals", marginals, shape);
    add("all", all, shape);
  }
  return true;
}();

}  // namespace
