#pragma once

/// ESTIMATE: the weights that fit the statistics of the container in `MPT`.

#include <algorithm>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <type_traits>

#include "QZ/inference/engine.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/vm.h"
#include "QZ/mrf/abstract_mrf.h"
#include "QZ/opt/evolution.h"
#include "QZ/opt/fista.h"
#include "QZ/opt/gradient_descent.h"
#include "QZ/opt/integer_descent.h"
#include "QZ/opt/optimizer.h"
#include "QZ/opt/proximal_gradient.h"
#include "QZ/support/conversions.h"

namespace QZ {

namespace operations {

template <class idx_t, class val_t>
using OptimizerPtr = std::unique_ptr<Optimizer<idx_t, val_t, true>>;

[[noreturn]] inline void throw_unknown_optimizer() {
  throw std::out_of_range("unknown optimization algorithm");
}

/// The optimizer that the caller's factory in `EXT1` makes.
template <class idx_t, class val_t>
OptimizerPtr<idx_t, val_t> make_external_optimizer(const vm_t& machine) {
  using Hook = void(OptState<idx_t, val_t>*);
  using Factory = Optimizer<idx_t, val_t, true>*(Hook*, Hook*);
  Factory* factory = machine.function<Factory>(VarType::EXT1);
  if (factory == nullptr) throw_unknown_optimizer();
  const unsigned long value_type = machine.get(VarType::VAL);
  if (value_type != static_cast<unsigned long>(ValType::FLT32) &&
      value_type != static_cast<unsigned long>(ValType::FLT64)) {
    throw std::out_of_range("incompatible data types for external inference algorithm");
  }
  OptimizerPtr<idx_t, val_t> optimizer(
      factory(machine.function<Hook>(VarType::CBU), machine.function<Hook>(VarType::CPR)));
  if (optimizer == nullptr) throw std::logic_error("the factory in EXT1 made no optimizer");
  return optimizer;
}

/// The optimizer in register `OPT`.
template <class idx_t, class val_t>
OptimizerPtr<idx_t, val_t> make_optimizer(vm_t& machine) {
  using Hook = void(OptState<idx_t, val_t>*);
  const unsigned long code = machine.get(VarType::OPT);
  const auto is = [code](OptType type) { return code == static_cast<unsigned long>(type); };
  if constexpr (std::is_integral_v<val_t>) {
    const idx_t k_limit = wrapping_cast<idx_t>(machine.get(VarType::KXX));
    if (is(OptType::EA11)) return std::make_unique<EA11<idx_t>>(k_limit, &machine.random_engine());
    if (is(OptType::IGD)) {
      const auto& container = *machine.require_object<IO<idx_t, val_t>>(VarType::MPT);
      return std::make_unique<IntGD<idx_t>>(*container.graph, container.states, k_limit);
    }
    throw_unknown_optimizer();
  } else {
    Hook* update = machine.function<Hook>(VarType::CBU);
    Hook* proximal = machine.function<Hook>(VarType::CPR);
    if (is(OptType::GD)) return std::make_unique<GradientDescent<idx_t, val_t>>(update);
    if (is(OptType::PL1)) return std::make_unique<ProximalGradient<idx_t, val_t>>(update, proximal);
    if (is(OptType::FL1)) return std::make_unique<FISTA<idx_t, val_t>>(update, proximal);
    if (is(OptType::EXTO)) return make_external_optimizer<idx_t, val_t>(machine);
    throw_unknown_optimizer();
  }
}

/// A real register as a value: integers take its nearest unsigned number.
template <class val_t>
val_t value_of(const vm_t& machine, VarType var) {
  return value_cast<val_t>(machine.getR(var));
}

/// The pairwise statistics: frequencies for float and double, counts for integers. One entry per
/// weight.
template <class idx_t, class val_t>
std::unique_ptr<val_t[]> empirical_moments(const IO<idx_t, val_t>& container) {
  const std::size_t n = static_cast<std::size_t>(container.dim);
  const val_t* pairs = container.stats + container.offsets[container.graph->vertices()];
  std::unique_ptr<val_t[]> moments(new val_t[n]);
  for (std::size_t i = 0; i < n; ++i) {
    if constexpr (std::is_integral_v<val_t>) {
      moments[i] = pairs[i];
    } else {
      moments[i] = pairs[i] / static_cast<val_t>(container.samples);
    }
  }
  return moments;
}

}  // namespace operations

template <class idx_t, class val_t>
Optimizer<idx_t, val_t, true>* vm_t::learn(void* model) {
  using Hook = void(OptState<idx_t, val_t>*);
  auto* objective = static_cast<AbstractMRF<idx_t, val_t>*>(model);
  auto optimizer = operations::make_optimizer<idx_t, val_t>(*this);
  optimizer->epsilon = operations::value_of<val_t>(*this, VarType::EPO);

  bool restore = false;
  val_t lam = 0;
  val_t elam = 0;
  if constexpr (std::is_integral_v<val_t>) {
    optimizer->rng = &random_engine();
    restore = get(VarType::OPT) == static_cast<unsigned long>(OptType::EA11);
  } else {
    lam = operations::value_of<val_t>(*this, VarType::LAM);
    elam = operations::value_of<val_t>(*this, VarType::ELAM);
  }
  const val_t best = optimizer->opt(
      objective, function<Hook>(VarType::CBU), function<Hook>(VarType::CBO),
      reinterpret_cast<void*>(word(VarType::MPT)), wrapping_cast<idx_t>(get(VarType::MIO)),
      operations::value_of<val_t>(*this, VarType::STP), restore, lam, elam);
  if constexpr (std::is_integral_v<val_t>) {
    set(VarType::RES, static_cast<unsigned long>(best));
  } else {
    set(VarType::RES, static_cast<double>(best));
  }
  return optimizer.release();
}

template <class idx_t, class val_t>
void vm_t::estimateFunc0() {
  auto* container = require_object<IO<idx_t, val_t>>(VarType::MPT);
  // First the engine: its selection makes sure that the arrays belong to the graph.
  const std::unique_ptr<InferenceAlgorithm<idx_t, val_t>> engine(getIA<idx_t, val_t>());
  const std::unique_ptr<val_t[]> moments = operations::empirical_moments(*container);
  const std::unique_ptr<AbstractMRF<idx_t, val_t>> model(getMOD<idx_t, val_t>(engine.get()));
  val_t* borrowed = moments.get();
  model->set_empirical(borrowed, container->samples);

  // As many entries as the model has parameters, where that is fewer than the engine has weights.
  const std::size_t n = static_cast<std::size_t>(model->dim);
  val_t* point = model->current_point();
  if (get(VarType::RST) != 0) {
    std::fill_n(point, n, val_t(0));
  } else if (point != container->weights) {
    std::copy_n(container->weights, n, point);
  }
  model->decode_weights();
  const operations::OptimizerPtr<idx_t, val_t> optimizer(learn<idx_t, val_t>(model.get()));
  if (point != container->weights) std::copy_n(point, n, container->weights);
}

}  // namespace QZ
