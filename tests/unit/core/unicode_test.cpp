#include "core/unicode.h"

#include "core/windows.h"

#include <array>
#include <gtest/gtest.h>
#include <string>
#include <string_view>

namespace ve {
namespace {

TEST(Unicode, TextIsConvertedBothWays) {
  EXPECT_EQ(ToWide("a\xC3\xA9\xE2\x82\xAC"), L"a\x00E9\x20AC");
  EXPECT_EQ(ToUtf8(L"a\x00E9\x20AC"), "a\xC3\xA9\xE2\x82\xAC");
}

TEST(Unicode, CharactersAboveSixteenBitsArePairs) {
  EXPECT_EQ(ToWide("\xF0\x9F\x8E\xAE"), L"\xD83C\xDFAE");
  EXPECT_EQ(ToUtf8(L"\xD83C\xDFAE"), "\xF0\x9F\x8E\xAE");
}

TEST(Unicode, NulCharactersAreConvertedLikeAnyOther) {
  EXPECT_EQ(ToWide(std::string("a\0b", 3)), std::wstring(L"a\0b", 3));
  EXPECT_EQ(ToUtf8(std::wstring(L"a\0b", 3)), std::string("a\0b", 3));
}

TEST(Unicode, OnlyTheViewIsConverted) {
  EXPECT_EQ(ToWide(std::string_view("abc", 2)), L"ab");
  EXPECT_EQ(ToUtf8(std::wstring_view(L"abc", 2)), "ab");
}

TEST(Unicode, InvalidInputIsNotReported) {
  EXPECT_EQ(ToWide("a\xFF!"), L"a\xFFFD!");
  EXPECT_EQ(ToUtf8(L"a\xD800!"), "a\xEF\xBF\xBD!");
}

TEST(Unicode, AnsiTextIsInTheActiveCodePage) {
  EXPECT_EQ(AnsiToWide("abc"), L"abc");
  EXPECT_EQ(AnsiToWide(std::string_view("a\0bc", 3)), std::wstring(L"a\0b", 3));
  // Neither the byte's own value nor a piece of UTF-8 in any code page that has the character.
  std::array<char, 8> euro{};
  BOOL replaced = FALSE;
  ASSERT_NE(WideCharToMultiByte(CP_ACP, 0, L"\x20AC", -1, euro.data(),
                                static_cast<int>(euro.size()), nullptr, &replaced),
            0);
  if (replaced != FALSE) GTEST_SKIP() << "the active code page has no sign for the euro";
  EXPECT_EQ(AnsiToWide(euro.data()), L"\x20AC");
}

TEST(Unicode, EmptyTextIsEmptyAndKeepsTheLastError) {
  SetLastError(77);
  EXPECT_EQ(ToWide(""), L"");
  EXPECT_EQ(ToUtf8(L""), "");
  EXPECT_EQ(AnsiToWide(""), L"");
  EXPECT_EQ(GetLastError(), 77U);
}

}  // namespace
}  // namespace ve
