#include "registers.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <map>
#include <optional>

namespace qz_tool {

namespace {

using QZ::TypeType;
using QZ::VarType;
using QZ::vocabulary::Register;

/// Calls `f` with the table of names behind `var`, if there is one.
template <class F>
void with_keywords(VarType var, F&& f) {
  namespace words = QZ::vocabulary;
  switch (var) {
    case VarType::IDX:
      return f(words::index_types);
    case VarType::VAL:
      return f(words::value_types);
    case VarType::INF:
      return f(words::engines);
    case VarType::OPT:
      return f(words::optimizers);
    case VarType::REP:
      return f(words::parametrisations);
    case VarType::FMT:
      return f(words::exports);
    case VarType::GRA:
      return f(words::graphs);
    default:
      return;
  }
}

std::optional<std::uint64_t> keyword_value(VarType var, const std::string& name) {
  std::optional<std::uint64_t> value;
  with_keywords(var, [&](const auto& table) {
    for (const auto& row : table) {
      if (name == row.name) value = static_cast<std::uint64_t>(row.value);
    }
  });
  return value;
}

std::string keyword_name(VarType var, std::uint64_t value) {
  std::string name;
  with_keywords(var, [&](const auto& table) {
    for (const auto& row : table) {
      if (static_cast<std::uint64_t>(row.value) == value) name = row.name;
    }
  });
  return name;
}

template <class number_t>
std::optional<number_t> whole_number(const std::string& text) {
  number_t number{};
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stop != end) return std::nullopt;
  return number;
}

std::optional<std::uint64_t> truth_value(const std::string& text) {
  static const std::map<std::string, std::uint64_t> words{{"1", 1}, {"true", 1},  {"TRUE", 1},
                                                          {"0", 0}, {"false", 0}, {"FALSE", 0}};
  const auto found = words.find(text);
  if (found == words.end()) return std::nullopt;
  return found->second;
}

std::optional<std::uint64_t> word_of(const Register& row, const std::string& value) {
  switch (row.type) {
    case TypeType::T_UINT: {
      const auto keyword = keyword_value(row.var, value);
      return keyword ? keyword : whole_number<std::uint64_t>(value);
    }
    case TypeType::T_REAL: {
      const auto number = whole_number<double>(value);
      if (!number) return std::nullopt;
      return std::bit_cast<std::uint64_t>(*number);
    }
    case TypeType::T_BOOL:
      return truth_value(value);
    case TypeType::T_CHAR:
      if (value.size() != 1) return std::nullopt;
      return static_cast<unsigned char>(value[0]);
    default:
      return std::nullopt;
  }
}

/// Registers whose value the machine itself makes, so that a write would be lost.
bool is_made_by_machine(VarType var) {
  using enum VarType;
  return var == LNN || var == ONE || var == DIM || var == RND || var == UNI;
}

const char* expected(TypeType type) {
  switch (type) {
    case TypeType::T_UINT:
      return "a whole number or one of its keywords";
    case TypeType::T_REAL:
      return "a number";
    case TypeType::T_BOOL:
      return "true or false";
    case TypeType::T_CHAR:
      return "one character";
    case TypeType::T_STRING:
      return "a text without quotation marks and line ends";
    default:
      return "a pointer of a host program";
  }
}

std::string real_text(std::uint64_t word) {
  const auto value = std::bit_cast<double>(word);
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text, value).ptr;
  std::string result(text, end);
  // No result comes out this small: the register holds an integer.
  if (std::fpclassify(value) == FP_SUBNORMAL) result += " (word " + std::to_string(word) + ")";
  return result;
}

std::string pointer_text(std::uint64_t word) {
  char text[20] = "0x";
  return {text, std::to_chars(text + 2, text + sizeof text, word, 16).ptr};
}

}  // namespace

const Register& find_register(const std::string& name) {
  for (const Register& row : QZ::vocabulary::registers) {
    if (name == row.name) return row;
  }
  throw UsageError("there is no register " + name);
}

void set_register(Context& context, const std::string& name, const std::string& value) {
  const Register& row = find_register(name);
  if (is_made_by_machine(row.var)) throw UsageError("register " + name + " cannot be set");
  if (row.type == TypeType::T_STRING) {
    if (value.find_first_of("'\"\n") == std::string::npos) {
      context.run({name + " '" + value + "';"});
      return;
    }
  } else if (const auto word = word_of(row, value)) {
    context.write(name, *word);
    return;
  }
  throw UsageError("register " + name + " takes " + expected(row.type) + ", not \"" + value + "\"");
}

std::string register_text(const Context& context, const Register& row) {
  const std::uint64_t word = context.read(row.name);
  switch (row.type) {
    case TypeType::T_REAL:
      return real_text(word);
    case TypeType::T_BOOL:
      return word != 0 ? "true" : "false";
    case TypeType::T_CHAR:
      return std::string(1, static_cast<char>(word));
    case TypeType::T_POINTER:
      return pointer_text(word);
    case TypeType::T_STRING:
      return word == 0 ? std::string() : *reinterpret_cast<const std::string*>(word);
    default:
      return std::to_string(word);
  }
}

std::string register_remark(const Context& context, const Register& row) {
  switch (row.var) {
    case VarType::NXX:
      return "rows";
    case VarType::GVX:
      return "vertices";
    case VarType::GEX:
      return "edges";
    case VarType::DIM:
      return "parameters";
    case VarType::RES:
      return "result; the objective after ESTIMATE";
    case VarType::LNZ:
      return "log partition function";
    default:
      return keyword_name(row.var, context.read(row.name));
  }
}

}  // namespace qz_tool
