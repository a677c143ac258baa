/// A C++ host program: trains one model in bytes and one in doubles on the same rows, and compares
/// what they take up in a file. The first one needs no floating point, neither here nor where it is
/// used.

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "vm_wrapper.h"

namespace {

/// A byte counts up to here, so no more rows than that may go into a model of bytes.
constexpr std::size_t most_rows = 255;

/// The header of a table and an evenly spread choice of its rows.
std::string some_rows(const std::string& path) {
  std::ifstream in(path);
  std::string header;
  std::getline(in, header);
  std::vector<std::string> rows;
  for (std::string row; std::getline(in, row);) {
    if (!row.empty()) rows.push_back(row);
  }
  std::string text = header + "\n\n";
  const std::size_t count = rows.size() < most_rows ? rows.size() : most_rows;
  for (std::size_t i = 0; i < count; ++i) text += rows[i * rows.size() / count] + "\n";
  return text;
}

/// Fits a tree to the table that `text` holds, stores it, and returns the word of `RES`.
std::int64_t fit(const std::string& text, const std::vector<std::string>& setting,
                 const std::string& file) {
  void* machine = create_ctx();
  const auto run = [&](const std::vector<std::string>& program) {
    std::vector<const char*> lines;
    for (const std::string& line : program) lines.push_back(line.c_str());
    ctx_set_code(machine, lines.data(), lines.size());
    run_ctx(machine);
  };
  ctx_write_reg(machine, "EDP", reinterpret_cast<std::uintptr_t>(&text));
  run(setting);
  run({"LDX DPT;", "GRA CHOWLIU;", "LDX GPT;", "MODEL;", "ESTIMATE;", "MFN '" + file + "';",
       "OVW true;", "STORE MPT;", "DEL MFN;"});
  const std::int64_t result = ctx_read_reg(machine, "RES");
  destroy_ctx(machine);
  return result;
}

}  // namespace

int main() {
  try {
    const std::string text = some_rows("examples/titanic.csv");
    // Weights below 8, and as many steps as a byte can count.
    const std::int64_t difference =
        fit(text, {"idx_t UINT8;", "val_t UINT8;", "KXX 8", "MIL 20", "ALG IGD;", "MIO 255"},
            "bytes.model");
    fit(text, {"ALG FL1;", "STP 1"}, "doubles.model");
    std::cout << "bytes " << std::filesystem::file_size("bytes.model") << "\ndoubles "
              << std::filesystem::file_size("doubles.model")
              << "\nlargest difference of a probability " << difference << "/255\n";
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
