#include "QZ/support/assertion.h"

#include <gtest/gtest.h>

namespace {

TEST(AssertionDeathTest, PrintsTextAndHeaderInTheLibrarysFormat) {
  EXPECT_DEATH(QZ::assert_that(false, "a<b", QZ::door::data),
               "\\./src/include/QZ/QZDATA:[0-9]+: .*TestBody.*: Assertion `a<b' failed");
}

}  // namespace
