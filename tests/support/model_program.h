#pragma once

/// Programs that make a model of a table, and a look at what they leave in the registers.

#include <string>
#include <vector>

#include "QZ/io/model_container.h"
#include "support/program.h"
#include "support/tables.h"
#include "support/temp_file.h"

namespace qz_test {

/// The lines that select a type pair.
inline std::vector<std::string> types(const std::string& index, const std::string& value) {
  return {"idx_t " + index + ";", "val_t " + value + ";"};
}

inline std::vector<std::string> operator+(std::vector<std::string> lines,
                                          const std::vector<std::string>& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

/// The lines that read a table, make a graph and a model.
inline std::vector<std::string> fit_lines(const std::string& table, const std::string& graph) {
  return {"DFN '" + table + "';", "LDX DPT;", "GRA " + graph + ";", "LDX GPT;", "MODEL;"};
}

/// The container in `MPT`.
template <class idx_t, class val_t>
QZ::IO<idx_t, val_t>& container_of(const Door& door) {
  return *reinterpret_cast<QZ::IO<idx_t, val_t>*>(door.word("MPT"));
}

/// The names of the twelve type pairs in program text.
inline const std::vector<std::pair<std::string, std::string>>& all_type_names() {
  static const std::vector<std::pair<std::string, std::string>> names = [] {
    std::vector<std::pair<std::string, std::string>> list;
    for (const std::string index : {"UINT8", "UINT16", "UINT32", "UINT64"}) {
      for (const std::string& value : {index, std::string("FLT32"), std::string("FLT64")}) {
        list.emplace_back(index, value);
      }
    }
    return list;
  }();
  return names;
}

}  // namespace qz_test
