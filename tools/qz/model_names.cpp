#include "model_names.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace qz_tool {

namespace {

/// Walks a model file from front to back.
class ModelReader {
 public:
  ModelReader(const std::string& path, const TypeWidths& widths)
      : file_(path, std::ios::binary),
        size_(file_ ? std::filesystem::file_size(path) : 0),
        widths_(widths) {}

  std::uint64_t number(std::size_t width) {
    std::uint64_t value = 0;
    file_.read(reinterpret_cast<char*>(&value), static_cast<std::streamsize>(width));
    return checked(value);
  }
  std::uint64_t index() { return number(widths_.index); }
  void skip(std::uint64_t bytes) {
    // A length beyond the file would carry the position out of range.
    if (bytes > size_) fail();
    file_.seekg(static_cast<std::streamoff>(bytes), std::ios::cur);
    checked(0);
  }
  std::string text() {
    std::string value;
    if (!std::getline(file_, value, '\0')) fail();
    return value;
  }

 private:
  std::uint64_t checked(std::uint64_t value) {
    if (!file_) fail();
    return value;
  }
  [[noreturn]] static void fail() { throw std::runtime_error("cannot read the stored model"); }

  std::ifstream file_;
  std::uint64_t size_;
  TypeWidths widths_;
};

/// A name for a file that no other process uses.
class TemporaryFile {
 public:
  TemporaryFile() : path_((std::filesystem::temp_directory_path() / "qz_model_XXXXXX").string()) {
    // Program text has no way to write a quotation mark inside a text.
    if (path_.find_first_of("'\"") != std::string::npos) {
      throw std::runtime_error("the temporary directory's name holds a quotation mark");
    }
    const int file = mkstemp(path_.data());
    if (file < 0) throw std::runtime_error("cannot make a temporary file");
    close(file);
  }
  ~TemporaryFile() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace

ModelNames read_model_names(const std::string& path, const TypeWidths& widths) {
  ModelReader file(path, widths);
  const std::uint64_t stored_vertices = file.index();
  const std::uint64_t stored_edges = file.index();
  file.skip(2 * stored_edges * widths.index);
  file.index();               // kind of graph
  file.skip(file.number(8));  // layer sizes as text
  file.skip(file.number(8));  // reserved text
  const std::uint64_t slices = file.index();
  file.skip(3 * widths.index);  // reparametrisation, samples, reserved word

  ModelNames names;
  const std::uint64_t vertices = stored_vertices * (slices > 1 ? slices : 1);
  for (std::uint64_t v = 0; v < vertices; ++v) {
    const std::uint64_t states = file.index();
    VertexNames vertex{file.text(), {}};
    for (std::uint64_t x = 0; x < states; ++x) vertex.states.push_back(file.text());
    names.vertices.push_back(std::move(vertex));
  }
  names.parameters = file.index();
  return names;
}

ModelNames names_of_loaded_model(Context& context) {
  const TemporaryFile file;
  context.run({"OVW true;", "DEL MFN;", "MFN '" + file.path() + "';", "STORE MPT;"});
  return read_model_names(file.path(), type_widths(context));
}

}  // namespace qz_tool
