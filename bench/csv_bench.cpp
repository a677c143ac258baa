// Reading text tables. One item is a cell; bytes are those of the text.

#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <sstream>
#include <string>

#include "QZ/data/csv_data.h"
#include "scalar_exp.h"

namespace {

constexpr unsigned long rows = 100000;
constexpr unsigned long columns = 20;

/// A table whose cells are `length` letters long and name one of `categories`.
std::string text_table(unsigned long categories, unsigned long length) {
  std::mt19937 rng(1);
  std::string text = "\n";
  for (unsigned long i = 0; i < rows * columns; ++i) {
    std::string name = std::to_string(rng() % categories);
    name.insert(0, name.size() < length ? length - name.size() : 0, 'c');
    text += name + ((i + 1) % columns == 0 ? '\n' : ',');
  }
  return text;
}

void read_text(benchmark::State& state) {
  const std::string text = text_table(state.range(0), state.range(1));
  unsigned long found = 0;
  for (auto _ : state) {
    std::istringstream in(text);
    QZ::CategoricalCSVData table(false, '?', false, nullptr);
    table.read(in);
    found = table.N * table.n;
  }
  if (found != rows * columns) state.SkipWithError("cells are missing");
  state.SetBytesProcessed(static_cast<long>(state.iterations() * text.size()));
  state.SetItemsProcessed(static_cast<long>(state.iterations() * found));
}

BENCHMARK(read_text)
    ->ArgNames({"categories", "length"})
    ->Args({4, 1})
    ->Args({10, 6})
    ->Args({1000, 20})
    ->Unit(benchmark::kMillisecond);

}  // namespace
