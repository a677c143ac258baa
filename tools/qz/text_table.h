#pragma once

/// Rows of text with their columns lined up.

#include <ostream>
#include <string>
#include <vector>

namespace qz_tool {

/// Writes each row on a line of its own, every cell but the last padded to the width of its column.
/// Widths count characters of UTF-8 text, not bytes. Empty cells at the end of a row leave nothing.
void write_table(std::ostream& out, const std::vector<std::vector<std::string>>& rows);

}  // namespace qz_tool
