#include <algorithm>
#include <set>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "check_files.h"

namespace qz_tool {

namespace {

/// Lines without their newlines; none behind the last newline.
std::vector<std::string_view> lines_of(std::string_view text) {
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    lines.push_back(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
  return lines;
}

std::vector<std::string_view> cells_of(std::string_view line, char separator) {
  std::vector<std::string_view> cells;
  for (;;) {
    const std::size_t end = line.find(separator);
    cells.push_back(line.substr(0, end));
    if (end == std::string_view::npos) return cells;
    line.remove_prefix(end + 1);
  }
}

std::string line_name(std::size_t index) { return "line " + std::to_string(index + 1); }

/// Rows of a table as they come by.
class TableCheck {
 public:
  TableCheck(const TableForm& form, Findings& findings) : form_(form), findings_(findings) {}

  void header(std::string_view line) { names_ = cells_of(line, ',').size(); }

  void row(std::string_view line, std::size_t index) {
    const auto cells = cells_of(line, ',');
    if (rows_++ == 0) {
      width_ = cells.size();
      first_ = index;
      categories_.resize(width_);
    } else if (cells.size() != width_) {
      findings_.problem(line_name(index) + " has " + counted(cells.size(), "cell") +
                        ", the first row (" + line_name(first_) + ") has " +
                        std::to_string(width_));
    }
    for (std::size_t c = 0; c < cells.size(); ++c) cell(cells[c], c, index);
  }

  void finish() {
    findings_.summary("a table of " + counted(rows_, "row") + " and " + counted(width_, "column"));
    if (rows_ == 0) findings_.problem("there is no row of data");
    if (rows_ > 0 && form_.header && names_ != width_) {
      findings_.problem("the header names " + counted(names_, "column") + ", the first row has " +
                        counted(width_, "cell"));
    }
    for (std::size_t c = 0; c < width_; ++c) {
      if (categories_[c].size() > most_categories) {
        findings_.problem("column " + std::to_string(c + 1) + " has " +
                          counted(categories_[c].size(), "category", "categories") +
                          ", and a cell can hold " + std::to_string(most_categories));
      } else if (rows_ > 0 && categories_[c].empty()) {
        findings_.note("column " + std::to_string(c + 1) + " is missing in every row");
      }
    }
  }

 private:
  static constexpr std::size_t most_categories = 65535;

  void cell(std::string_view text, std::size_t column, std::size_t index) {
    if (text.empty()) {
      findings_.problem(line_name(index) + ": cell " + std::to_string(column + 1) + " is empty");
    } else if (text.front() != form_.missing && column < width_) {
      categories_[column].insert(text);
    }
  }

  const TableForm& form_;
  Findings& findings_;
  std::size_t names_ = 0;
  std::size_t rows_ = 0;
  std::size_t width_ = 0;
  std::size_t first_ = 0;
  std::vector<std::unordered_set<std::string_view>> categories_;
};

bool is_number(std::string_view text) {
  return !text.empty() && text.size() < 20 &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool is_zero(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c == '0'; });
}

}  // namespace

Findings check_table(const std::string& bytes, const TableForm& form) {
  Findings findings;
  const auto lines = lines_of(bytes);
  TableCheck check(form, findings);
  if (bytes.starts_with("\xEF\xBB\xBF")) {
    findings.note("the file begins with a byte order mark, which belongs to the first name");
  }
  if (bytes.find("\r\n") != std::string::npos) {
    findings.note("lines end in a carriage return, which belongs to their last cell");
  }
  std::size_t next = 0;
  if (form.header && next < lines.size()) check.header(lines[next++]);
  if (next < lines.size() && !lines[next].empty()) {
    findings.note(line_name(next) + " is thrown away: an empty line should stand there");
  }
  for (++next; next < lines.size(); ++next) {
    if (!lines[next].empty()) check.row(lines[next], next);
  }
  check.finish();
  return findings;
}

Findings check_adjacency(const std::string& bytes, char separator) {
  Findings findings;
  std::size_t rows = 0;
  std::size_t columns = 0;
  std::size_t length = 0;
  std::set<std::pair<std::size_t, std::size_t>> edges;
  std::set<std::pair<std::size_t, std::size_t>> below;
  const auto lines = lines_of(bytes);
  for (std::size_t index = 0; index < lines.size(); ++index) {
    std::string_view line = lines[index];
    if (line.empty()) continue;
    if (rows > 0 && line.size() != length) {
      findings.problem(line_name(index) + " is " + counted(line.size(), "byte") +
                       " long, the line before it " + std::to_string(length));
    }
    length = line.size();
    // A separator at the very end closes the last cell.
    if (line.back() == separator) line.remove_suffix(1);
    const auto cells = cells_of(line, separator);
    if (rows == 0) columns = cells.size();
    if (cells.size() != columns) {
      findings.problem(line_name(index) + " has " + counted(cells.size(), "cell") +
                       ", the first row " + std::to_string(columns));
    }
    for (std::size_t c = 0; c < cells.size(); ++c) {
      if (!is_number(cells[c])) {
        findings.problem(line_name(index) + ": cell " + std::to_string(c + 1) + " is no number");
      } else if (!is_zero(cells[c])) {
        if (c == rows) findings.note(line_name(index) + ": a vertex joined to itself is ignored");
        if (c > rows) edges.emplace(rows, c);
        if (c < rows) below.emplace(c, rows);
      }
    }
    ++rows;
  }
  findings.summary("an adjacency matrix of " + counted(columns, "vertex", "vertices") + " and " +
                   counted(edges.size(), "edge"));
  if (rows != columns) {
    findings.problem("the matrix has " + counted(rows, "row") + " and " +
                     counted(columns, "column"));
  }
  if (edges != below) {
    findings.note("the matrix is not symmetric: only cells right of the diagonal count");
  }
  return findings;
}

}  // namespace qz_tool
