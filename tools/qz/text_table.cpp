#include "text_table.h"

#include <algorithm>

namespace qz_tool {

namespace {

std::size_t characters(const std::string& text) {
  // Every byte of UTF-8 but the continuation bytes 10xxxxxx starts a character.
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

}  // namespace

void write_table(std::ostream& out, const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t c = 0; c < row.size(); ++c) {
      widths[c] = std::max(widths[c], characters(row[c]));
    }
  }
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t c = 0; c < row.size(); ++c) {
      line += row[c] + std::string(widths[c] - characters(row[c]) + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
  }
}

}  // namespace qz_tool
