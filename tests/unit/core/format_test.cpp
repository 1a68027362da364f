#include "core/format.h"

#include "core/windows.h"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace ve {
namespace {

TEST(Format, AnEmptyPlaceholderTakesTheNextArgument) {
  EXPECT_EQ(Format("{} and {}", "a", "b"), "a and b");
  EXPECT_EQ(Format(L"{} and {}", L"a", L"b"), L"a and b");
}

TEST(Format, AMissingArgumentIsInvalid) {
  EXPECT_EQ(Format("Error: {}"), "Error: {INVALID}");
  EXPECT_EQ(Format("{}{}", "a"), "a{INVALID}");
  EXPECT_EQ(Format("{2}", "a", "b"), "{INVALID}");
  EXPECT_EQ(Format(L"{}{}", L"a"), L"a{INVALID}");
}

TEST(Format, AnIndexChoosesItsArgumentAndMovesTheCounter) {
  EXPECT_EQ(Format("{1}{0}", "a", "b"), "ba");
  EXPECT_EQ(Format("{1}{}", "a", "b", "c"), "bc");
  EXPECT_EQ(Format("{0}{0}", "a"), "aa");
}

TEST(Format, AnIndexThatCannotBeServedMovesTheCounterToo) {
  EXPECT_EQ(Format("{}{9}{}", "A", "B"), "A{INVALID}{INVALID}");
}

TEST(Format, IndicesWrapInEightBits) {
  EXPECT_EQ(Format("{256}", "a", "b"), "a");
  EXPECT_EQ(Format("{257}", "a", "b"), "b");
  EXPECT_EQ(Format("{-1}", "a", "b", "c", "d"), "{INVALID}");
  EXPECT_EQ(Format("{-1}{}", "a"), "{INVALID}a");
  EXPECT_EQ(Format("{-255}", "a", "b"), "b");
}

TEST(Format, ContentWithoutALeadingNumberIsIndexZero) {
  for (const char* format : {"{abc}", "{x}", "{ 1}", "{+1}", "{-}", "{-x}"}) {
    EXPECT_EQ(Format(format, "x", "y"), "x") << format;
  }
  EXPECT_EQ(Format("{1abc}", "x", "y"), "y");
}

TEST(Format, AnUnclosedBraceIsLiteral) {
  EXPECT_EQ(Format("a{b", "x"), "a{b");
  EXPECT_EQ(Format("a}b", "x"), "a}b");
  EXPECT_EQ(Format("{}{", "x"), "x{");
  EXPECT_EQ(Format("{{}", "x"), "{{}");
}

TEST(Format, BracesNestAndCannotBeEscaped) {
  EXPECT_EQ(Format("{{}}", "x"), "x");
  EXPECT_EQ(Format("{{1}}", "x", "y"), "x");
}

TEST(Format, SurplusArgumentsAreIgnored) { EXPECT_EQ(Format("{}", "a", "b", "c", "d"), "a"); }

TEST(Format, AnEmptyFormatIsEmptyWhateverTheArguments) {
  EXPECT_EQ(Format(""), "");
  EXPECT_EQ(Format("", "a"), "");
  EXPECT_EQ(Format(L"", L"a", L"b", L"c", L"d"), L"");
}

TEST(Format, EmptyArgumentsDoNotUpsetTheEstimate) {
  EXPECT_EQ(Format("{}", ""), "");
  EXPECT_EQ(Format("{}{}", "", ""), "");
  EXPECT_EQ(Format("{}{}{}{}", "", "", "", ""), "");
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
  EXPECT_EQ(Format("{} {} {}", -5, 0U, 18446744073709551615ULL), "-5 0 18446744073709551615");
  EXPECT_EQ(Format("{}", std::numeric_limits<std::int32_t>::min()), "-2147483648");
  EXPECT_EQ(Format("{}", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(Format(L"{} {}", -1, 7U), L"-1 7");
  EXPECT_EQ(Format("{} {}", DWORD{4294967295}, LONG{-2}), "4294967295 -2");
  EXPECT_EQ(Format("{}", std::uint8_t{200}), "200");
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
}

}  // namespace
}  // namespace ve
