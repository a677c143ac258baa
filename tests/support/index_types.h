#pragma once

#include <gtest/gtest.h>

namespace qz_test {

/// All index types, or with `QZ_FEW_PAIRS` the narrowest and the widest.
#ifdef QZ_FEW_PAIRS
using IndexTypes = ::testing::Types<unsigned char, unsigned long>;
#else
using IndexTypes = ::testing::Types<unsigned char, unsigned short, unsigned int, unsigned long>;
#endif

}  // namespace qz_test
