#pragma once

/// Invariants that end the process. They hold in every build type, and their text is part of the
/// behaviour, so it is a string of its own that reformatting the code cannot change.

#include <assert.h>

#include <source_location>

namespace QZ {

/// The public headers that assertions are reported under.
namespace door {
inline constexpr const char* misc = "./src/include/QZ/QZMISC";
inline constexpr const char* comb = "./src/include/QZ/QZCOMB";
inline constexpr const char* poly = "./src/include/QZ/QZPOLY";
inline constexpr const char* data = "./src/include/QZ/QZDATA";
inline constexpr const char* graph = "./src/include/QZ/QZGRAPH";
inline constexpr const char* mrf = "./src/include/QZ/QZMRF";
inline constexpr const char* bp = "./src/include/QZ/QZBP";
inline constexpr const char* inf = "./src/include/QZ/QZINF";
inline constexpr const char* io = "./src/include/QZ/QZIO";
}  // namespace door

/// Ends the process in the C library's assertion format, with `text` as the condition and `header`
/// as the file, unless `holds`.
inline void assert_that(bool holds, const char* text, const char* header,
                        const std::source_location& where = std::source_location::current()) {
  if (!holds) [[unlikely]] {
    __assert_fail(text, header, where.line(), where.function_name());
  }
}

}  // namespace QZ
