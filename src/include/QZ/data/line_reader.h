#pragma once

/// Lines of a text stream, read in large pieces.

#include <cstring>
#include <istream>
#include <stdexcept>
#include <string_view>
#include <vector>

namespace QZ {

/// Hands out the lines of a stream without their newlines. A last line needs none, and there is no
/// line after the last newline. The stream is read ahead, up to its end.
class LineReader {
 public:
  explicit LineReader(std::istream& in, std::size_t piece = 1ul << 18) : in_(in), buffer_(piece) {}

  /// Sets `line` to the next line, valid until the next call; false if there is none. Throws
  /// logic_error "cannot read data" if the stream fails before its end.
  bool next(std::string_view& line) {
    std::size_t searched = begin_;
    for (;;) {
      const void* found = std::memchr(buffer_.data() + searched, '\n', end_ - searched);
      if (found != nullptr) {
        const std::size_t stop = static_cast<const char*>(found) - buffer_.data();
        line = {buffer_.data() + begin_, stop - begin_};
        begin_ = stop + 1;
        return true;
      }
      if (at_end_) break;
      const std::size_t pending = end_ - begin_;
      fill();
      searched = begin_ + pending;
    }
    line = {buffer_.data() + begin_, end_ - begin_};
    begin_ = end_;
    return !line.empty();
  }

 private:
  /// Moves the unfinished line to the front and reads on behind it.
  void fill() {
    std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
    end_ -= begin_;
    begin_ = 0;
    if (end_ == buffer_.size()) buffer_.resize(2 * buffer_.size());
    in_.read(buffer_.data() + end_, static_cast<std::streamsize>(buffer_.size() - end_));
    end_ += static_cast<std::size_t>(in_.gcount());
    at_end_ = in_.eof() && !in_.bad();
    // Any other failure would repeat forever.
    if (in_.fail() && !at_end_) throw std::logic_error("cannot read data");
  }

  std::istream& in_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool at_end_ = false;
};

}  // namespace QZ
