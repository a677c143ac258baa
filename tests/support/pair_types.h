#pragma once

#include <gtest/gtest.h>

#include "QZ/support/type_pairs.h"

namespace qz_test {

using u8 = unsigned char;
using u16 = unsigned short;
using u32 = unsigned int;
using u64 = unsigned long;

/// All pairs, or with `QZ_FEW_PAIRS` three that differ in everything: a build for a sanitizer,
/// which looks for faults that all pairs share, then takes half the time.
#ifdef QZ_FEW_PAIRS
using AllPairs =
    ::testing::Types<QZ::type_pair<u8, u8>, QZ::type_pair<u32, float>, QZ::type_pair<u64, double>>;
using FloatPairs = ::testing::Types<QZ::type_pair<u8, float>, QZ::type_pair<u64, double>>;
#else
using AllPairs =
    ::testing::Types<QZ::type_pair<u8, u8>, QZ::type_pair<u8, float>, QZ::type_pair<u8, double>,
                     QZ::type_pair<u16, u16>, QZ::type_pair<u16, float>, QZ::type_pair<u16, double>,
                     QZ::type_pair<u32, u32>, QZ::type_pair<u32, float>, QZ::type_pair<u32, double>,
                     QZ::type_pair<u64, u64>, QZ::type_pair<u64, float>,
                     QZ::type_pair<u64, double>>;

using FloatPairs = ::testing::Types<QZ::type_pair<u8, float>, QZ::type_pair<u8, double>,
                                    QZ::type_pair<u16, float>, QZ::type_pair<u16, double>,
                                    QZ::type_pair<u32, float>, QZ::type_pair<u32, double>,
                                    QZ::type_pair<u64, float>, QZ::type_pair<u64, double>>;
#endif

}  // namespace qz_test
