#include <string_view>

#include "byte_fields.h"
#include "check_files.h"

namespace qz_tool {

namespace {

constexpr std::string_view magic("qzbin$\0#", 8);
constexpr std::uint64_t highest_cell = 255;

}  // namespace

bool is_binary_data(const std::string& bytes) { return std::string_view(bytes).starts_with(magic); }

Findings check_binary_data(const std::string& bytes) {
  Findings findings;
  findings.summary("binary data");
  ByteFields fields{std::string_view(bytes)};
  if (!is_binary_data(bytes)) {
    findings.problem("the file does not begin like binary data");
    return findings;
  }
  fields.text(magic.size());
  const auto rows = fields.number(8);
  const auto columns = fields.number(8);
  const auto categories = fields.number(8);
  if (!categories) {
    findings.problem("the file ends within its counts");
    return findings;
  }
  findings.summary("binary data of " + counted(*rows, "row") + ", " + counted(*columns, "column") +
                   " and " + counted(*categories, "category", "categories"));
  using wide_t = unsigned __int128;
  const wide_t cells = wide_t(*rows) * *columns;
  if (cells > fields.left()) {
    findings.problem("the cells are cut off: the file holds " + std::to_string(fields.left()) +
                     " of them");
  } else if (cells < fields.left()) {
    findings.note(counted(fields.left() - static_cast<std::size_t>(cells), "byte") +
                  " behind the cells are not read");
  }
  if (*categories > highest_cell + 1) {
    findings.note("a cell is a byte and holds a category below " +
                  std::to_string(highest_cell + 1));
  }
  for (std::size_t i = 0; i < cells && fields.left() > 0; ++i) {
    const std::uint64_t cell = *fields.number(1);
    if (cell < *categories) continue;
    findings.problem("row " + std::to_string(i / *columns + 1) + ", column " +
                     std::to_string(i % *columns + 1) + ": category " + std::to_string(cell) +
                     " is beyond the last one");
  }
  return findings;
}

}  // namespace qz_tool
