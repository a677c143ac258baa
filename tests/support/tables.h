#pragma once

/// Tables as the text that programs read.

#include <initializer_list>
#include <string>
#include <string_view>

namespace qz_test {

/// A CSV text with an empty line behind its header, which the reader drops instead of a row.
inline std::string csv(std::string_view header, std::initializer_list<std::string_view> rows) {
  std::string text = std::string(header) + "\n\n";
  for (const std::string_view row : rows) text += std::string(row) + "\n";
  return text;
}

}  // namespace qz_test
