#include "core/format.h"

#include "core/windows.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <string_view>

namespace ve {
namespace {

/// Expects what both widths make of a format in ASCII, with these arguments.
template <class... Arguments>
void ExpectBoth(std::string_view expected, std::string_view format, const Arguments&... arguments) {
  EXPECT_EQ(Format(format, arguments...), expected) << format;
  // ASCII arguments are the same in both widths, so only the format needs widening.
  const std::wstring wide(format.begin(), format.end());
  EXPECT_EQ(Format(wide, arguments...), std::wstring(expected.begin(), expected.end())) << format;
}

TEST(Format, AnEmptyPlaceholderTakesTheNextArgument) {
  ExpectBoth("a and b", "{} and {}", "a", "b");
  ExpectBoth("abcd", "{}{}{}{}", "a", "b", "c", "d");
  EXPECT_EQ(Format(L"{} and {}", L"a", L"b"), L"a and b");
}

TEST(Format, AMissingArgumentIsInvalid) {
  ExpectBoth("Error: {INVALID}", "Error: {}");
  ExpectBoth("{INVALID}", "{0}");
  ExpectBoth("a{INVALID}", "{}{}", "a");
  ExpectBoth("{INVALID}", "{2}", "a", "b");
  ExpectBoth("{INVALID}", "{4}", "a", "b", "c", "d");
  ExpectBoth("d{INVALID}", "{3}{}", "a", "b", "c", "d");
}

TEST(Format, AnIndexChoosesItsArgumentAndMovesTheCounter) {
  ExpectBoth("ba", "{1}{0}", "a", "b");
  ExpectBoth("bc", "{1}{}", "a", "b", "c");
  ExpectBoth("bcc", "{1}{}{2}", "a", "b", "c");
  ExpectBoth("aa", "{0}{0}", "a");
  ExpectBoth("b", "{0001}", "a", "b");
}

TEST(Format, AnIndexThatCannotBeServedMovesTheCounterToo) {
  ExpectBoth("A{INVALID}{INVALID}", "{}{9}{}", "A", "B");
}

TEST(Format, IndicesWrapInEightBits) {
  ExpectBoth("a", "{256}", "a", "b");
  ExpectBoth("b", "{257}", "a", "b");
  ExpectBoth("b", "{65537}", "a", "b");
  ExpectBoth("b", "{4294967297}", "a", "b");
  ExpectBoth("b", "{18446744073709551617}", "a", "b");
  ExpectBoth("{INVALID}a", "{255}{}", "a", "b");
}

TEST(Format, ANegativeIndexWrapsInEightBits) {
  ExpectBoth("{INVALID}", "{-1}", "a", "b", "c", "d");
  ExpectBoth("{INVALID}a", "{-1}{}", "a");
  ExpectBoth("b", "{-255}", "a", "b");
  ExpectBoth("a", "{-256}", "a", "b");
  ExpectBoth("a", "{-0}", "a", "b");
  ExpectBoth("a", "{--1}", "a", "b");
}

TEST(Format, ContentWithoutALeadingNumberIsIndexZero) {
  for (const char* format : {"{abc}", "{x}", "{ 1}", "{+1}", "{-}", "{-x}", "{/}", "{:}"}) {
    ExpectBoth("x", format, "x", "y");
  }
  ExpectBoth("y", "{1abc}", "x", "y");
  ExpectBoth("y", "{1 2}", "x", "y");
  ExpectBoth("y", "{1/}", "x", "y");
  ExpectBoth("y", "{1:}", "x", "y");
}

TEST(Format, AUnitWithTheLowByteOfADigitOrSignIsNone) {
  EXPECT_EQ(Format(L"{\x0131}", L"x", L"y"), L"x");        // Low byte "1".
  EXPECT_EQ(Format(L"{1\x0130}", L"x", L"y"), L"y");       // Low byte "0".
  EXPECT_EQ(Format(L"{\xFF11}", L"x", L"y"), L"x");        // A full-width "1".
  EXPECT_EQ(Format(L"{\x012D\x0031}", L"x", L"y"), L"x");  // Low byte "-".
}

TEST(Format, AUnitWithTheLowByteOfABraceIsLiteral) {
  EXPECT_EQ(Format(L"\x017B}", L"x"), L"\x017B}");
  EXPECT_EQ(Format(L"{\x017D", L"x"), L"{\x017D");
  EXPECT_EQ(Format(L"{\x017B}\x017D", L"x"), L"x\x017D");
}

TEST(Format, AnUnclosedBraceIsLiteral) {
  ExpectBoth("a{b", "a{b", "x");
  ExpectBoth("a}b", "a}b", "x");
  ExpectBoth("x{", "{}{", "x");
  ExpectBoth("{{}", "{{}", "x");
  ExpectBoth("x}", "{}}", "x");
  // The whole rest is literal, placeholders in it included.
  ExpectBoth("x{a{}", "{}{a{}", "x", "y");
}

TEST(Format, BracesNestAndCannotBeEscaped) {
  ExpectBoth("x", "{{}}", "x");
  ExpectBoth("x", "{{1}}", "x", "y");
  ExpectBoth("y", "{1{2}}", "x", "y", "z");
  ExpectBoth("xy", "{{{}}}{}", "x", "y");
}

TEST(Format, SurplusArgumentsAreIgnored) {
  ExpectBoth("a", "{}", "a", "b", "c", "d");
  ExpectBoth("no placeholder", "no placeholder", "a");
}

TEST(Format, PlaceholdersInArgumentsStayAsTheyAre) {
  ExpectBoth("{1}{}b", "{}{}{}", "{1}", "{}", "b");
}

TEST(Format, AnEmptyFormatIsEmptyWhateverTheArguments) {
  ExpectBoth("", "");
  ExpectBoth("", "", "a");
  ExpectBoth("", "", "a", "b", "c", "d");
}

TEST(Format, EmptyArgumentsDoNotUpsetTheEstimate) {
  ExpectBoth("", "{}", "");
  ExpectBoth("", "{}{}", "", "");
  ExpectBoth("", "{}{}{}{}", "", "", "", "");
}

template <class Char>
std::size_t CapacityFor(std::size_t characters) {
  std::basic_string<Char> text;
  text.reserve(characters);
  return text.capacity();
}

TEST(Format, ReservesTheEstimateAtOnce) {
  // Room for arguments that are not used comes from nothing but the estimate: one character of
  // format and a thousand of arguments, less three for each argument.
  EXPECT_EQ(Format("x", std::string(400, 'a'), std::string(600, 'b')).capacity(),
            CapacityFor<char>(995));
  EXPECT_EQ(Format(L"x", std::wstring(400, L'a'), std::wstring(600, L'b')).capacity(),
            CapacityFor<wchar_t>(995));
}

TEST(Format, IntegersAreDecimal) {
  ExpectBoth("-5 0 7", "{} {} {}", -5, 0U, 7);
  ExpectBoth("-2147483648 2147483647", "{} {}", std::numeric_limits<std::int32_t>::min(),
             std::numeric_limits<std::int32_t>::max());
  ExpectBoth("4294967295 -2", "{} {}", DWORD{4294967295}, LONG{-2});
  ExpectBoth("18446744073709551615", "{}", std::numeric_limits<std::uint64_t>::max());
  ExpectBoth("-9223372036854775808", "{}", std::numeric_limits<std::int64_t>::min());
  ExpectBoth("200 -100", "{} {}", std::uint8_t{200}, std::int8_t{-100});
}

TEST(Format, ANarrowArgumentIsWidenedBySign) {
  const std::wstring text = Format(L"{}", "\xC3\xA9");
  ASSERT_EQ(text.size(), 2U);
  EXPECT_EQ(text[0], 0xFFC3);
  EXPECT_EQ(text[1], 0xFFA9);
}

TEST(Format, AWideArgumentIsCutToItsLowBytes) {
  EXPECT_EQ(Format("{}", L"\x20AC\x0141"), "\xAC\x41");
  EXPECT_EQ(Format("{}", std::filesystem::path(L"\x0141.txt")), "\x41.txt");
}

TEST(Format, APathIsWideText) {
  EXPECT_EQ(Format(L"<{}>", std::filesystem::path(L"a\\b.txt")), L"<a\\b.txt>");
}

TEST(Format, NulCharactersAreKept) {
  EXPECT_EQ(Format("a{}c", std::string_view("\0b", 2)), std::string("a\0bc", 4));
  EXPECT_EQ(Format(L"a{}c", std::wstring_view(L"\0b", 2)), std::wstring(L"a\0bc", 4));
  EXPECT_EQ(Format(std::string_view("\0{}", 3), "x"), std::string("\0x", 2));
  EXPECT_EQ(Format(std::wstring_view(L"\0{}", 3), L"x"), std::wstring(L"\0x", 2));
}

}  // namespace
}  // namespace ve
