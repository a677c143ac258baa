#pragma once

/// A file walked through field by field.

#include <cstddef>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <string>

namespace documents {

/// Prints the bytes of a file as fields: offset, bytes, and what they mean.
class ByteWalk {
 public:
  explicit ByteWalk(std::string bytes) : bytes_(std::move(bytes)) {
    out_ << "offset  bytes                    field\n";
  }

  template <class number_t>
  number_t number(const std::string& meaning) {
    number_t value = 0;
    std::memcpy(&value, take(sizeof value), sizeof value);
    std::ostringstream shown;
    shown << meaning << " = " << +value;
    row(sizeof value, shown.str());
    return value;
  }

  void text(std::size_t length, const std::string& meaning) {
    const std::string value(take(length), length);
    row(length,
        meaning + (length == 0 ? " (empty)" : " \"" + value.substr(0, value.find('\0')) + '"'));
  }

  void zero_text(const std::string& meaning) { text(bytes_.find('\0', at_) + 1 - at_, meaning); }

  void raw(std::size_t length, const std::string& meaning) {
    take(length);
    row(length, meaning);
  }

  /// The walk, in a fence. Throws if bytes are left over.
  std::string finish() const {
    if (at_ != bytes_.size()) throw std::runtime_error("a file is longer than its description");
    return "```\n" + out_.str() + "```\n";
  }

 private:
  const char* take(std::size_t length) {
    if (bytes_.size() - at_ < length) throw std::runtime_error("a file is shorter than described");
    at_ += length;
    return bytes_.data() + at_ - length;
  }

  /// Eight bytes a line; the meaning stands behind the first.
  void row(std::size_t length, const std::string& meaning) {
    for (std::size_t done = 0; done < length || done == 0; done += 8) {
      std::ostringstream hex;
      for (std::size_t i = done; i < length && i < done + 8; ++i) {
        const auto byte = static_cast<unsigned char>(bytes_[at_ - length + i]);
        hex << (i == done ? "" : " ") << std::hex << std::setw(2) << std::setfill('0') << +byte;
      }
      std::ostringstream offset;
      offset << std::hex << std::setw(4) << std::setfill('0') << at_ - length + done;
      std::ostringstream line;
      line << offset.str() << "    " << std::left << std::setw(25) << hex.str();
      if (done == 0) line << meaning;
      const std::string text = line.str();
      out_ << text.substr(0, text.find_last_not_of(' ') + 1) << '\n';
    }
  }

  std::string bytes_;
  std::size_t at_ = 0;
  std::ostringstream out_;
};

}  // namespace documents
