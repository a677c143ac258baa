/// Program text. One item is one line, parsed and carried out.

#include <benchmark/benchmark.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "QZ/machine/vm.h"
#include "scalar_exp.h"

namespace {

constexpr std::size_t lines_per_program = 10000;

/// Runs a program of equal lines again and again. `done` says whether it did what it should.
template <class Done>
void run_lines(benchmark::State& state, const std::string& line, Done&& done) {
  QZ::vm_t machine;
  machine.setCode(new std::vector<std::string>(lines_per_program, line));
  machine.run();
  if (!done(machine)) throw std::logic_error("the program left a wrong result");
  for (auto _ : state) {
    machine.set(QZ::VarType::LNN, 0ul);
    machine.run();
  }
  state.SetItemsProcessed(state.iterations() * lines_per_program);
  machine.release_code();
}

void assignment(benchmark::State& state) {
  run_lines(state, "MIO 500;", [](const QZ::vm_t& vm) { return vm.get(QZ::VarType::MIO) == 500; });
}
BENCHMARK(assignment);

void real_assignment(benchmark::State& state) {
  run_lines(state, "STP 0.125;",
            [](const QZ::vm_t& vm) { return vm.getR(QZ::VarType::STP) == 0.125; });
}
BENCHMARK(real_assignment);

void arithmetic(benchmark::State& state) {
  run_lines(state, "ADD GP0 ONE;", [](const QZ::vm_t& vm) {
    return vm.getR(QZ::VarType::GP0) == static_cast<double>(lines_per_program);
  });
}
BENCHMARK(arithmetic);

void comment(benchmark::State& state) {
  run_lines(state, "# a remark",
            [](const QZ::vm_t& vm) { return vm.get(QZ::VarType::LNN) == lines_per_program; });
}
BENCHMARK(comment);

}  // namespace
