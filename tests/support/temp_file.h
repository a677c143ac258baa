#pragma once

/// Files that live as long as a test.

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace qz_test {

/// A path in the temporary directory that no other test uses. The file is removed at the end.
class TempFile {
 public:
  explicit TempFile(const std::string& suffix = "") {
    static int count = 0;
    path_ = (std::filesystem::temp_directory_path() /
             ("qz_" + std::to_string(::getpid()) + "_" + std::to_string(count++) + suffix))
                .string();
    std::filesystem::remove(path_);
  }
  TempFile(const std::string& suffix, const std::string& content) : TempFile(suffix) {
    write(content);
  }
  ~TempFile() { std::filesystem::remove(path_); }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  const std::string& path() const { return path_; }

  void write(const std::string& content) const {
    std::ofstream(path_, std::ios::binary) << content;
  }

  std::string read() const {
    std::ifstream in(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

 private:
  std::string path_;
};

}  // namespace qz_test
