#include "marginals_table.h"

#include <cstdio>
#include <string>
#include <vector>

#include "text_table.h"

namespace qz_tool {

namespace {

std::string probability(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6f", value);
  return text;
}

}  // namespace

void write_marginals(std::ostream& out, const ModelNames& names, const double* marginals) {
  std::vector<std::vector<std::string>> rows{{"vertex", "state", "marginal"}};
  const double* next = marginals + names.parameters;
  for (const VertexNames& vertex : names.vertices) {
    std::string label = vertex.name;
    for (const std::string& state : vertex.states) {
      rows.push_back({label, state, probability(*next++)});
      label.clear();
    }
  }
  write_table(out, rows);
}

}  // namespace qz_tool
