#pragma once

/// Invariants that end the process. They hold in every build type, and their text is part of the
/// behaviour, so it is a string of its own that reformatting the code cannot change.

#include <assert.h>

#include <source_location>

namespace QZ {

#ifdef __cpp_lib_source_location
using SourceLocation = std::source_location;
#else
/// Stands in where the standard library's class needs a newer compiler.
class SourceLocation {
 public:
  static constexpr SourceLocation current(unsigned line = __builtin_LINE(),
                                          const char* function = __builtin_FUNCTION()) {
    return {line, function};
  }
  constexpr unsigned line() const { return line_; }
  constexpr const char* function_name() const { return function_; }

 private:
  constexpr SourceLocation(unsigned line, const char* function)
      : line_(line), function_(function) {}

  unsigned line_;
  const char* function_;
};
#endif

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

using AssertionHandler = void (*)(const char* text);

/// Called with a broken invariant's text before the process ends, on this thread. Null, except
/// where a caller must go on: it sets a function that leaves by an exception.
inline constinit thread_local AssertionHandler assertion_handler = nullptr;

[[noreturn, gnu::cold, gnu::noinline]] inline void end_by_assertion(const char* text,
                                                                    const char* header,
                                                                    const SourceLocation& where) {
  if (assertion_handler != nullptr) assertion_handler(text);
  __assert_fail(text, header, where.line(), where.function_name());
}

/// Ends the process in the C library's assertion format, with `text` as the condition and `header`
/// as the file, unless `holds`.
inline void assert_that(bool holds, const char* text, const char* header,
                        const SourceLocation& where = SourceLocation::current()) {
  if (!holds) [[unlikely]] {
    end_by_assertion(text, header, where);
  }
}

}  // namespace QZ
