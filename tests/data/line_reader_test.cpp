#include "QZ/data/line_reader.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

namespace {

TEST(LineReader, FindsTheSameLinesForEveryPieceSize) {
  const std::string text = "one\n\ntwo\r\n" + std::string(50, 'x') + "\n\nlast";
  for (std::size_t piece = 1; piece < 80; ++piece) {
    std::istringstream in(text);
    QZ::LineReader lines(in, piece);
    std::string joined;
    for (std::string_view line; lines.next(line);) joined += std::string(line) + "|";
    EXPECT_EQ(joined, "one||two\r|" + std::string(50, 'x') + "||last|") << piece;
  }
}

}  // namespace
