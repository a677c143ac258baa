#include "QZ/support/first_exception.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <atomic>
#include <stdexcept>
#include <string>

namespace {

using QZ::FirstException;

class Teams : public testing::TestWithParam<int> {
 protected:
  Teams() { omp_set_num_threads(GetParam()); }
  ~Teams() override { omp_set_num_threads(threads_); }

 private:
  int threads_ = omp_get_max_threads();
};

INSTANTIATE_TEST_SUITE_P(FirstException, Teams, testing::Values(1, 2, 4));

TEST_P(Teams, CarryOneExceptionOutOfTheirRegion) {
  FirstException failure;
#pragma omp parallel
  failure.guard([] { throw std::out_of_range("from a thread"); });
  EXPECT_TRUE(failure.met());
  EXPECT_THROW(failure.rethrow(), std::out_of_range);
}

TEST_P(Teams, ThatMeetNoneGoOn) {
  FirstException failure;
  std::atomic<int> done = 0;
#pragma omp parallel
  failure.guard([&] { ++done; });
  EXPECT_FALSE(failure.met());
  EXPECT_NO_THROW(failure.rethrow());
  EXPECT_EQ(done, GetParam());
}

TEST(FirstExceptionDeathTest, EndsTheProcessWhereThatIsAskedFor) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(FirstException(true).guard([] { throw std::out_of_range("too far"); }), "too far");
  QZ::assertion_handler = [](const char*) {};
  FirstException failure(true);
  QZ::assertion_handler = nullptr;
  failure.guard([] { throw std::out_of_range("not far"); });
  EXPECT_THROW(failure.rethrow(), std::out_of_range);
}

/// Four threads that all fail in a region that may not be left by an exception.
void fail_as_a_team() {
  omp_set_num_threads(4);
  FirstException failure(true);
#pragma omp parallel
  failure.guard([] { throw std::out_of_range("too far"); });
}

TEST(FirstExceptionDeathTest, ATeamThatFailsAsAWholeStillSaysWhy) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (int round = 0; round < 10; ++round) EXPECT_DEATH(fail_as_a_team(), "what\\(\\):  too far");
}

TEST_P(Teams, TakeOverWhatIsDoneAboutBrokenInvariants) {
  QZ::assertion_handler = [](const char* text) { throw std::runtime_error(text); };
  FirstException failure;
#pragma omp parallel
  failure.guard([] { QZ::assert_that(false, "1 < 0", QZ::door::misc); });
  QZ::assertion_handler = nullptr;
  try {
    failure.rethrow();
    FAIL() << "nothing was kept";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()), "1 < 0");
  }
#pragma omp parallel
  if (QZ::assertion_handler != nullptr) ADD_FAILURE() << "a thread has kept the handler";
}

}  // namespace
