#include "updater/manifest_text.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace ve::sdk {
namespace {

using Lines = std::vector<std::string_view>;

std::string Stripped(std::string text) {
  StripCarriageReturns(text);
  return text;
}

Lines LinesOf(std::string_view text) { return SplitLines(text, '\n', EmptyPieces::kDrop); }

TEST(ManifestText, EveryCarriageReturnIsRemoved) {
  EXPECT_EQ(Stripped("a\r\r\nb"), "a\nb");
  EXPECT_EQ(Stripped("lo\rne"), "lone");
  EXPECT_EQ(Stripped("\r\r\r"), "");
  EXPECT_EQ(Stripped("\ra\n\r"), "a\n");
  EXPECT_EQ(Stripped("none"), "none");
}

TEST(ManifestText, WindowsAndUnixLineEndsGiveTheSameLines) {
  const std::string windows = Stripped("A\r\nB\r\n");
  EXPECT_EQ(LinesOf(windows), (Lines{"A", "B"}));
  EXPECT_EQ(LinesOf("A\nB"), (Lines{"A", "B"}));
}

TEST(ManifestText, EmptyLinesAreDroppedEverywhere) {
  EXPECT_EQ(LinesOf("\n\nA\n\n\nB\n\n"), (Lines{"A", "B"}));
}

TEST(ManifestText, LinesAreNotTrimmed) {
  EXPECT_EQ(LinesOf("   "), Lines{"   "});
  EXPECT_EQ(LinesOf(" a \n\tb\t\n"), (Lines{" a ", "\tb\t"}));
}

TEST(ManifestText, ATextWithoutALineFeedIsOneLineOrNone) {
  EXPECT_EQ(LinesOf("A"), Lines{"A"});
  EXPECT_EQ(LinesOf(""), Lines{});
  EXPECT_EQ(LinesOf("\n"), Lines{});
}

TEST(ManifestText, EmptyLinesCanBeKeptButForOneAfterTheLastDelimiter) {
  EXPECT_EQ(SplitLines("\n\nA\n\nB\n", '\n', EmptyPieces::kKeep), (Lines{"", "", "A", "", "B"}));
  EXPECT_EQ(SplitLines("", '\n', EmptyPieces::kKeep), Lines{});
}

TEST(ManifestText, TheDelimiterIsTheCallers) {
  EXPECT_EQ(SplitLines("a,b\nc,,d", ',', EmptyPieces::kDrop), (Lines{"a", "b\nc", "d"}));
}

TEST(ManifestText, LinesAreViewsIntoTheText) {
  const std::string_view text = "one\ntwo";
  EXPECT_EQ(LinesOf(text)[1].data(), text.data() + 4);
}

TEST(ManifestText, NulsAreOrdinaryBytesOfALine) {
  const std::string_view text("a\0b\nc", 5);
  EXPECT_EQ(LinesOf(text), (Lines{std::string_view("a\0b", 3), "c"}));
}

TEST(ManifestText, AKeyEndsAtTheFirstSeparator) {
  const auto [key, value] = SplitKeyValue("Version: 7: x", ": ");
  EXPECT_EQ(key, "Version");
  EXPECT_EQ(value, "7: x");
  EXPECT_EQ(ReadDecimal<std::uint32_t>(value), 7U);
}

TEST(ManifestText, TheSeparatorIncludesItsBlank) {
  const auto [key, value] = SplitKeyValue("Version:7", ": ");
  EXPECT_EQ(key, "Version:7");
  EXPECT_EQ(value, "");
}

TEST(ManifestText, AKeyMayHaveNoValue) {
  const auto [key, value] = SplitKeyValue("Version: ", ": ");
  EXPECT_EQ(key, "Version");
  EXPECT_EQ(value, "");
  EXPECT_EQ(ReadDecimal<std::uint32_t>(value), 0U);
}

TEST(ManifestText, ASecondBlankBelongsToTheValue) {
  const auto [key, value] = SplitKeyValue("Version:  7", ": ");
  EXPECT_EQ(key, "Version");
  EXPECT_EQ(value, " 7");
  EXPECT_EQ(ReadDecimal<std::uint32_t>(value), 0U);
}

TEST(ManifestText, PartOfASeparatorBelongsToTheKey) {
  const auto [key, value] = SplitKeyValue("a:b: c", ": ");
  EXPECT_EQ(key, "a:b");
  EXPECT_EQ(value, "c");
}

TEST(ManifestText, KeysAreNotTrimmed) {
  EXPECT_EQ(SplitKeyValue("FileVersion : 1", ": ").key, "FileVersion ");
  EXPECT_EQ(SplitKeyValue(" FileVersion: 1", ": ").key, " FileVersion");
}

TEST(ManifestText, AKeyMayBeEmpty) {
  const auto [key, value] = SplitKeyValue(": 1", ": ");
  EXPECT_EQ(key, "");
  EXPECT_EQ(value, "1");
}

TEST(ManifestText, ASeparatorThatIsCutOffIsNone) {
  EXPECT_EQ(SplitKeyValue("Version:", ": ").key, "Version:");
  EXPECT_EQ(SplitKeyValue("", ": ").key, "");
}

TEST(ManifestText, ABlankSeparatesByTheSameRules) {
  const auto [key, value] = SplitKeyValue("12 abc def", " ");
  EXPECT_EQ(key, "12");
  EXPECT_EQ(value, "abc def");
}

TEST(ManifestText, ANumberEndsAtTheFirstOtherByte) {
  EXPECT_EQ(ReadDecimal<std::uint32_t>("6abc"), 6U);
  EXPECT_EQ(ReadDecimal<std::uint32_t>("12 34"), 12U);
  EXPECT_EQ(ReadDecimal<std::uint32_t>("0x10"), 0U);
  EXPECT_EQ(ReadDecimal<std::uint32_t>("007"), 7U);
  EXPECT_EQ(ReadDecimal<std::uint32_t>("1-2"), 1U);
}

TEST(ManifestText, WhatIsNoNumberReadsAsZero) {
  for (const std::string_view text : {"", "abc", "+1", " 1", "-", "--1", "- 1", "-x", "/", ":"}) {
    EXPECT_EQ(ReadDecimal<std::uint32_t>(text), 0U) << text;
    EXPECT_EQ(ReadDecimal<std::int32_t>(text), 0) << text;
    EXPECT_EQ(ReadDecimal<std::uint64_t>(text), 0U) << text;
  }
}

TEST(ManifestText, AMinusNegatesInTheWidthOfTheNumber) {
  EXPECT_EQ(ReadDecimal<std::uint32_t>("-1"), 4294967295U);
  EXPECT_EQ(ReadDecimal<std::int32_t>("-1"), -1);
  EXPECT_EQ(ReadDecimal<std::uint64_t>("-5"), 18446744073709551611ULL);
}

TEST(ManifestText, OverflowWrapsInTheWidthOfTheNumber) {
  EXPECT_EQ(ReadDecimal<std::uint32_t>("4294967295"), 4294967295U);
  EXPECT_EQ(ReadDecimal<std::uint32_t>("4294967297"), 1U);
  EXPECT_EQ(ReadDecimal<std::int32_t>("4294967297"), 1);
  EXPECT_EQ(ReadDecimal<std::int32_t>("2147483648"), INT32_MIN);
  EXPECT_EQ(ReadDecimal<std::int32_t>("-2147483648"), INT32_MIN);
  EXPECT_EQ(ReadDecimal<std::int32_t>("-4294967295"), 1);
  EXPECT_EQ(ReadDecimal<std::uint64_t>("4294967297"), 4294967297ULL);
  EXPECT_EQ(ReadDecimal<std::uint64_t>("18446744073709551615"), 18446744073709551615ULL);
  EXPECT_EQ(ReadDecimal<std::uint64_t>("18446744073709551618"), 2U);
}

}  // namespace
}  // namespace ve::sdk
