#include "QZ/support/file_fields.h"

#include <gtest/gtest.h>

#include "support/temp_file.h"

namespace {

using qz_test::TempFile;

TEST(FileFields, ReadBackWhatWasWritten) {
  TempFile file;
  const float values[] = {1.5f, -2.0f};
  QZ::FieldWriter out(file.path(), QZ::FieldWriter::Mode::truncate);
  out.number<unsigned short>(513);
  out.zero_text("name");
  out.text("ab");
  out.array(values, 2);
  out.close();
  EXPECT_EQ(file.read().substr(0, 9), std::string("\x01\x02name\0ab", 9));

  QZ::FieldReader in(file.path());
  EXPECT_EQ(in.number<unsigned short>(), 513);
  EXPECT_EQ(in.zero_text(), "name");
  EXPECT_EQ(in.text(2), "ab");
  float read[2] = {};
  EXPECT_EQ(in.array(read, 2), 2u);
  EXPECT_EQ(read[0], 1.5f);
  EXPECT_EQ(read[1], -2.0f);
}

TEST(FileFields, AppendingGoesOnAtTheEnd) {
  TempFile file("", "head");
  QZ::FieldWriter out(file.path(), QZ::FieldWriter::Mode::append);
  out.text("tail");
  out.close();
  EXPECT_EQ(file.read(), "headtail");
}

TEST(FileFields, AFieldPastTheEndReadsAsZero) {
  TempFile file("", "\x07");
  QZ::FieldReader in(file.path());
  EXPECT_EQ(in.number<unsigned char>(), 7);
  EXPECT_EQ(in.number<unsigned long>(), 0u);
  EXPECT_EQ(in.text(1000000), "");
  EXPECT_EQ(in.zero_text(), "");
}

TEST(FileFields, AMissingFileIsReported) {
  try {
    QZ::FieldReader in("no/such/file");
    FAIL() << "opened";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "cannot read no/such/file");
  }
}

TEST(FileFields, AFileThatCannotBeMadeIsReported) {
  try {
    QZ::FieldWriter out("no/such/folder/file", QZ::FieldWriter::Mode::truncate);
    FAIL() << "opened";
  } catch (const std::logic_error& error) {
    EXPECT_STREQ(error.what(), "cannot write no/such/folder/file");
  }
}

TEST(FileFields, AFullDiskIsReportedAtTheLatestOnClosing) {
  QZ::FieldWriter out("/dev/full", QZ::FieldWriter::Mode::truncate);
  EXPECT_THROW(
      {
        out.text(std::string(100000, 'x'));
        out.close();
      },
      std::logic_error);
}

}  // namespace
