/// Program text. A bounded number of lines ends well, while operations check what they require and
/// do no work. Any register can then be read, and the machine can be taken down.

#include <algorithm>
#include <sstream>
#include <string_view>
#include <vector>

#include "QZ/machine/vm.h"
#include "QZ/machine/vocabulary.h"
#include "target.h"

namespace {

using QZ::TypeType;
using QZ::VarType;

constexpr std::size_t most_lines = 64;
constexpr int most_steps = 256;

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; lines.size() < most_lines && std::getline(in, line);) {
    lines.push_back(line);
  }
  return lines;
}

bool holds_address(TypeType type) {
  return type == TypeType::T_POINTER || type == TypeType::T_STRING;
}

/// Takes `word` and the blanks behind it from the front of the text.
bool take_front(std::string_view& text, std::string_view word) {
  if (!text.starts_with(word)) return false;
  text.remove_prefix(word.size());
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  return true;
}

/// Whether the line may make an address of a number. It is up to the program that an address is
/// one, so that such a line stands for no finding.
bool makes_an_address(std::string_view line) {
  const bool released_or_filled =
      take_front(line, "LDX") || take_front(line, "STORE") || take_front(line, "DEL");
  for (const auto& row : QZ::vocabulary::registers) {
    const bool may_lead = row.type == TypeType::T_STRING || released_or_filled;
    if (holds_address(row.type) && may_lead && take_front(line, row.name)) break;
  }
  return std::any_of(
      QZ::vocabulary::registers.begin(), QZ::vocabulary::registers.end(), [&](const auto& row) {
        return holds_address(row.type) && line.find(row.name) != std::string_view::npos;
      });
}

void run(QZ::vm_t& vm, const std::vector<std::string>& lines) {
  for (int step = 0; step < most_steps && vm.get(VarType::LNN) < lines.size(); ++step) {
    const std::string& line = lines[vm.get(VarType::LNN)];
    if (!line.starts_with('#')) {
      for (unsigned long pos = 0; pos < line.size();) pos = vm.parseNext(line, pos);
    }
    vm.set_word(VarType::LNN, vm.get(VarType::LNN) + 1);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto lines = lines_of(qz_fuzz::Input(data, size).rest());
  if (std::any_of(lines.begin(), lines.end(), makes_an_address)) return 0;
  QZ::vm_t vm;
  vm.set_dry_run(true);
  qz_fuzz::ends_well([&] { run(vm, lines); });
  for (const auto& row : QZ::vocabulary::registers) {
    vm.read_register(row.name);
    vm.getR(row.var);
    if (row.type == TypeType::T_STRING) (void)vm.text(row.var);
  }
  return 0;
}
