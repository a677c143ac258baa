/// INFER and the choice of the engine, through the exported functions.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "QZ/inference/engine.h"
#include "support/model_program.h"
#include "support/small_model.h"

namespace {

using namespace qz_test;

using Lines = std::vector<std::string>;

/// The marginals of a model by going through all its configurations: edges, then vertices.
template <class I, class V>
struct Enumerated {
  explicit Enumerated(const QZ::IO<I, V>& model, const std::vector<int>& clamped = {}) {
    const std::size_t n = model.graph->vertices();
    std::vector<I> x(n, 0);
    marginals.assign(model.statsLength, 0);
    double Z = 0;
    for (bool more = true; more;) {
      bool allowed = true;
      for (std::size_t v = 0; v < clamped.size(); ++v) {
        allowed = allowed && (clamped[v] < 0 || x[v] == static_cast<I>(clamped[v]));
      }
      if (allowed) Z += add(model, x);
      more = false;
      for (std::size_t v = 0; v < n && !more; ++v) {
        more = ++x[v] < model.states[v];
        if (!more) x[v] = 0;
      }
    }
    for (double& marginal : marginals) marginal /= Z;
    log_partition = std::log(Z);
  }

  std::vector<double> marginals;
  double log_partition;

 private:
  double add(const QZ::IO<I, V>& model, const std::vector<I>& x) {
    std::vector<std::size_t> places;
    double sum = 0;
    for (I e = 0; e < model.graph->edges(); ++e) {
      const auto [s, t] = endpoints(*model.graph, e);
      places.push_back(model.weight_offset(e) + x[s] * model.states[t] + x[t]);
      sum += static_cast<double>(model.weights[places.back()]);
    }
    std::size_t start = model.dim;
    for (std::size_t v = 0; v < x.size(); ++v) {
      places.push_back(start + x[v]);
      start += model.states[v];
    }
    for (const std::size_t place : places) marginals[place] += std::exp(sum);
    return std::exp(sum);
  }
};

class Infer : public testing::Test {
 protected:
  TempFile table{".csv", csv("a,b,c,d", {"x,u,0,p", "y,v,1,q", "x,v,2,q", "y,u,2,p", "x,u,1,q"})};
  /// A fitted chain with random weights and without a table.
  Lines chain = fit_lines(table.path(), "CHAIN") + Lines{"SEED 3;", "INITGAUSS;", "EPL 1e-14;"};

  /// What message passing says of a vertex is what the others say of it: its own clamp plays no
  /// part.
  static void expect_conditional(const Program& program, const std::vector<int>& clamped) {
    const auto& model = container_of<unsigned long, double>(program);
    std::size_t place = model.dim;
    for (std::size_t v = 0; v < clamped.size(); ++v) {
      std::vector<int> others = clamped;
      others[v] = -1;
      const Enumerated<unsigned long, double> exact(model, others);
      for (std::size_t x = 0; x < model.states[v]; ++x, ++place) {
        EXPECT_NEAR(program.marginals()[place], exact.marginals[place], 1e-12) << v << ' ' << x;
      }
    }
  }

