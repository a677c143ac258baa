/// ESTIMATE and the choice of the optimizer, through the exported functions.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "QZ/opt/optimizer.h"
#include "support/model_program.h"
#include "support/small_model.h"

namespace {

using namespace qz_test;

using Lines = std::vector<std::string>;
using State = QZ::OptState<unsigned long, double>;
using Hook = void (*)(State*);

template <class function_t>
std::uint64_t address(function_t* function) {
  return reinterpret_cast<std::uint64_t>(function);
}

class Estimate : public testing::Test {
 protected:
  void TearDown() override { __run = 1; }

  TempFile table{".csv", csv("a,b,c", {"x,u,0", "y,v,1", "x,v,2", "y,u,2", "x,u,1", "x,u,0",
                                       "y,v,2", "x,v,0"})};
  // One thread: teams would spend these thousands of tiny runs waiting for each other.
  Lines chain = Lines{"OMP 1;"} + fit_lines(table.path(), "CHAIN") +
                Lines{"EPL 1e-12;", "EPO 0;", "STP 0.5;"};

  static std::vector<double> weights_of(const Program& program) {
    const auto& model = container_of<unsigned long, double>(program);
    return copy_of(model.weights, model.dim);
  }

  /// The frequencies of the table on both edges, and the marginals of the fitted model.
  template <class I, class V>
  static void expect_fitted(const Program& program, double tolerance) {
    const auto& model = container_of<I, V>(program);
    const V* counts = model.stats + model.offsets[model.graph->vertices()];
    for (std::size_t i = 0; i < model.dim; ++i) {
      EXPECT_NEAR(program.marginals()[i], counts[i] / 8.0, tolerance) << i;
    }
  }
};

TEST_F(Estimate, MeetsTheMomentsOfTheDataWithEachMethodAndFloatingPair) {
  for (const std::string method : {"GD", "PL1", "FL1"}) {
    for (const auto& [index, value] : all_type_names()) {
      if (index == value) continue;
      // Narrow indices count iterations in themselves.
      const std::string steps = index == "UINT8" ? "MIO 250;" : "MIO 1000;";
      const std::string step = value == "FLT32" ? "STP 1;" : "STP 4;";
      const Program program(
          types(index, value) + chain +
          Lines{"ALG " + method + ";", steps, step, "ESTIMATE;", "DEL DPT;", "INFER;"});
      QZ::dispatch_pair(static_cast<unsigned char>(program.word("IDX")),
                        static_cast<unsigned char>(program.word("VAL")),
                        [&]<class I, class V>(QZ::type_pair<I, V>) {
                          expect_fitted<I, V>(program, index == "UINT8" ? 0.05 : 1e-3);
                        });
    }
  }
}

TEST_F(Estimate, ReportsTheObjectiveAtTheBestPoint) {
  Program program(chain + Lines{"ALG GD;", "MIO 50;", "ESTIMATE;", "DEL DPT;", "INFER;"});
  const auto& model = container_of<unsigned long, double>(program);
  double product = 0;
  for (std::size_t i = 0; i < model.dim; ++i) {
    product += model.weights[i] * model.stats[i + model.offsets[3]] / 8;
  }
  EXPECT_NEAR(program.real("RES"), program.real("LNZ") - product, 1e-9);
}

TEST_F(Estimate, MakesNoStepWithALimitOfZero) {
  const Program program(chain + Lines{"ALG GD;", "INITGAUSS;", "MIO 0;", "ESTIMATE;"});
  EXPECT_EQ(program.real("RES"), std::numeric_limits<double>::max());
}

TEST_F(Estimate, ReportsTheLargestNumberOfItsOwnType) {
  const Program program(types("UINT32", "FLT32") + chain + Lines{"ALG GD;", "MIO 0;", "ESTIMATE;"});
  EXPECT_EQ(program.real("RES"), static_cast<double>(std::numeric_limits<float>::max()));
}

TEST_F(Estimate, NeverMovesWithTheDefaultStepOfZero) {
  Program program(fit_lines(table.path(), "CHAIN") + Lines{"SEED 1;", "INITGAUSS;"});
  const auto before = weights_of(program);
  program.run({"ALG GD;", "MIO 20;", "ESTIMATE;"});
  EXPECT_EQ(weights_of(program), before);
}

TEST_F(Estimate, GoesOnFromTheWeightsOfTheContainer) {
  const Program once(chain +
                     Lines{"ALG GD;", "SEED 1;", "INITGAUSS;", "RST true;", "MIO 9;", "ESTIMATE;"});
  const Program zero(chain + Lines{"ALG GD;", "MIO 9;", "ESTIMATE;"});
  const Program warm(chain + Lines{"ALG GD;", "SEED 1;", "INITGAUSS;", "MIO 9;", "ESTIMATE;"});
  EXPECT_EQ(weights_of(once), weights_of(zero));
  EXPECT_NE(weights_of(warm), weights_of(zero));
}

TEST_F(Estimate, RestartsTheStepScheduleWhenItGoesOn) {
  const Program twice(chain + Lines{"ALG GD;", "MIO 1;", "ESTIMATE;", "ESTIMATE;"});
  // The plain loop by hand: two steps of the full size.
  Program once(chain + Lines{"ALG GD;", "MIO 1;", "ESTIMATE;"});
  const auto first = weights_of(once);
  static std::vector<double> gradient;
  Hook keep = [](State* s) { gradient.assign(s->grad, s->grad + s->dim); };
  once.write("CBU", address(keep));
  once.run({"MIO 0;", "ESTIMATE;"});
  std::vector<double> expected;
  for (std::size_t i = 0; i < first.size(); ++i) {
    expected.push_back(std::fma(-0.5, gradient[i], first[i]));
  }
  EXPECT_EQ(weights_of(twice), expected);
}

TEST_F(Estimate, KnowsTheCurvatureOfTheField) {
  static State seen;
  Program program(chain);
  Hook keep = [](State* s) { seen = *s; };
  program.write("CBU", address(keep));
  program.run({"ALG GD;", "MIO 0;", "STP 5;", "LAM 0.25;", "ELAM 0.75;", "ESTIMATE;"});
  // Two edges: 1 / (2 * 2 * 1.001).
  EXPECT_EQ(seen.min_step, 1 / (4.0 * 1.001));
  EXPECT_EQ(seen.step, 5);
  EXPECT_EQ(seen.lam, 0.25);
  EXPECT_EQ(seen.elam, 0.75);
  EXPECT_EQ(seen.max_iter, 0u);
  EXPECT_EQ(seen.dim, 10u);
  EXPECT_EQ(reinterpret_cast<std::uint64_t>(seen.user), program.word("MPT"));
  EXPECT_EQ(seen.tag, 0);
}

TEST_F(Estimate, CallsTheCallersFunctions) {
  static std::string order;
  order.clear();
  Hook before = [](State*) { order += 'b'; };
  Hook after = [](State*) { order += 'a'; };
  Hook proximal = [](State* s) {
    order += 'p';
    s->x[0] = 3;
  };
  Program program(chain);
  program.write("CBU", address(before));
  program.write("CBO", address(after));
  program.write("CPR", address(proximal));
  program.run({"ALG PL1;", "MIO 2;", "ESTIMATE;"});
  EXPECT_EQ(order, "bpbapbaa");
  EXPECT_EQ(weights_of(program)[0], 3.0);
  order.clear();
  program.run({"ALG FL1;", "MIO 1;", "ESTIMATE;"});
  EXPECT_EQ(order, "bbpbaa");
  order.clear();
  program.run({"ALG GD;", "MIO 1;", "ESTIMATE;"});
  EXPECT_EQ(order, "bbaa");
}

TEST_F(Estimate, EndsNormallyOnARequestToStop) {
  Hook stop_at_two = [](State* s) {
    if (s->iter == 1) ctrlchandler(0);
  };
  Program program(chain);
  program.write("CBO", address(stop_at_two));
  EXPECT_EQ(program.attempt({"ALG GD;", "MIO 500;", "ESTIMATE;"}), std::nullopt);
  __run = 1;
  const Program two(chain + Lines{"ALG GD;", "MIO 2;", "ESTIMATE;"});
  EXPECT_EQ(weights_of(program), weights_of(two));
  EXPECT_EQ(program.real("RES"), two.real("RES"));
}

TEST_F(Estimate, StopsAtItsThreshold) {
  static unsigned long iterations;
  Hook count = [](State* s) { iterations = s->iter; };
  Program program(chain);
  program.write("CBO", address(count));
  program.run({"ALG GD;", "EPO 1e-2;", "MIO 500;", "ESTIMATE;"});
  EXPECT_LT(iterations, 100u);
  EXPECT_GT(iterations, 1u);
}

TEST_F(Estimate, TakesTheOtherNameOfDoubleForDouble) {
  const Lines run{"ALG FL1;", "MIO 30;", "ESTIMATE;"};
  const Program plain(chain + run);
  const Program other(types("UINT64", "FLTMPREC") + chain + run);
  EXPECT_EQ(weights_of(plain), weights_of(other));
}

TEST_F(Estimate, DoesNothingForAPairWithoutInstantiation) {
  Program program(chain);
  program.write("RES", 4.5);
  EXPECT_EQ(program.attempt({"ALG GD;", "val_t UINT8;", "ESTIMATE;"}), std::nullopt);
  EXPECT_EQ(program.real("RES"), 4.5);
}

TEST_F(Estimate, ReportsAnUnknownMethod) {
  // The integer methods are unknown to floating types, and numbers are not cut to a byte.
  for (const unsigned long code : {0ul, 3ul, 7ul, 8ul, 10ul, 260ul}) {
    Program program(chain);
    program.write("OPT", code);
    EXPECT_EQ(program.attempt({"ESTIMATE;"}), out_of_range("unknown optimization algorithm"));
  }
}

// Optimizers of the caller.

/// Sets every weight to the step size and then has nothing left to do.
class Flat : public QZ::Optimizer<unsigned long, double, true> {
 public:
  Flat(Hook update, Hook proximal) {
    updates = update;
    proximals = proximal;
    ++alive;
  }
  ~Flat() override { --alive; }
  void update(QZ::Function<unsigned long, double>* f, State& s) override {
    threshold = epsilon;
    for (unsigned long i = 0; i < s.dim; ++i) f->current_point()[i] = s.step;
  }
  static QZ::Optimizer<unsigned long, double, true>* make(Hook update, Hook proximal) {
    return new Flat(update, proximal);
  }
  static QZ::Optimizer<unsigned long, double, true>* make_none(Hook, Hook) { return nullptr; }

