#include "QZ/machine/file_list.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/temp_file.h"

namespace {

using qz_test::TempFile;

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> pieces = {"kept"};
  QZ::readandsplit(text, pieces);
  return pieces;
}

TEST(FileList, SplitsAtCommasAndAppends) {
  EXPECT_EQ(split("a"), (std::vector<std::string>{"kept", "a"}));
  EXPECT_EQ(split("a,b c,d"), (std::vector<std::string>{"kept", "a", "b c", "d"}));
  EXPECT_EQ(split(",a,"), (std::vector<std::string>{"kept", "", "a", ""}));
}

TEST(FileList, AnEmptyTextHasNoPiece) { EXPECT_EQ(split(""), (std::vector<std::string>{"kept"})); }

TEST(FileList, ExistsIfEveryFileOpens) {
  const TempFile a(".a", "12345");
  const TempFile b(".b", "");
  EXPECT_TRUE(QZ::file_exists(a.path()));
  EXPECT_TRUE(QZ::file_exists(a.path() + "," + b.path()));
  EXPECT_FALSE(QZ::file_exists(a.path() + "," + b.path() + ".missing"));
  EXPECT_FALSE(QZ::file_exists(a.path() + ","));
  EXPECT_TRUE(QZ::file_exists(""));
}

TEST(FileList, SizeIsInBytes) {
  EXPECT_EQ(QZ::filesize(TempFile(".s", "12\r\n5").path()), std::streampos(5));
  EXPECT_EQ(QZ::filesize(TempFile(".e", "").path()), std::streampos(0));
  EXPECT_EQ(QZ::filesize(TempFile(".m").path()), std::streampos(-1));
}

}  // namespace
