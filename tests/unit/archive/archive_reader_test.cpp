#include "archive/archive_reader.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <span>
#include <string>
#include <string_view>

#include "core/errors.h"
#include "support/archive_bytes.h"
#include "support/thrown_message.h"

namespace ve::file {
namespace {

using namespace std::string_literals;
using test::CheckedString;
using test::CheckedU32;
using test::CheckedWide;
using test::kCheckedHeader;
using test::kPlainHeader;
using test::PlainString;
using test::PlainWide;
using test::U32;
using test::U64;

/// What reading from an archive with these bytes throws.
std::string FileError(
    const std::string& bytes,
    const std::function<void(ArchiveReader&)>& read = [](ArchiveReader&) {}) {
  return test::ThrownMessage<FileException>([&] {
    ArchiveReader reader(bytes);
    read(reader);
  });
}

const std::string kSixteen = "0123456789abcdef";

std::string Text(const ArchiveReader::Block16& block) {
  return {reinterpret_cast<const char*>(block.data()), block.size()};
}
std::string Text(std::span<const std::byte> data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

TEST(ArchiveReader, AFileOfFewerThanFourBytesHasTheHeaderZero) {
  EXPECT_EQ(FileError(""), "Invalid header 0 for binary file.");
  EXPECT_EQ(FileError("\xA1"), "Invalid header 0 for binary file.");
  EXPECT_EQ(FileError("\xA1\xFC\x26"), "Invalid header 0 for binary file.");
}

TEST(ArchiveReader, AWrongMagicIsNamedInDecimal) {
  EXPECT_EQ(FileError("\xA2\xFC\x26\x61\1\0\0\0\0"s), "Invalid header 1629944994 for binary file.");
  EXPECT_EQ(FileError("\xFF\xFF\xFF\xFF\1\0\0\0\0"s), "Invalid header 4294967295 for binary file.");
}

TEST(ArchiveReader, AnotherVersionThanOneIsRejected) {
  EXPECT_EQ(FileError("\xA1\xFC\x26\x61\2\0\0\0\0"s),
            "Invalid version 2 for binary file (supported: 1).");
  EXPECT_EQ(FileError("\xA1\xFC\x26\x61\0\0\0\0\0"s),
            "Invalid version 0 for binary file (supported: 1).");
}

TEST(ArchiveReader, AMissingOrCutVersionIsZero) {
  EXPECT_EQ(FileError("\xA1\xFC\x26\x61"), "Invalid version 0 for binary file (supported: 1).");
  EXPECT_EQ(FileError("\xA1\xFC\x26\x61\1\0\0"s),
            "Invalid version 0 for binary file (supported: 1).");
}

TEST(ArchiveReader, WithoutACheckedByteTheArchiveIsPlain) {
  const std::string bytes = kPlainHeader.substr(0, 8);
  EXPECT_EQ(ArchiveReader(bytes).Mode(), ArchiveMode::kPlain);
}

TEST(ArchiveReader, AnyCheckedByteButZeroMeansChecked) {
  EXPECT_EQ(ArchiveReader(kPlainHeader).Mode(), ArchiveMode::kPlain);
  EXPECT_EQ(ArchiveReader(kCheckedHeader).Mode(), ArchiveMode::kChecked);
  for (const char mode : {'\x02', '\x7F', '\x80', '\xFF'}) {
    const std::string bytes = kPlainHeader.substr(0, 8) + mode;
    EXPECT_EQ(ArchiveReader(bytes).Mode(), ArchiveMode::kChecked) << int{mode};
  }
}

TEST(ArchiveReader, PlainValuesFollowEachOtherByteByByte) {
  const std::string bytes = kPlainHeader + "\x04\x03\x02\x01"s + "\x01\x00\x80"s + kSixteen +
                            PlainString("ab") + PlainWide(L"x\x20AC") + PlainString("raw") +
                            U64(0x8000000000000001) + U32(7);
  ArchiveReader reader(bytes);
  EXPECT_EQ(reader.ReadU32(), 0x01020304U);
  EXPECT_TRUE(reader.ReadBool());
  EXPECT_FALSE(reader.ReadBool());
  EXPECT_TRUE(reader.ReadBool());
  EXPECT_EQ(Text(reader.ReadBlock16()), kSixteen);
  EXPECT_EQ(reader.ReadString(), "ab");
  EXPECT_TRUE(reader.ReadWideString() == L"x\x20AC");
  EXPECT_EQ(Text(reader.ReadData()), "raw");
  EXPECT_EQ(reader.ReadTime(), -9223372036854775807);
  EXPECT_EQ(reader.ReadU32(), 7U);
}

TEST(ArchiveReader, CheckedValuesCarryIdentifiersAndWidths) {
  const std::string bytes = kCheckedHeader + CheckedU32(0x01020304) + "\x01\x00"s + U32(16) +
                            kSixteen + CheckedString("ab") + CheckedWide(L"x\x20AC") +
                            "\x33\x89\xDE\xC4" + U32(4) + PlainString("raw") + "\x7B\x72\x7E\x82" +
                            U64(5) + CheckedU32(7);
  ArchiveReader reader(bytes);
  EXPECT_EQ(reader.ReadU32(), 0x01020304U);
  EXPECT_TRUE(reader.ReadBool());
  EXPECT_FALSE(reader.ReadBool());
  EXPECT_EQ(Text(reader.ReadBlock16()), kSixteen);
  EXPECT_EQ(reader.ReadString(), "ab");
  EXPECT_TRUE(reader.ReadWideString() == L"x\x20AC");
  EXPECT_EQ(Text(reader.ReadData()), "raw");
  EXPECT_EQ(reader.ReadTime(), 5);
  EXPECT_EQ(reader.ReadU32(), 7U);
}

TEST(ArchiveReader, CheckedCompoundsFollowTheirIdentifiers) {
  const std::string bytes = kCheckedHeader + "\x39\xDF\x10\x37\x03" + "\x6E\x1F\x0D\x4E" +
                            "\xA1\x9C\x10\x5D" + "\xAB\x9B\xE5\x1A" + "\xA7\xAA\x81\x25" +
                            CheckedU32(7);
  ArchiveReader reader(bytes);
  reader.ExpectTuple(3);
  reader.ExpectArray();
  reader.ExpectPair();
  reader.ExpectMap();
  reader.ExpectSet();
  EXPECT_EQ(reader.ReadU32(), 7U);
}

TEST(ArchiveReader, PlainCompoundsHaveNothingInFront) {
  const std::string bytes = kPlainHeader + U32(7);
  ArchiveReader reader(bytes);
  reader.ExpectTuple(3);
  reader.ExpectArray();
  reader.ExpectPair();
  reader.ExpectMap();
  reader.ExpectSet();
  EXPECT_EQ(reader.ReadU32(), 7U);
}

TEST(ArchiveReader, AWideStringIsRejectedAsAString) {
  EXPECT_EQ(FileError(kCheckedHeader + CheckedWide(L"ab"), [](auto& r) { r.ReadString(); }),
            "Invalid string-identifier 793148466 (was expecting 793518264).");
}

TEST(ArchiveReader, EveryIdentifierHasItsMessage) {
  const std::string bytes = kCheckedHeader + U32(9) + std::string(32, '\0');
  EXPECT_EQ(FileError(bytes, [](auto& r) { r.ReadString(); }),
            "Invalid string-identifier 9 (was expecting 793518264).");
  EXPECT_EQ(FileError(bytes, [](auto& r) { r.ReadWideString(); }),
            "Invalid wstring-identifier 9 (was expecting 793148466).");
  EXPECT_EQ(FileError(bytes, [](auto& r) { r.ReadData(); }),
            "Invalid data-identifier 9 (was expecting 3302918451).");
  EXPECT_EQ(FileError(bytes, [](auto& r) { r.ExpectArray(); }),
            "Invalid array-identifier 9 (was expecting 1309482862).");
  EXPECT_EQ(FileError(bytes, [](auto& r) { r.ExpectTuple(0); }),
            "Invalid tuple-identifier 9 (was expecting 923852601).");
  EXPECT_EQ(FileError(bytes, [](auto& r) { r.ReadTime(); }),
            "Invalid system-time-identifier 9 (was expecting 2189324923).");
  EXPECT_EQ(FileError(bytes, [](auto& r) { r.ExpectMap(); }),
            "Invalid map-identifier 9 (was expecting 451255211).");
  EXPECT_EQ(FileError(bytes, [](auto& r) { r.ExpectPair(); }),
            "Invalid pair-identifier 9 (was expecting 1561369761).");
  EXPECT_EQ(FileError(bytes, [](auto& r) { r.ExpectSet(); }),
            "Invalid set-identifier 9 (was expecting 629254823).");
}

TEST(ArchiveReader, IdentifiersAreUnsignedInMessages) {
  EXPECT_EQ(FileError(kCheckedHeader + "\xFF\xFF\xFF\xFF", [](auto& r) { r.ReadData(); }),
            "Invalid data-identifier 4294967295 (was expecting 3302918451).");
}

TEST(ArchiveReader, AMissingIdentifierIsZero) {
  EXPECT_EQ(FileError(kCheckedHeader, [](auto& r) { r.ReadString(); }),
            "Invalid string-identifier 0 (was expecting 793518264).");
  EXPECT_EQ(FileError(kCheckedHeader + "\x7B\x72\x7E", [](auto& r) { r.ReadTime(); }),
            "Invalid system-time-identifier 0 (was expecting 2189324923).");
}

TEST(ArchiveReader, ATupleOfAnotherSizeIsRejected) {
  const std::string bytes = kCheckedHeader + "\x39\xDF\x10\x37\xC8";
  EXPECT_EQ(FileError(bytes, [](auto& r) { r.ExpectTuple(3); }),
            "Invalid size of tuple 200 (was expecting 3).");
  EXPECT_EQ(FileError(kCheckedHeader + "\x39\xDF\x10\x37\x02", [](auto& r) { r.ExpectTuple(3); }),
            "Invalid size of tuple 2 (was expecting 3).");
}

TEST(ArchiveReader, ATupleWithoutItsSizeHasTheSizeZero) {
  EXPECT_EQ(FileError(kCheckedHeader + "\x39\xDF\x10\x37", [](auto& r) { r.ExpectTuple(3); }),
            "Invalid size of tuple 0 (was expecting 3).");
}

TEST(ArchiveReader, AWrongWidthIsRejectedForEveryScalar) {
  const auto u32 = [](ArchiveReader& r) { r.ReadU32(); };
  EXPECT_EQ(FileError(kCheckedHeader + U32(8) + U32(1), u32),
            "Invalid debug-size for type. Was 8, expected 4.");
  EXPECT_EQ(FileError(kCheckedHeader + U32(4) + kSixteen, [](auto& r) { r.ReadBlock16(); }),
            "Invalid debug-size for type. Was 4, expected 16.");
  EXPECT_EQ(FileError(kCheckedHeader + "\xB8\x20\x4C\x2F" + U32(1) + U32(0),
                      [](auto& r) { r.ReadString(); }),
            "Invalid debug-size for type. Was 1, expected 4.");
  EXPECT_EQ(FileError(kCheckedHeader + "\x32\x7C\x46\x2F" + U32(2) + U32(0),
                      [](auto& r) { r.ReadWideString(); }),
            "Invalid debug-size for type. Was 2, expected 4.");
  EXPECT_EQ(FileError(kCheckedHeader + "\x33\x89\xDE\xC4" + U32(4294967295) + U32(0),
                      [](auto& r) { r.ReadData(); }),
            "Invalid debug-size for type. Was 4294967295, expected 4.");
}

TEST(ArchiveReader, AShortWidthIsZero) {
  EXPECT_EQ(FileError(kCheckedHeader + "\x04\x00\x00"s, [](auto& r) { r.ReadU32(); }),
            "Invalid debug-size for type. Was 0, expected 4.");
}

TEST(ArchiveReader, AShortScalarIsZeroAndNothingIsLeft) {
  const std::string bytes = kPlainHeader + "\x01\x02\x03";
  ArchiveReader reader(bytes);
  EXPECT_EQ(reader.ReadU32(), 0U);
  EXPECT_FALSE(reader.ReadBool());
}

TEST(ArchiveReader, ABlockWithEightBytesLeftIsAllZero) {
  const std::string bytes = kPlainHeader + "12345678";
  ArchiveReader reader(bytes);
  EXPECT_EQ(Text(reader.ReadBlock16()), std::string(16, '\0'));
  EXPECT_FALSE(reader.ReadBool());
}

TEST(ArchiveReader, AShortTimeIsZero) {
  const std::string bytes = kPlainHeader + "1234567";
  ArchiveReader reader(bytes);
  EXPECT_EQ(reader.ReadTime(), 0);
  EXPECT_FALSE(reader.ReadBool());
}

TEST(ArchiveReader, EveryReadAtTheEndGivesZero) {
  ArchiveReader reader(kPlainHeader);
  for (int again = 0; again < 3; ++again) {
    EXPECT_EQ(reader.ReadU32(), 0U);
    EXPECT_FALSE(reader.ReadBool());
    EXPECT_TRUE(reader.ReadString().empty());
    EXPECT_TRUE(reader.ReadWideString().empty());
    EXPECT_TRUE(reader.ReadData().empty());
    EXPECT_EQ(reader.ReadTime(), 0);
  }
}

TEST(ArchiveReader, AStringLongerThanTheRestIsEmptyAndTheNextReadFollowsItsLength) {
  const std::string bytes = kPlainHeader + U32(5) + "\x0A\x00\x00\x00"s;
  ArchiveReader strings(bytes);
  EXPECT_EQ(strings.ReadString(), "");
  EXPECT_EQ(strings.ReadU32(), 10U);
  ArchiveReader data(bytes);
  EXPECT_TRUE(data.ReadData().empty());
  EXPECT_EQ(data.ReadU32(), 10U);
}

TEST(ArchiveReader, AWideStringLongerThanTheRestIsEmptyAndTheNextReadFollowsItsLength) {
  const std::string bytes = kPlainHeader + U32(3) + "\x0A\x00\x00\x00\x00"s;
  ArchiveReader reader(bytes);
  EXPECT_TRUE(reader.ReadWideString().empty());
  EXPECT_EQ(reader.ReadU32(), 10U);
}

TEST(ArchiveReader, TheLargestLengthIsLongerThanTheRest) {
  const std::string bytes = kPlainHeader + U32(0xFFFFFFFF) + U32(10);
  ArchiveReader strings(bytes);
  EXPECT_EQ(strings.ReadString(), "");
  EXPECT_EQ(strings.ReadU32(), 10U);
  ArchiveReader wide(bytes);
  EXPECT_TRUE(wide.ReadWideString().empty());
  EXPECT_EQ(wide.ReadU32(), 10U);
}

TEST(ArchiveReader, TextMayEndExactlyWithTheArchive) {
  const std::string narrow = kPlainHeader + PlainString("end");
  EXPECT_EQ(ArchiveReader(narrow).ReadString(), "end");
  const std::string wide = kPlainHeader + PlainWide(L"end");
  EXPECT_TRUE(ArchiveReader(wide).ReadWideString() == L"end");
}

TEST(ArchiveReader, TheByteCountOfAWideStringWrapsInThirtyTwoBits) {
  const std::string none = kPlainHeader + U32(0x80000000) + U32(10);
  ArchiveReader empty(none);
  EXPECT_TRUE(empty.ReadWideString().empty());
  EXPECT_EQ(empty.ReadU32(), 10U);
  const std::string one = kPlainHeader + U32(0x80000001) + "a\0"s + U32(10);
  ArchiveReader single(one);
  EXPECT_TRUE(single.ReadWideString() == L"a");
  EXPECT_EQ(single.ReadU32(), 10U);
}

TEST(ArchiveReader, AnEmptyStringIsFollowedByTheNextValue) {
  const std::string bytes = kPlainHeader + U32(0) + U32(0) + U32(0) + U32(10);
  ArchiveReader reader(bytes);
  EXPECT_EQ(reader.ReadString(), "");
  EXPECT_TRUE(reader.ReadWideString().empty());
  EXPECT_TRUE(reader.ReadData().empty());
  EXPECT_EQ(reader.ReadU32(), 10U);
}

TEST(ArchiveReader, TextIsAViewIntoTheArchive) {
  const std::string bytes = kPlainHeader + PlainString("ab") + PlainWide(L"c") + PlainString("d");
  ArchiveReader reader(bytes);
  EXPECT_EQ(reader.ReadString().data(), bytes.data() + 13);
  EXPECT_EQ(static_cast<const void*>(reader.ReadWideString().data()), bytes.data() + 19);
  EXPECT_EQ(static_cast<const void*>(reader.ReadData().data()), bytes.data() + 25);
}

TEST(ArchiveReader, NulsAreOrdinaryCharacters) {
  const std::string bytes = kPlainHeader + PlainString("a\0b"s) + PlainWide(L"\0x"s);
  ArchiveReader reader(bytes);
  EXPECT_EQ(reader.ReadString(), "a\0b"s);
  EXPECT_TRUE(reader.ReadWideString() == L"\0x"s);
}

TEST(ArchiveReader, ASpanOfBytesReadsLikeText) {
  const std::string bytes = kPlainHeader + U32(7);
  ArchiveReader reader(std::as_bytes(std::span(bytes)));
  EXPECT_EQ(reader.ReadU32(), 7U);
}

}  // namespace
}  // namespace ve::file
