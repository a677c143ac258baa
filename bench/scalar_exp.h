#pragma once

/// The unit that the items of one run are compared with: one call of `std::exp(double)`.

#include <benchmark/benchmark.h>

#include <cmath>

inline void scalar_exp(benchmark::State& state) {
  double x = 0.5;
  for (auto _ : state) {
    benchmark::DoNotOptimize(x);
    double y = std::exp(x);
    benchmark::DoNotOptimize(y);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(scalar_exp);
