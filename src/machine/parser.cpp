#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "QZ/machine/values.h"
#include "QZ/machine/vm.h"

namespace QZ {

namespace {

constexpr std::string_view blanks = " \t";

// Every name is matched as a prefix of the text; no word boundary is looked for.
bool stands_at(const std::string& line, unsigned long pos, std::string_view name) {
  return line.compare(pos, name.size(), name) == 0;
}

// The first character from `pos` on that is no blank; the line's length if there is none.
unsigned long skip_blanks(const std::string& line, unsigned long pos) {
  const unsigned long found = line.find_first_not_of(blanks, pos);
  return found == std::string::npos ? line.size() : found;
}

std::logic_error operand_missing(OpType op) {
  return std::logic_error("cannot parse argument of op " +
                          std::to_string(static_cast<unsigned>(op)));
}

// The operation whose name stands at `pos`, which moves behind it.
std::optional<OpType> operation_at(const std::string& line, unsigned long& pos,
                                   const vm_t::NameTable<OpType>& table) {
  for (const auto& [name, op] : table) {
    if (!stands_at(line, pos, name)) continue;
    pos += name.size();
    return op;
  }
  return std::nullopt;
}

// The number of a setter statement: 0 for an empty text, nothing for a text that is no number.
std::optional<unsigned long> setter_number(std::string_view digits) {
  constexpr unsigned long limit = std::numeric_limits<unsigned long>::max();
  unsigned long number = 0;
  for (const char c : digits) {
    if (c < '0' || c > '9') return std::nullopt;
    const auto digit = static_cast<unsigned long>(c - '0');
    if (number > (limit - digit) / 10) return std::nullopt;
    number = number * 10 + digit;
  }
  return number;
}

// The characters that a setter reads as a number. The scan for the closing ";" looks at the first
// character only, and the last character of the line is dropped in its place.
std::string_view setter_digits(const std::string& line, unsigned long pos) {
  if (line[pos] == ';') return {};
  return std::string_view(line).substr(pos, line.size() - 1 - pos);
}

// The value of an assignment: quoted by either mark and closed by either, or up to a blank or ";".
std::string value_token(const std::string& line, unsigned long pos) {
  const bool quoted = line[pos] == '"' || line[pos] == '\'';
  const unsigned long end =
      quoted ? line.find_first_of("\"'", pos + 1) : line.find_first_of("\t ;", pos);
  if (end == std::string::npos) return line.substr(pos);
  return line.substr(pos, end - pos + (quoted ? 1 : 0));
}

}  // namespace

unsigned long vm_t::parseNext(const std::string& line, unsigned long pos) {
  if (parse_operation(line, pos) || parse_setting(line, pos)) return pos;
  if (line[pos] == ';') {
    if (!exec()) throw std::logic_error("unknown syntax error");
    currentOp = OpType::SET;
    arg0 = VarType::NOOP;
    return line.size();
  }
  if (blanks.find(line[pos]) != std::string_view::npos) {
    // A blank between the last operand and ";" so redirects the operation to NOOP.
    arg0 = VarType::NOOP;
    return pos + 1;
  }
  return parse_assignment(line, pos);
}

bool vm_t::parse_operation(const std::string& line, unsigned long& pos) {
  const NameTable<OpType>* const tables[] = {&ops0, &ops1, &ops2, &ops3};
  VarType* const operands[] = {&arg0, &arg1, &arg2};
  for (std::size_t count = 0; count < std::size(tables); ++count) {
    const auto op = operation_at(line, pos, *tables[count]);
    if (!op) continue;
    currentOp = *op;
    for (std::size_t i = 0; i < count; ++i) *operands[i] = parseVar(line, pos);
    pending = 1;
    return true;
  }
  return false;
}

VarType vm_t::parseVar(const std::string& line, unsigned long& pos) {
  if (pos >= line.size()) throw operand_missing(currentOp);
  pos = skip_blanks(line, pos);
  if (pos >= line.size()) throw operand_missing(currentOp);
  const VarType var = getVar(line, pos);
  // The first operand is looked at, not this one: an unknown first operand is reported only where a
  // second one follows.
  if (arg0 == unknown_register) throw operand_missing(currentOp);
  return var;
}

bool vm_t::parse_setting(const std::string& line, unsigned long& pos) {
  bool chosen = false;
  if (stands_at(line, pos, "idx_t")) {
    chosen = parseSetter(pos, line, "idx_t", VarType::IDX, 5, idxNames, 0);
  } else if (stands_at(line, pos, "val_t")) {
    chosen = parseSetter(pos, line, "val_t", VarType::VAL, 5, valNames, 0);
  } else if (stands_at(line, pos, "ALG")) {
    const unsigned long start = pos;
    chosen = parseSetter(pos, line, "ALG", VarType::INF, 3, infNames, 0);
    if (!chosen) {
      pos = start;
      const auto first = static_cast<unsigned long>(OptType::GD);
      chosen = parseSetter(pos, line, "ALG", VarType::OPT, 3, optNames, first);
    }
  } else if (stands_at(line, pos, "REP")) {
    chosen = parseSetter(pos, line, "rep", VarType::REP, 3, reparamNames, 0);
  } else if (stands_at(line, pos, "FMT")) {
    chosen = parseSetter(pos, line, "graph format", VarType::FMT, 3, exportNames, 0);
  } else if (stands_at(line, pos, "GRA")) {
    chosen = parseSetter(pos, line, "graph", VarType::GRA, 3, graphNames, 0);
  } else {
    return false;
  }
  if (!chosen) throw std::logic_error("parser error");
  return true;
}

template <class enum_t>
bool vm_t::parseSetter(unsigned long& pos, const std::string& line, const std::string& what,
                       VarType var, unsigned long skip, const NameTable<enum_t>& table,
                       unsigned long first) {
  arg0 = var;
  pos += skip;
  if (pos >= line.size()) throw std::logic_error("cannot set " + what);
  pos = skip_blanks(line, pos);
  if (pos >= line.size()) throw std::logic_error("cannot set " + what);
  const auto number = setter_number(setter_digits(line, pos));
  unsigned long counter = first;
  for (const auto& [name, value] : table) {
    if (stands_at(line, pos, name) || number == counter) {
      set(var, counter);
      // The length of the name, also behind a number: that may end the line.
      pos += name.size();
      return true;
    }
    ++counter;
  }
  return false;
}

template bool vm_t::parseSetter(unsigned long&, const std::string&, const std::string&, VarType,
                                unsigned long, const NameTable<IdxType>&, unsigned long);
template bool vm_t::parseSetter(unsigned long&, const std::string&, const std::string&, VarType,
                                unsigned long, const NameTable<ValType>&, unsigned long);
template bool vm_t::parseSetter(unsigned long&, const std::string&, const std::string&, VarType,
                                unsigned long, const NameTable<InfType>&, unsigned long);
template bool vm_t::parseSetter(unsigned long&, const std::string&, const std::string&, VarType,
                                unsigned long, const NameTable<OptType>&, unsigned long);
template bool vm_t::parseSetter(unsigned long&, const std::string&, const std::string&, VarType,
                                unsigned long, const NameTable<ReparamType>&, unsigned long);
template bool vm_t::parseSetter(unsigned long&, const std::string&, const std::string&, VarType,
                                unsigned long, const NameTable<GraphExport>&, unsigned long);
template bool vm_t::parseSetter(unsigned long&, const std::string&, const std::string&, VarType,
                                unsigned long, const NameTable<GraphType>&, unsigned long);

unsigned long vm_t::parse_assignment(const std::string& line, unsigned long pos) {
  arg0 = getVar(line, pos);
  if (arg0 == unknown_register) throw std::logic_error("unknown syntax error");
  pos = skip_blanks(line, pos);
  if (pos >= line.size()) throw std::logic_error("unknown syntax error");
  const std::string token = value_token(line, pos);
  assign(arg0, type(arg0), token);
  return pos + token.size();
}

void vm_t::assign(VarType var, TypeType type, const std::string& token) {
  switch (type) {
    case TypeType::T_STRING:
      return set(var, QZ::get<std::string*>(token));
    case TypeType::T_POINTER:
      return set(var, QZ::get<void*>(token));
    case TypeType::T_BOOL:
      return set(var, QZ::get<bool>(token));
    case TypeType::T_REAL:
      return set(var, QZ::get<double>(token));
    case TypeType::T_CHAR:
      return set(var, QZ::get<char>(token));
    case TypeType::T_UINT:
      return set(var, QZ::get<unsigned long>(token));
  }
  throw std::logic_error("unknown data type");
}

}  // namespace QZ
