#include "archive/archive_writer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <string_view>

#include "archive/archive_reader.h"
#include "core/files.h"
#include "core/handle.h"
#include "support/archive_bytes.h"
#include "support/temp_folder.h"

namespace ve::file {
namespace {

using namespace std::string_literals;
using test::kCheckedHeader;
using test::kPlainHeader;
using test::U32;

std::span<const std::byte> Raw(std::string_view text) { return std::as_bytes(std::span(text)); }

/// The bytes after the header once `write` has run.
std::string Written(ArchiveMode mode, const std::function<void(ArchiveWriter&)>& write) {
  ArchiveWriter writer(mode);
  write(writer);
  const std::string bytes = writer.Bytes();
  EXPECT_EQ(bytes.substr(0, 9), mode == ArchiveMode::kPlain ? kPlainHeader : kCheckedHeader);
  return bytes.substr(9);
}
std::string Plain(const std::function<void(ArchiveWriter&)>& write) {
  return Written(ArchiveMode::kPlain, write);
}
std::string Checked(const std::function<void(ArchiveWriter&)>& write) {
  return Written(ArchiveMode::kChecked, write);
}

constexpr std::array<std::byte, 16> kBlock{std::byte{1}, std::byte{2}, std::byte{0xFF}};
const std::string kBlockBytes = "\x01\x02\xFF" + std::string(13, '\0');

TEST(ArchiveWriter, TheConstructorWritesTheHeader) {
  EXPECT_EQ(ArchiveWriter(ArchiveMode::kPlain).Bytes(), "\xA1\xFC\x26\x61\x01\0\0\0\0"s);
  EXPECT_EQ(ArchiveWriter(ArchiveMode::kChecked).Bytes(), "\xA1\xFC\x26\x61\x01\0\0\0\x01"s);
}

TEST(ArchiveWriter, ScalarsArePrecededByTheirWidthInCheckedModeOnly) {
  const auto number = [](ArchiveWriter& w) { w.WriteU32(0x01020304); };
  EXPECT_EQ(Plain(number), "\x04\x03\x02\x01");
  EXPECT_EQ(Checked(number), "\x04\0\0\0\x04\x03\x02\x01"s);
  const auto block = [](ArchiveWriter& w) { w.WriteBlock16(kBlock); };
  EXPECT_EQ(Plain(block), kBlockBytes);
  EXPECT_EQ(Checked(block), U32(16) + kBlockBytes);
}

TEST(ArchiveWriter, ABooleanIsOneByteInBothModes) {
  const auto both = [](ArchiveWriter& w) {
    w.WriteBool(true);
    w.WriteBool(false);
  };
  EXPECT_EQ(Plain(both), "\x01\x00"s);
  EXPECT_EQ(Checked(both), "\x01\x00"s);
}

TEST(ArchiveWriter, AStringHasItsLengthAndNoTerminator) {
  const auto text = [](ArchiveWriter& w) { w.WriteString("abc"); };
  EXPECT_EQ(Plain(text), "\x03\0\0\0abc"s);
  EXPECT_EQ(Checked(text), "\xB8\x20\x4C\x2F\x04\0\0\0\x03\0\0\0abc"s);
}

TEST(ArchiveWriter, AWideStringOfThreeUnitsTakesTenOrEighteenBytes) {
  const auto text = [](ArchiveWriter& w) { w.WriteWideString(L"ab\x20AC"); };
  EXPECT_EQ(Plain(text), "\x03\0\0\0a\0b\0\xAC\x20"s);
  EXPECT_EQ(Plain(text).size(), 10U);
  EXPECT_EQ(Checked(text), "\x32\x7C\x46\x2F\x04\0\0\0\x03\0\0\0a\0b\0\xAC\x20"s);
  EXPECT_EQ(Checked(text).size(), 18U);
}

TEST(ArchiveWriter, DataHasItsLength) {
  const auto data = [](ArchiveWriter& w) { w.WriteData(Raw("a\0b"s)); };
  EXPECT_EQ(Plain(data), "\x03\0\0\0a\0b"s);
  EXPECT_EQ(Checked(data), "\x33\x89\xDE\xC4\x04\0\0\0\x03\0\0\0a\0b"s);
}

TEST(ArchiveWriter, NestedDataGetsTheLengthOfWhatWasWritten) {
  const auto data = [](ArchiveWriter& w) {
    w.WriteData([](ArchiveWriter& inner) {
      inner.WriteU32(7);
      inner.WriteBool(true);
    });
    w.WriteBool(true);
  };
  EXPECT_EQ(Plain(data), U32(5) + U32(7) + "\x01\x01");
  EXPECT_EQ(Checked(data), "\x33\x89\xDE\xC4"s + U32(4) + U32(9) + U32(4) + U32(7) + "\x01\x01");
}

TEST(ArchiveWriter, NestedDataNests) {
  const auto data = [](ArchiveWriter& w) {
    w.WriteData([](ArchiveWriter& outer) {
      outer.WriteData([](ArchiveWriter& inner) { inner.WriteBool(true); });
      outer.WriteBool(false);
    });
  };
  EXPECT_EQ(Plain(data), U32(6) + U32(1) + "\x01\x00"s);
}

TEST(ArchiveWriter, EmptyNestedDataHasLengthZero) {
  EXPECT_EQ(Plain([](ArchiveWriter& w) { w.WriteData([](ArchiveWriter&) {}); }), U32(0));
}

TEST(ArchiveWriter, ATimeHasAnIdentifierAndNoWidth) {
  const auto time = [](ArchiveWriter& w) { w.WriteTime(-2); };
  EXPECT_EQ(Plain(time), "\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF");
  EXPECT_EQ(Checked(time), "\x7B\x72\x7E\x82\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF");
}

TEST(ArchiveWriter, CompoundsHaveAnIdentifierInCheckedModeOnly) {
  const auto all = [](ArchiveWriter& w) {
    w.WriteTupleHeader(200);
    w.WriteArrayHeader();
    w.WritePairHeader();
    w.WriteMapHeader();
    w.WriteSetHeader();
  };
  EXPECT_EQ(Plain(all), "");
  EXPECT_EQ(Checked(all),
            "\x39\xDF\x10\x37\xC8"
            "\x6E\x1F\x0D\x4E"
            "\xA1\x9C\x10\x5D"
            "\xAB\x9B\xE5\x1A"
            "\xA7\xAA\x81\x25");
}

class ArchiveWriterModes : public testing::TestWithParam<ArchiveMode> {};
INSTANTIATE_TEST_SUITE_P(BothModes, ArchiveWriterModes,
                         testing::Values(ArchiveMode::kPlain, ArchiveMode::kChecked));

TEST_P(ArchiveWriterModes, WhatIsWrittenIsRead) {
  ArchiveWriter writer(GetParam());
  writer.WriteTupleHeader(2);
  writer.WriteU32(0xFFFFFFFF);
  writer.WriteBool(true);
  writer.WriteArrayHeader();
  writer.WriteBlock16(kBlock);
  writer.WriteString("n\0\xE9"s);
  writer.WritePairHeader();
  writer.WriteWideString(L"\0\xD800\xFFFF"s);
  writer.WriteData(Raw("raw"));
  writer.WriteMapHeader();
  writer.WriteData([](ArchiveWriter& w) { w.WriteString("nested"); });
  writer.WriteSetHeader();
  writer.WriteTime(132500000000000000);
  writer.WriteString("");
  writer.WriteWideString(L"");
  writer.WriteU32(7);
  const std::string bytes = writer.Bytes();

  ArchiveReader reader(bytes);
  EXPECT_EQ(reader.Mode(), GetParam());
  reader.ExpectTuple(2);
  EXPECT_EQ(reader.ReadU32(), 0xFFFFFFFFU);
  EXPECT_TRUE(reader.ReadBool());
  reader.ExpectArray();
  EXPECT_EQ(reader.ReadBlock16(), kBlock);
  EXPECT_EQ(reader.ReadString(), "n\0\xE9"s);
  reader.ExpectPair();
  EXPECT_TRUE(reader.ReadWideString() == L"\0\xD800\xFFFF"s);
  EXPECT_EQ(reader.ReadData().size(), 3U);
  reader.ExpectMap();
  EXPECT_EQ(reader.ReadData().size(), (GetParam() == ArchiveMode::kPlain ? 4U : 12U) + 6U);
  reader.ExpectSet();
  EXPECT_EQ(reader.ReadTime(), 132500000000000000);
  EXPECT_EQ(reader.ReadString(), "");
  EXPECT_TRUE(reader.ReadWideString().empty());
  EXPECT_EQ(reader.ReadU32(), 7U);
}

using ArchiveWriterFiles = test::TempFolder;

TEST_F(ArchiveWriterFiles, AFileHoldsTheBytesUntranslated) {
  {
    ArchiveWriter writer(L"a.vpak", ArchiveMode::kPlain);
    writer.WriteString("line\nfeed\r\n");
    writer.WriteData([](ArchiveWriter& w) { w.WriteU32(10); });
    EXPECT_EQ(writer.Bytes(), "");
  }
  EXPECT_EQ(test::ReadWhole(L"a.vpak"),
            kPlainHeader + U32(11) + "line\nfeed\r\n" + U32(4) + U32(10));
}

TEST_F(ArchiveWriterFiles, AnExistingFileIsReplaced) {
  test::WriteWhole(L"a.vpak", std::string(100, 'x'));
  { ArchiveWriter writer(L"a.vpak", ArchiveMode::kChecked); }
  EXPECT_EQ(test::ReadWhole(L"a.vpak"), kCheckedHeader);
}

TEST_F(ArchiveWriterFiles, TheFileIsSharedForReadingAndWriting) {
  const ArchiveWriter writer(L"a.vpak", ArchiveMode::kPlain);
  const UniqueFileHandle other(CreateFileW(L"a.vpak", GENERIC_READ | GENERIC_WRITE,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                           OPEN_EXISTING, 0, nullptr));
  EXPECT_TRUE(other);
}

TEST_F(ArchiveWriterFiles, APathBeyondAsciiIsWide) {
  { ArchiveWriter writer(L"\x0416\x20AC.vpak", ArchiveMode::kPlain); }
  EXPECT_TRUE(Exists(L"\x0416\x20AC.vpak"));
}

TEST_F(ArchiveWriterFiles, WritingToAFileThatCannotBeOpenedDoesNothing) {
  ArchiveWriter writer(L"missing\\a.vpak", ArchiveMode::kPlain);
  writer.WriteU32(1);
  writer.WriteData([](ArchiveWriter& w) { w.WriteBool(true); });
  EXPECT_EQ(writer.Bytes(), "");
  EXPECT_FALSE(Exists(L"missing"));
}

TEST_F(ArchiveWriterFiles, OnlyTheFirst255CharactersOfThePathCount) {
  std::wstring path;
  while (path.size() < 248) path += L".\\";
  path += L"archive.vpak";
  ASSERT_EQ(path.size(), 260U);
  { ArchiveWriter writer(path, ArchiveMode::kPlain); }
  EXPECT_FALSE(Exists(L"archive.vpak"));
  EXPECT_EQ(test::ReadWhole(L"archive"), kPlainHeader);
}

}  // namespace
}  // namespace ve::file
