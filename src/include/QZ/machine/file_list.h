#pragma once

/// Names of files as registers hold them: one text that may list several, separated by commas.

#include <algorithm>
#include <cstddef>
#include <fstream>
#include <ios>
#include <string>
#include <vector>

namespace QZ {

/// Appends the pieces of `text` between commas to `out`. A text without a comma is one piece; an
/// empty text has none.
inline void readandsplit(const std::string& text, std::vector<std::string>& out) {
  if (text.empty()) return;
  std::size_t begin = 0;
  for (std::size_t comma; (comma = text.find(',', begin)) != std::string::npos; begin = comma + 1) {
    out.push_back(text.substr(begin, comma - begin));
  }
  out.push_back(text.substr(begin));
}

/// Whether every file in the list can be opened for reading. True for an empty list.
inline bool file_exists(const std::string& names) {
  std::vector<std::string> pieces;
  readandsplit(names, pieces);
  return std::all_of(pieces.begin(), pieces.end(),
                     [](const std::string& name) { return std::ifstream(name).is_open(); });
}

/// The size of one file in bytes; -1 if it does not open.
inline std::streampos filesize(std::string name) {
  return std::ifstream(name, std::ios::binary | std::ios::ate).tellg();
}

}  // namespace QZ
