#include "QZ/mrf/decay.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using QZ::ReparamType;

template <class val_t>
val_t coefficient(unsigned i, unsigned T, ReparamType kind) {
  return QZ::decay_coeff<val_t, unsigned>(i, T, kind);
}

const ReparamType decays[] = {ReparamType::NONE,          ReparamType::STLINEAR,
                              ReparamType::STQUAD,        ReparamType::STCUBIC,
                              ReparamType::STRATIONAL,    ReparamType::STEXPONENTIAL,
                              ReparamType::STINVQUAD,     ReparamType::STINVCUBIC,
                              ReparamType::STINVRATIONAL, ReparamType::STINVEXPONENTIAL};

TEST(Decay, TheOwnStepHasWeightOne) {
  for (const ReparamType kind : decays) {
    for (unsigned T = 0; T < 7; ++T) {
      EXPECT_NEAR(coefficient<double>(T, T, kind), 1.0, 1e-12) << int(kind) << " at " << T;
      EXPECT_NEAR(coefficient<float>(T, T, kind), 1.0f, 1e-5f) << int(kind) << " at " << T;
    }
  }
}

TEST(Decay, ForwardFormsHaveTheirFormulas) {
  EXPECT_EQ(coefficient<double>(1, 4, ReparamType::NONE), 1.0);
  EXPECT_DOUBLE_EQ(coefficient<double>(1, 4, ReparamType::STLINEAR), 0.4);
  EXPECT_DOUBLE_EQ(coefficient<double>(1, 4, ReparamType::STQUAD), 0.16);
  EXPECT_DOUBLE_EQ(coefficient<double>(1, 4, ReparamType::STCUBIC), 0.064);
  EXPECT_DOUBLE_EQ(coefficient<double>(1, 4, ReparamType::STRATIONAL), 0.25);
  EXPECT_DOUBLE_EQ(coefficient<double>(1, 4, ReparamType::STEXPONENTIAL), std::exp(-3.0));
}

TEST(Decay, InverseFormsStartAtTheLowEndOfTheForwardForms) {
  EXPECT_NEAR(coefficient<double>(0, 3, ReparamType::STINVQUAD), 1.0 / 16, 1e-12);
  EXPECT_NEAR(coefficient<double>(0, 3, ReparamType::STINVCUBIC), 1.0 / 64, 1e-12);
  EXPECT_NEAR(coefficient<double>(0, 3, ReparamType::STINVRATIONAL), 1.0 / 4, 1e-12);
  EXPECT_NEAR(coefficient<double>(0, 3, ReparamType::STINVEXPONENTIAL), std::exp(-3.0), 1e-12);
}

TEST(Decay, InverseFormsUndoTheForwardForms) {
  // At the step whose forward value is y, the inverse form's value on the same scale is the step.
  const double T = 4;
  const double c = 1 / (T + 1);
  const double inverse = coefficient<double>(2, 4, ReparamType::STINVRATIONAL);
  const double y = c + (1 - c) * 2 / T;
  EXPECT_NEAR((inverse - c) / (1 - c) * T, (T + 1) - 1 / y, 1e-12);
}

TEST(Decay, KindsThatAreNoDecayHaveWeightZero) {
  EXPECT_EQ(coefficient<double>(1, 1, ReparamType::INTEGER), 0.0);
  EXPECT_EQ(coefficient<double>(0, 0, ReparamType::DBT), 0.0);
  EXPECT_EQ(coefficient<double>(0, 0, ReparamType::ISING), 0.0);
}

TEST(Project, MapsAnIntervalOntoAnother) {
  EXPECT_DOUBLE_EQ(QZ::project<double>(10, 20, 3, 2, 6), 12.5);
  EXPECT_DOUBLE_EQ(QZ::project<double>(7, 7, 5, 5, 5), 7.0);
}

TEST(ProjectDeathTest, AnIntervalOfOnePointMapsToOnePoint) {
  EXPECT_DEATH(QZ::project<double>(1, 1, 6, 5, 5),
               "\\./src/include/QZ/QZMRF:.*Assertion `x==a' failed");
  EXPECT_DEATH(QZ::project<double>(1, 2, 5, 5, 5), "Assertion `l==u' failed");
}

}  // namespace
