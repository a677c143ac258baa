#pragma once

/// Fields of the binary files: a number of a given width, an array of them, and a text that ends in
/// a zero byte. All in the machine's byte order.

#include <cstddef>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

namespace QZ {

/// Reads fields from the start of a file on. A field past the end reads as zero, or leaves the rest
/// of an array as it was.
class FieldReader {
 public:
  /// Throws logic_error "cannot read NAME" if the file does not open.
  explicit FieldReader(const std::string& name) : file_(std::fopen(name.c_str(), "rb")) {
    if (!file_) throw std::logic_error("cannot read " + name);
  }

  void seek(std::size_t position) {
    std::fseek(file_.get(), static_cast<long>(position), SEEK_SET);
  }

  template <class number_t>
  number_t number() {
    number_t value = 0;
    array(&value, 1);
    return value;
  }

  /// Reads up to `count` numbers and returns how many the file still held.
  template <class number_t>
  std::size_t array(number_t* values, std::size_t count) {
    return count == 0 ? 0 : std::fread(values, sizeof(number_t), count, file_.get());
  }

  /// A text of `length` bytes, cut where the file ends.
  std::string text(std::size_t length) {
    std::string value;
    for (int c; value.size() < length && (c = std::fgetc(file_.get())) != EOF;) {
      value.push_back(static_cast<char>(c));
    }
    return value;
  }

  /// A text up to its closing zero byte, which is consumed.
  std::string zero_text() {
    std::string value;
    for (int c; (c = std::fgetc(file_.get())) != EOF && c != 0;) {
      value.push_back(static_cast<char>(c));
    }
    return value;
  }

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  std::unique_ptr<std::FILE, Close> file_;
};

/// Writes fields to a file. A write that does not reach the disk throws from `close`.
class FieldWriter {
 public:
  enum class Mode { truncate, append };

  /// Throws logic_error "cannot write NAME" if the file does not open.
  FieldWriter(const std::string& name, Mode mode) : name_(name) {
    file_.reset(std::fopen(name.c_str(), mode == Mode::truncate ? "wb" : "r+b"));
    if (!file_) fail();
    if (mode == Mode::append) std::fseek(file_.get(), 0, SEEK_END);
  }

  template <class number_t>
  void number(number_t value) {
    array(&value, 1);
  }

  template <class number_t>
  void array(const number_t* values, std::size_t count) {
    if (count != 0 && std::fwrite(values, sizeof(number_t), count, file_.get()) != count) fail();
  }

  void text(const std::string& value) { array(value.data(), value.size()); }

  void zero_text(const std::string& value) { array(value.c_str(), value.size() + 1); }

  /// Flushes and closes. Throws logic_error "cannot write NAME" if anything was lost.
  void close() {
    if (std::fclose(file_.release()) != 0) fail();
  }

 private:
  struct Close {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  [[noreturn]] void fail() const { throw std::logic_error("cannot write " + name_); }

  std::string name_;
  std::unique_ptr<std::FILE, Close> file_;
};

}  // namespace QZ
