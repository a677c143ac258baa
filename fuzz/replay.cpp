/// Runs a fuzz target on kept inputs: files, or folders of files.

#include <algorithm>
#include <cstdio>
#include <vector>

#include "target.h"

namespace {

std::vector<std::filesystem::path> files_at(const std::filesystem::path& place) {
  if (!std::filesystem::is_directory(place)) return {place};
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(place)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

void replay(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  const std::string content{std::istreambuf_iterator<char>(in), {}};
  std::printf("%s\n", file.filename().c_str());
  // What was replayed last must be known if it crashes.
  std::fflush(stdout);
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& file : files_at(argv[i])) {
      replay(file);
      ++count;
    }
  }
  return count > 0 ? 0 : 1;
}
