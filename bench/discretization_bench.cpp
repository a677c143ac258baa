// Learning and applying bins. One item is one value of the column.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "QZ/data/discretization.h"
#include "scalar_exp.h"

namespace {

constexpr std::size_t values = 1000000;

std::vector<double> normal_column() {
  std::mt19937 rng(1);
  std::normal_distribution<double> normal;
  std::vector<double> column(values);
  for (double& x : column) x = normal(rng);
  return column;
}

/// Whether every one of the bins took about its share.
bool even(const std::vector<unsigned short>& categories, std::size_t bins) {
  for (std::size_t bin = 0; bin < bins; ++bin) {
    const auto count =
        static_cast<std::size_t>(std::count(categories.begin(), categories.end(), bin));
    if (count + 2 * bins < values / bins || count > values / bins + 2 * bins) return false;
  }
  return true;
}

void release(const DiscretizationModel& model) {
  delete[] model.intervals;
  delete[] model.moments;
}

void learn(benchmark::State& state) {
  omp_set_num_threads(static_cast<int>(state.range(1)));
  const auto bins = static_cast<std::size_t>(state.range(0));
  const std::vector<double> column = normal_column();
  std::vector<unsigned short> categories(values);
  for (auto _ : state) {
    release(QZ::discretize(categories.data(), column.data(), values, bins));
  }
  if (!even(categories, bins)) state.SkipWithError("the bins are uneven");
  state.SetItemsProcessed(static_cast<long>(state.iterations() * values));
}
BENCHMARK(learn)
    ->ArgNames({"bins", "threads"})
    ->Args({10, 1})
    ->Args({10, 2})
    ->Args({1000, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void apply(benchmark::State& state) {
  omp_set_num_threads(static_cast<int>(state.range(1)));
  const auto bins = static_cast<std::size_t>(state.range(0));
  const std::vector<double> column = normal_column();
  std::vector<unsigned short> categories(values);
  const DiscretizationModel model = QZ::discretize(categories.data(), column.data(), values, bins);
  for (auto _ : state) {
    QZ::discretize_precomputed(categories.data(), column.data(), values, model);
  }
  release(model);
  if (!even(categories, bins)) state.SkipWithError("the bins are uneven");
  state.SetItemsProcessed(static_cast<long>(state.iterations() * values));
}
BENCHMARK(apply)
    ->ArgNames({"bins", "threads"})
    ->Args({4, 1})
    ->Args({10, 1})
    ->Args({10, 2})
    ->Args({1000, 1})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