  static inline Hook updates, proximals;
  static inline double threshold = 0;
  static inline int alive = 0;
};

TEST_F(Estimate, RunsAnOptimizerOfTheCaller) {
  Hook update = [](State*) {};
  Hook proximal = [](State*) {};
  Program program(chain);
  program.write("EXT1", address(&Flat::make));
  program.write("CBU", address(update));
  program.write("CPR", address(proximal));
  program.run({"ALG EXTO;", "EPO 0.125;", "MIO 1;", "ESTIMATE;"});
  EXPECT_THAT(weights_of(program), testing::Each(0.5));
  EXPECT_EQ(Flat::updates, update);
  EXPECT_EQ(Flat::proximals, proximal);
  EXPECT_EQ(Flat::threshold, 0.125);
  EXPECT_EQ(Flat::alive, 0);
}

TEST_F(Estimate, NeedsAFactoryForAnOptimizerOfTheCaller) {
  EXPECT_EQ(Program(chain).attempt({"ALG EXTO;", "ESTIMATE;"}),
            out_of_range("unknown optimization algorithm", 1));
}

TEST_F(Estimate, RefusesAnOptimizerOfTheCallerUnderTheOtherNameOfDouble) {
  Program program(types("UINT64", "FLTMPREC") + chain);
  program.write("EXT1", address(&Flat::make));
  EXPECT_EQ(program.attempt({"ALG EXTO;", "ESTIMATE;"}),
            out_of_range("incompatible data types for external inference algorithm", 1));
}

TEST_F(Estimate, ReportsAFactoryThatMakesNothing) {
  Program program(chain);
  program.write("EXT1", address(&Flat::make_none));
  EXPECT_EQ(program.attempt({"ALG EXTO;", "ESTIMATE;"}),
            logic_error("the factory in EXT1 made no optimizer", 1));
}

TEST_F(Estimate, NeedsAModel) {
  EXPECT_EQ(failure_of({"MPT 1;", "ESTIMATE;"}), logic_error("no object loaded MPT", 1));
}

}  // namespace
