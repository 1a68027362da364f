#include "archive/archive_file.h"

#include "core/windows.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>

#include "core/errors.h"
#include "core/handle.h"
#include "support/archive_bytes.h"
#include "support/system_text.h"
#include "support/temp_folder.h"
#include "support/thrown_message.h"

namespace ve::file {
namespace {

using test::kCheckedHeader;
using test::kPlainHeader;
using test::PlainString;
using test::SystemText;
using test::ThrownMessage;
using test::U32;

bool CanBeWritten(const wchar_t* path) {
  const UniqueFileHandle file(
      CreateFileW(path, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  return static_cast<bool>(file);
}

using ArchiveFile = test::TempFolder;

TEST_F(ArchiveFile, AFileIsReadLikeBytesInMemory) {
  test::WriteWhole(L"a.vpak", kPlainHeader + U32(7) + PlainString("text"));
  ArchiveReader reader = OpenArchiveFile(L"a.vpak");
  EXPECT_EQ(reader.Mode(), ArchiveMode::kPlain);
  EXPECT_EQ(reader.ReadU32(), 7U);
  EXPECT_EQ(reader.ReadString(), "text");
  EXPECT_EQ(reader.ReadU32(), 0U);
}

TEST_F(ArchiveFile, TheModeIsThatOfTheFile) {
  test::WriteWhole(L"a.vpak", kCheckedHeader);
  EXPECT_EQ(OpenArchiveFile(L"a.vpak").Mode(), ArchiveMode::kChecked);
}

TEST_F(ArchiveFile, TheArchiveEndsWithTheFileNotWithThePage) {
  test::WriteWhole(L"a.vpak", kPlainHeader + U32(8) + "1234567");
  EXPECT_EQ(OpenArchiveFile(L"a.vpak").ReadString(), "");
}

TEST_F(ArchiveFile, TheFileCannotBeWrittenWhileItsReaderLives) {
  test::WriteWhole(L"a.vpak", kPlainHeader);
  {
    const ArchiveReader reader = OpenArchiveFile(L"a.vpak");
    EXPECT_FALSE(CanBeWritten(L"a.vpak"));
  }
  EXPECT_TRUE(CanBeWritten(L"a.vpak"));
}

TEST_F(ArchiveFile, MovingTheReaderKeepsItsTextsAndItsPosition) {
  test::WriteWhole(L"a.vpak", kPlainHeader + PlainString("first") + PlainString("second"));
  ArchiveReader reader = OpenArchiveFile(L"a.vpak");
  const std::string_view first = reader.ReadString();
  ArchiveReader moved = std::move(reader);
  EXPECT_EQ(first, "first");
  EXPECT_EQ(moved.ReadString(), "second");
}

TEST_F(ArchiveFile, ARejectedHeaderClosesTheFile) {
  test::WriteWhole(L"a.vpak", "no archive");
  EXPECT_EQ(ThrownMessage<FileException>([] { (void)OpenArchiveFile(L"a.vpak"); }),
            "Invalid header 1629515630 for binary file.");
  EXPECT_TRUE(CanBeWritten(L"a.vpak"));

  test::WriteWhole(L"a.vpak", kPlainHeader.substr(0, 4) + U32(3));
  EXPECT_EQ(ThrownMessage<FileException>([] { (void)OpenArchiveFile(L"a.vpak"); }),
            "Invalid version 3 for binary file (supported: 1).");
  EXPECT_TRUE(CanBeWritten(L"a.vpak"));
}

TEST_F(ArchiveFile, AnEmptyFileCannotBeMapped) {
  test::WriteWhole(L"a.vpak", "");
  EXPECT_EQ(ThrownMessage<MappedFileException>([] { (void)OpenArchiveFile(L"a.vpak"); }),
            "Failed to CreateFileMapping when trying to open mapped file 'a.vpak': " +
                SystemText(ERROR_FILE_INVALID));
  EXPECT_TRUE(CanBeWritten(L"a.vpak"));
}

TEST_F(ArchiveFile, AMissingFileCannotBeOpened) {
  EXPECT_EQ(ThrownMessage<MappedFileException>([] { (void)OpenArchiveFile(L"b.vpak"); }),
            "Failed to CreateFile when trying to open mapped file 'b.vpak': " +
                SystemText(ERROR_FILE_NOT_FOUND));
}

}  // namespace
}  // namespace ve::file
