#pragma once

/// Byte widths of the machine's current index and value types.

#include <cstddef>

#include "context.h"

namespace qz_tool {

struct TypeWidths {
  std::size_t index;
  std::size_t value;
  /// Values are floating-point numbers.
  bool real;
};

/// Reads `IDX` and `VAL`. The numbers 0 to 3 stand for integers of 1, 2, 4 and 8 bytes, 4 for
/// single precision and everything above for double precision.
inline TypeWidths type_widths(const Context& context) {
  const auto integer_width = [](std::uint64_t code) { return std::size_t{1} << (code & 3); };
  const std::uint64_t value = context.read("VAL");
  const std::size_t value_width = value < 4 ? integer_width(value) : value == 4 ? 4 : 8;
  return {integer_width(context.read("IDX")), value_width, value >= 4};
}

}  // namespace qz_tool
