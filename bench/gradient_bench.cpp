/// The gradient of the plain pairwise field. One item is one parameter; the marginals are those of
/// an engine that has nothing to infer, so that the gradient stands alone.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "QZ/bp/lbp.h"
#include "QZ/graph/grid.h"
#include "QZ/mrf/mrf.h"
#include "QZ/opt/fista.h"
#include "QZ/opt/gradient_descent.h"
#include "QZ/support/random.h"
#include "scalar_exp.h"

namespace {

using idx_t = unsigned int;

/// Belief propagation that keeps what its first run has found.
template <class val_t>
class Settled : public QZ::LBP<idx_t, val_t> {
 public:
  using QZ::LBP<idx_t, val_t>::LBP;
};

/// A square grid with random weights and moments, and an engine that stops at once.
template <class val_t, class Engine>
struct Problem {
  Problem(idx_t side, idx_t count)
      : graph(side),
        states(graph.vertices(), count),
        engine(&graph, states.data(), nullptr, &rng),
        model(&engine),
        moments(model.dim) {
    engine.max_iterations = 0;
    for (idx_t i = 0; i < model.dim; ++i) {
      engine.weights[i] = static_cast<val_t>(QZ::draw_canonical(rng) - 0.5);
      moments[i] = static_cast<val_t>(QZ::draw_canonical(rng));
    }
    val_t* data = moments.data();
    model.set_empirical(data, 1);
  }

  /// The largest deviation from the definition, entry by entry.
  double error() {
    double worst = 0;
    model.comp_gradient();
    for (idx_t e = 0; e < graph.edges(); ++e) {
      const auto [s, t] = QZ::endpoints(graph, e);
      for (idx_t k = 0; k < states[s] * states[t]; ++k) {
        val_t q = 0, Z = 0;
        engine.edge_marginal(e, k / states[t], k % states[t], q, Z);
        const idx_t i = engine.weight_offsets[e] + k;
        worst = std::max(worst, std::abs(double(model.gradient[i]) - (double(q) / Z - moments[i])));
      }
    }
    return worst;
  }

  std::mt19937 rng{1};
  QZ::Grid<idx_t> graph;
  std::vector<idx_t> states;
  Engine engine;
  QZ::MRF<idx_t, val_t> model;
  std::vector<val_t> moments;
};

template <class val_t, class Engine>
void gradient(benchmark::State& state) {
  omp_set_num_threads(static_cast<int>(state.range(2)));
  Problem<val_t, Engine> problem(static_cast<idx_t>(state.range(0)),
                                 static_cast<idx_t>(state.range(1)));
  if (problem.error() > 1e-6) state.SkipWithError("wrong gradient");
  for (auto _ : state) benchmark::DoNotOptimize(problem.model.comp_gradient());
  state.SetItemsProcessed(state.iterations() * problem.model.dim);
}

void inference_alone(benchmark::State& state) {
  omp_set_num_threads(static_cast<int>(state.range(2)));
  Problem<double, QZ::LBP<idx_t, double>> problem(static_cast<idx_t>(state.range(0)),
                                                  static_cast<idx_t>(state.range(1)));
  for (auto _ : state) problem.engine.infer(0);
  state.SetItemsProcessed(state.iterations() * problem.model.dim);
}

void objective(benchmark::State& state) {
  Problem<double, QZ::LBP<idx_t, double>> problem(100, 4);
  problem.model.comp_gradient();
  for (auto _ : state) benchmark::DoNotOptimize(problem.model.eval());
  state.SetItemsProcessed(state.iterations() * problem.model.dim);
}

template <class Method>
void step(benchmark::State& state) {
  Problem<double, QZ::LBP<idx_t, double>> problem(100, 4);
  problem.model.comp_gradient();
  QZ::OptState<idx_t, double> s{};
  s.x = problem.model.current_point();
  s.grad = problem.model.get_gradient();
  s.dim = problem.model.dim;
  Method method;
  for (auto _ : state) method.update(&problem.model, s);
  state.SetItemsProcessed(state.iterations() * problem.model.dim);
}

void sizes(benchmark::internal::Benchmark* b) {
  b->ArgNames({"side", "states", "threads"});
  for (const int threads : {1, 2}) {
    b->Args({100, 2, threads})->Args({100, 4, threads})->Args({30, 16, threads});
  }
  b->UseRealTime();
}

BENCHMARK(gradient<double, QZ::LBP<idx_t, double>>)->Name("gradient/lbp/double")->Apply(sizes);
BENCHMARK(gradient<float, QZ::LBP<idx_t, float>>)->Name("gradient/lbp/float")->Apply(sizes);
BENCHMARK(gradient<double, Settled<double>>)->Name("gradient/any_engine/double")->Apply(sizes);
BENCHMARK(inference_alone)->Name("infer_without_iterations/double")->Apply(sizes);
BENCHMARK(objective)->Name("objective/double");
BENCHMARK(step<QZ::GradientDescent<idx_t, double>>)->Name("step/gradient_descent/double");

}  // namespace
