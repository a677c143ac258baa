#pragma once

/// The inference engine that the registers ask for.

#include <random>
#include <stdexcept>
#include <type_traits>

#include "QZ/bp/bit_length_bp.h"
#include "QZ/bp/hugin.h"
#include "QZ/bp/lbp.h"
#include "QZ/inference/engine.h"
#include "QZ/inference/sqm_plus.h"
#include "QZ/io/model_container.h"
#include "QZ/machine/vm.h"
#include "QZ/support/conversions.h"

namespace QZ {

/// A caller's engine factory, register `EXT0`. The first two arguments are the addresses of words
/// that hold the graph and the state counts; all four stay the machine's. The machine deletes the
/// result.
template <class idx_t, class val_t>
using EngineFactory = InferenceAlgorithm<idx_t, val_t>*(AbstractGraph<idx_t>** graph,
                                                        idx_t** states, std::mt19937* rng,
                                                        val_t* weights);

/// The engine that the caller's factory makes. `val` is the code in `VAL`: a factory knows float
/// and double by their own codes only.
template <class idx_t, class val_t>
InferenceAlgorithm<idx_t, val_t>* make_external_engine(EngineFactory<idx_t, val_t>* factory,
                                                       unsigned char val, IO<idx_t, val_t>& model,
                                                       std::mt19937& rng) {
  if (val != static_cast<unsigned char>(ValType::FLT32) &&
      val != static_cast<unsigned char>(ValType::FLT64)) {
    throw std::out_of_range("incompatible data types for external inference algorithm");
  }
  AbstractGraph<idx_t>* graph = model.graph;
  idx_t* states = model.states;
  InferenceAlgorithm<idx_t, val_t>* engine = factory(&graph, &states, &rng, model.weights);
  if (engine == nullptr) throw std::logic_error("the external inference algorithm is null");
  return engine;
}

template <class idx_t, class val_t>
InferenceAlgorithm<idx_t, val_t>* vm_t::getIA() {
  IO<idx_t, val_t>& model = *require_object<IO<idx_t, val_t>>(VarType::MPT);
  model.require_matching_arrays();
  const idx_t iterations = wrapping_cast<idx_t>(get(VarType::MIL));
  if constexpr (std::is_integral_v<val_t>) {
    // Integers have one engine, whatever the register says.
    auto* engine = new BitLengthBP<idx_t>(model.graph, model.states, model.weights, rng);
    engine->max_iterations = iterations;
    return engine;
  } else {
    switch (static_cast<InfType>(wrapping_cast<unsigned char>(get(VarType::INF)))) {
      case InfType::LBP: {
        auto* engine = new LBP<idx_t, val_t>(model.graph, model.states, model.weights, rng,
                                             wrapping_cast<unsigned char>(get(VarType::TREE)));
        engine->epsilon = static_cast<val_t>(getR(VarType::EPL));
        engine->max_iterations = iterations;
        return engine;
      }
      case InfType::JT:
        // Exact in one pass, so it takes no bound on iterations.
        return new HuginAlgorithm<idx_t, val_t>(model.graph, model.states, model.weights, rng);
      case InfType::SQM: {
        auto* engine = new SQMplus<idx_t, val_t>(model.graph, model.states, model.weights, rng,
                                                 wrapping_cast<idx_t>(get(VarType::KXX)));
        engine->max_iterations = iterations;
        return engine;
      }
      case InfType::EXTI: {
        auto* factory = function<EngineFactory<idx_t, val_t>>(VarType::EXT0);
        if (factory == nullptr) break;
        auto* engine = make_external_engine<idx_t, val_t>(
            factory, wrapping_cast<unsigned char>(get(VarType::VAL)), model, *rng);
        engine->max_iterations = iterations;
        return engine;
      }
    }
    throw std::out_of_range("unknown inference algorithm");
  }
}

}  // namespace QZ
