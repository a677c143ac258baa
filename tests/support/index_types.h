#pragma once

#include <gtest/gtest.h>

namespace qz_test {

using IndexTypes = ::testing::Types<unsigned char, unsigned short, unsigned int, unsigned long>;

}  // namespace qz_test
