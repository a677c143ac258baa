#pragma once

/// Fields of a binary file, taken from the front of its bytes.

#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace qz_tool {

class ByteFields {
 public:
  explicit ByteFields(std::string_view bytes) : left_(bytes) {}

  std::size_t left() const { return left_.size(); }

  /// An unsigned number in the machine's byte order; nothing if the bytes end before it.
  std::optional<std::uint64_t> number(std::size_t width) {
    if (width > left_.size()) return std::nullopt;
    std::uint64_t value = 0;
    std::memcpy(&value, left_.data(), width);
    left_.remove_prefix(width);
    return value;
  }
  /// A value of a type of this width and kind.
  template <class number_t>
  number_t value() {
    number_t value{};
    std::memcpy(&value, left_.data(), sizeof value);
    left_.remove_prefix(sizeof value);
    return value;
  }
  std::optional<std::string_view> text(std::uint64_t length) {
    if (length > left_.size()) return std::nullopt;
    const std::string_view text = left_.substr(0, length);
    left_.remove_prefix(length);
    return text;
  }
  /// A text up to its closing zero byte, which is taken too.
  std::optional<std::string_view> zero_text() {
    const std::size_t end = left_.find('\0');
    if (end == std::string_view::npos) return std::nullopt;
    const std::string_view text = left_.substr(0, end);
    left_.remove_prefix(end + 1);
    return text;
  }

 private:
  std::string_view left_;
};

}  // namespace qz_tool