  template <class I, class V>
  static void expect_exact(const Program& program, double tolerance) {
    const auto& model = container_of<I, V>(program);
    const Enumerated<I, V> exact(model);
    for (std::size_t i = 0; i < exact.marginals.size(); ++i) {
      EXPECT_NEAR(program.marginals()[i], exact.marginals[i], tolerance) << i;
    }
  }
};

TEST_F(Infer, IsExactOnAChain) {
  const Program program(chain + Lines{"DEL DPT;", "INFER;"});
  expect_exact<unsigned long, double>(program, 1e-12);
  const Enumerated<unsigned long, double> exact(container_of<unsigned long, double>(program));
  EXPECT_NEAR(program.real("LNZ"), exact.log_partition, 1e-12);
}

TEST_F(Infer, ServesAllFloatingTypePairs) {
  for (const auto& [index, value] : all_type_names()) {
    if (index == value) continue;
    const Program program(types(index, value) + chain + Lines{"DEL DPT;", "INFER;"});
    QZ::dispatch_pair(static_cast<unsigned char>(program.word("IDX")),
                      static_cast<unsigned char>(program.word("VAL")),
                      [&]<class I, class V>(QZ::type_pair<I, V>) {
                        expect_exact<I, V>(program, std::numeric_limits<V>::epsilon() * 100);
                      });
  }
}

TEST_F(Infer, ClampsToTheFirstRowOfTheTable) {
  const Program program(chain + Lines{"INFER;"});
  expect_conditional(program, {0, 0, 0, 0});
}

TEST_F(Infer, LeavesMissingCellsFree) {
  const TempFile query(".csv", csv("a,b,c,d", {"?,v,?,q", "x,u,0,p"}));
  const Program program(
      chain + Lines{"DEL DPT;", "DEL DFN;", "DFN '" + query.path() + "';", "LDX DPT;", "INFER;"});
  expect_conditional(program, {-1, 1, -1, 1});
}

TEST_F(Infer, TableWithoutRowsObservesNothing) {
  const TempFile query(".csv", "a,b,c,d\n\n");
  const Program program(
      chain + Lines{"DEL DPT;", "DEL DFN;", "DFN '" + query.path() + "';", "LDX DPT;", "INFER;"});
  expect_exact<unsigned long, double>(program, 1e-12);
}

TEST_F(Infer, SlowPathIsExactOnAGraphWithCycles) {
  const Program program(fit_lines(table.path(), "FULL") +
                        Lines{"SEED 5;", "INITGAUSS;", "SLW true;", "DEL DPT;", "INFER;"});
  const auto& model = container_of<unsigned long, double>(program);
  const Enumerated<unsigned long, double> exact(model);
  EXPECT_NEAR(program.real("LNZ"), exact.log_partition, 1e-12);
  for (std::size_t i = 0; i < model.dim; ++i) {
    EXPECT_NEAR(program.marginals()[i], exact.marginals[i], 1e-12);
  }
}

TEST_F(Infer, LeavesTheWeightsAsTheyWere) {
  Program program(chain);
  const auto& model = container_of<unsigned long, double>(program);
  const auto before = copy_of(model.weights, model.dim);
  program.run({"INFER;", "INFER;"});
  EXPECT_EQ(copy_of(model.weights, model.dim), before);
}

TEST_F(Infer, ReloadedModelGivesTheSameMarginals) {
  const TempFile file;
  const Program first(chain +
                      Lines{"DEL DPT;", "INFER;", "MFN '" + file.path() + "';", "STORE MPT;"});
  const Program second(Lines{"EPL 1e-14;", "MFN '" + file.path() + "';", "LDX MPT;", "INFER;"});
  const auto& model = container_of<unsigned long, double>(second);
  EXPECT_EQ(copy_of(first.marginals(), model.statsLength),
            copy_of(second.marginals(), model.statsLength));
}

TEST_F(Infer, NeedsGraphThenModel) {
  EXPECT_EQ(failure_of({"INFER;"}), logic_error("no graph loaded"));
  EXPECT_EQ(failure_of({"GPT 1;", "INFER;"}), logic_error("no model loaded", 1));
  EXPECT_EQ(failure_of({"GPT 1;", "MPT 1;", "INFER;"}), logic_error("no object loaded GPT", 2));
}

TEST_F(Infer, DoesNothingForAPairWithoutInstantiation) {
  const Program program(chain + Lines{"val_t UINT8;", "INFER;"});
  EXPECT_EQ(program.word("PPT"), 0u);
}

TEST_F(Infer, UnknownEngineIsReported) {
  Program program(chain);
  program.write("INF", std::uint64_t(4));
  EXPECT_EQ(program.attempt({"INFER;"}), out_of_range("unknown inference algorithm"));
}

TEST_F(Infer, ReadsTheLowByteOfTheEngineOnly) {
  Program program(chain + Lines{"DEL DPT;"});
  program.write("INF", std::uint64_t(256));
  EXPECT_EQ(program.attempt({"INFER;"}), std::nullopt);
}

TEST_F(Infer, ExternalEngineWithoutFactoryIsUnknown) {
  Program program(chain);
  EXPECT_EQ(program.attempt({"ALG EXTI;", "INFER;"}),
            out_of_range("unknown inference algorithm", 1));
}

/// An engine of a host program: uniform marginals, and the sum of its weights as log partition.
template <class I, class V>
class UniformEngine : public QZ::InferenceAlgorithm<I, V> {
 public:
  using QZ::InferenceAlgorithm<I, V>::InferenceAlgorithm;
  void infer(const I& mode) override {
    asked_mode = static_cast<int>(mode);
    iterations = this->max_iterations;
    observed_first = this->observed[0];
    this->log_partition = 0;
    for (std::size_t i = 0; i < this->dim; ++i) this->log_partition += this->weights[i];
    // Whatever an engine does to the weights is undone.
    this->weights[0] = 1000;
    if (fail) throw std::logic_error("the engine gave up");
  }
  void vertex_marginal(const I& v, const I&, V& q, V& Z) const override {
    q += 1;
    Z += static_cast<V>(this->states[v]);
  }
  void edge_marginal(const I&, const I&, const I&, V& q, V& Z) const override {
    q += 1;
    Z += 4;
  }

