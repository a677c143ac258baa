#pragma once

/// Registers by name: how a value on the command line becomes a word, and a word becomes text.

#include <cstdint>
#include <string>

#include "QZ/machine/vocabulary.h"
#include "context.h"

namespace qz_tool {

/// A command line that cannot be carried out.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The register with exactly this name. Throws UsageError for any other name.
const QZ::vocabulary::Register& find_register(const std::string& name);

/// Writes `value` to a register of `context`, by the register's class:
///   integer   decimal digits, or for GRA, REP, FMT, IDX, VAL, INF and OPT one of their keywords;
///   real      as in program text;
///   truth     true, false, 1 or 0;
///   character one byte;
///   text      any text on one line without quotation marks.
/// Pointers belong to host programs. Throws UsageError for what is none of this, and installs a
/// program of its own for a text.
void set_register(Context& context, const std::string& name, const std::string& value);

/// The value of a register as text, by its class. A real is given with as many digits as it takes
/// to read the same number back. Registers that can hold a bare word in place of a real show that
/// word behind it.
std::string register_text(const Context& context, const QZ::vocabulary::Register& row);

/// A few words on what the value says, or nothing: "rows" for NXX, "CHAIN" for 1 in GRA.
std::string register_remark(const Context& context, const QZ::vocabulary::Register& row);

}  // namespace qz_tool
