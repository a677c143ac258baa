/// The vocabulary as tables.

#include <bit>
#include <span>
#include <sstream>
#include <string>

#include "QZ/machine/vocabulary.h"
#include "generated_blocks.h"

namespace documents {

namespace {

using QZ::TypeType;
using QZ::VarType;
namespace vocabulary = QZ::vocabulary;

const char* class_name(TypeType type) {
  switch (type) {
    case TypeType::T_UINT:
      return "integer";
    case TypeType::T_REAL:
      return "real";
    case TypeType::T_STRING:
      return "text";
    case TypeType::T_BOOL:
      return "truth";
    case TypeType::T_POINTER:
      return "pointer";
    case TypeType::T_CHAR:
      return "character";
  }
  return "";
}

std::string start_value(const vocabulary::Register& row) {
  if (row.var == VarType::OMP) return "all threads";
  if (row.var == VarType::ONE) return "1";
  switch (row.type) {
    case TypeType::T_REAL: {
      if (row.var == VarType::MVA) return "word " + std::to_string(row.initial);
      std::ostringstream number;
      number << std::bit_cast<double>(row.initial);
      return number.str();
    }
    case TypeType::T_BOOL:
      return row.initial != 0 ? "true" : "false";
    case TypeType::T_CHAR:
      return std::string("`") + static_cast<char>(row.initial) + "`";
    case TypeType::T_STRING:
    case TypeType::T_POINTER:
      return "none";
    case TypeType::T_UINT:
      break;
  }
  return std::to_string(row.initial);
}

std::string registers() {
  std::ostringstream out;
  out << "| name | number | class | at the start | meaning |\n|---|---|---|---|---|\n";
  for (const auto& row : vocabulary::registers) {
    out << "| `" << row.name << "` | " << static_cast<unsigned>(row.var) << " | "
        << class_name(row.type) << " | " << start_value(row) << " | " << row.meaning << " |\n";
  }
  return out.str();
}

std::string aliases() {
  std::ostringstream out;
  out << "| further name | of |\n|---|---|\n";
  for (const auto& alias : vocabulary::aliases) {
    for (const auto& row : vocabulary::registers) {
      if (row.var == alias.var) out << "| `" << alias.name << "` | `" << row.name << "` |\n";
    }
  }
  return out.str();
}

std::string operations() {
  std::ostringstream out;
  out << "| name | number | registers | effect |\n|---|---|---|---|\n";
  for (const auto& row : vocabulary::operations) {
    out << "| `" << row.name << "` | " << static_cast<unsigned>(row.op) << " | " << row.operands
        << " | " << row.meaning << " |\n";
  }
  return out.str();
}

template <class enum_t>
void add_keywords(std::ostream& out, const char* keyword,
                  std::span<const vocabulary::Keyword<enum_t>> rows) {
  for (const auto& row : rows) {
    out << "| `" << keyword << "` | `" << row.name << "` | " << static_cast<unsigned>(row.value)
        << " | " << row.meaning << " |\n";
  }
}

std::string keywords() {
  std::ostringstream out;
  out << "| keyword | name | number | meaning |\n|---|---|---|---|\n";
  add_keywords<QZ::IdxType>(out, "idx_t", vocabulary::index_types);
  add_keywords<QZ::ValType>(out, "val_t", vocabulary::value_types);
  add_keywords<QZ::InfType>(out, "ALG", vocabulary::engines);
  add_keywords<QZ::OptType>(out, "ALG", vocabulary::optimizers);
  add_keywords<QZ::ReparamType>(out, "REP", vocabulary::parametrisations);
  add_keywords<QZ::GraphExport>(out, "FMT", vocabulary::exports);
  add_keywords<QZ::GraphType>(out, "GRA", vocabulary::graphs);
  return out.str();
}

}  // namespace

Generators register_tables() {
  return {{"registers", registers},
          {"aliases", aliases},
          {"operations", operations},
          {"keywords", keywords}};
}

}  // namespace documents