  static QZ::InferenceAlgorithm<I, V>* make(QZ::AbstractGraph<I>** graph, I** states,
                                            std::mt19937* rng, V* weights) {
    return new UniformEngine(*graph, *states, weights, rng);
  }
  static QZ::InferenceAlgorithm<I, V>* make_none(QZ::AbstractGraph<I>**, I**, std::mt19937*, V*) {
    return nullptr;
  }

  static inline int asked_mode = -1;
  static inline unsigned long iterations = 0;
  static inline V observed_first = 0;
  static inline bool fail = false;
};

using Uniform = UniformEngine<unsigned long, double>;

TEST_F(Infer, AsksTheExternalEngine) {
  Program program(chain + Lines{"DEL DPT;"});
  program.write("EXT0", reinterpret_cast<std::uint64_t>(&Uniform::make));
  const auto& model = container_of<unsigned long, double>(program);
  const auto before = copy_of(model.weights, model.dim);
  double sum = 0;
  for (const double weight : before) sum += weight;
  program.run({"ALG EXTI;", "MIL 17;", "INFER;"});
  EXPECT_EQ(Uniform::asked_mode, 0);
  EXPECT_EQ(Uniform::iterations, 17);
  EXPECT_EQ(Uniform::observed_first, -1.0);
  EXPECT_EQ(program.real("LNZ"), sum);
  EXPECT_EQ(program.marginals()[0], 0.25);
  EXPECT_EQ(program.marginals()[model.dim], 0.5);
  EXPECT_EQ(copy_of(model.weights, model.dim), before);
  program.run({"SLW true;", "INFER;"});
  EXPECT_EQ(Uniform::asked_mode, 10);
}

TEST_F(Infer, RestoresTheWeightsAlsoWhenTheEngineFails) {
  Program program(chain);
  program.write("EXT0", reinterpret_cast<std::uint64_t>(&Uniform::make));
  const auto& model = container_of<unsigned long, double>(program);
  const auto before = copy_of(model.weights, model.dim);
  Uniform::fail = true;
  EXPECT_EQ(program.attempt({"ALG EXTI;", "INFER;"}), logic_error("the engine gave up", 1));
  Uniform::fail = false;
  EXPECT_EQ(copy_of(model.weights, model.dim), before);
}

TEST_F(Infer, ExternalEngineThatIsNullIsReported) {
  Program program(chain);
  program.write("EXT0", reinterpret_cast<std::uint64_t>(&Uniform::make_none));
  EXPECT_EQ(program.attempt({"ALG EXTI;", "INFER;"}),
            logic_error("the external inference algorithm is null", 1));
}

TEST_F(Infer, ExternalEngineServesFloat) {
  Program program(types("UINT8", "FLT32") + chain);
  program.write("EXT0",
                reinterpret_cast<std::uint64_t>(&UniformEngine<unsigned char, float>::make));
  EXPECT_EQ(program.attempt({"ALG EXTI;", "INFER;"}), std::nullopt);
  EXPECT_EQ(program.marginals()[0], 0.25);
}

TEST_F(Infer, ExternalEngineRejectsTheOtherNameOfDouble) {
  Program program(chain);
  program.write("EXT0", reinterpret_cast<std::uint64_t>(&Uniform::make));
  EXPECT_EQ(program.attempt({"val_t FLTMPREC;", "ALG EXTI;", "INFER;"}),
            out_of_range("incompatible data types for external inference algorithm", 2));
}

using InferDeath = Infer;
TEST_F(InferDeath, TableWithTooFewColumnsIsAnAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const TempFile narrow(".csv", csv("a", {"x"}));
  EXPECT_DEATH(Program(chain + Lines{"DEL DPT;", "DEL DFN;", "DFN '" + narrow.path() + "';",
                                     "LDX DPT;", "INFER;"}),
               "Assertion `col<n\\+H && row<N' failed");
}

}  // namespace
