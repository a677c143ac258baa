#pragma once

/// Examinations of the files that the library reads, before it reads them.

#include <optional>
#include <string>

#include "findings.h"
#include "type_widths.h"

namespace qz_tool {

struct TableForm {
  bool header = true;
  char missing = '?';
};

/// CSV text: ragged rows, empty cells, a header of another length, a line that gets lost.
Findings check_table(const std::string& bytes, const TableForm& form);

/// Adjacency text: lines of unequal length, cells that are no numbers, a matrix that is not square.
Findings check_adjacency(const std::string& bytes, char separator);

/// Whether the file begins like binary data.
bool is_binary_data(const std::string& bytes);

/// Binary data: counts that the file does not hold, cells beyond their categories.
Findings check_binary_data(const std::string& bytes);

/// A graph file for indices of a width: counts that the file does not hold, endpoints that are no
/// vertices.
Findings check_graph(const std::string& bytes, std::size_t index_width);

/// A model file for types of these widths, part by part.
Findings check_model(const std::string& bytes, const TypeWidths& widths);

}  // namespace qz_tool
