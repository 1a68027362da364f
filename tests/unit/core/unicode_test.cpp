#include "core/unicode.h"

#include "core/windows.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "support/replaced_call.h"

extern "C" {
extern void* VE_IMPORTED(MultiByteToWideChar);
extern void* VE_IMPORTED(WideCharToMultiByte);
}

namespace ve {
namespace {

using testing::ElementsAre;

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
  // In every code page that has it, the euro's byte differs from its code and from its UTF-8.
  std::array<char, 8> euro{};
  BOOL replaced = FALSE;
  ASSERT_NE(WideCharToMultiByte(CP_ACP, 0, L"\x20AC", -1, euro.data(),
                                static_cast<int>(euro.size()), nullptr, &replaced),
            0);
  if (replaced != FALSE) GTEST_SKIP() << "the active code page has no sign for the euro";
  EXPECT_EQ(AnsiToWide(euro.data()), L"\x20AC");
}

/// Code page, flags, length of the input, room for the output.
using Conversion = std::tuple<UINT, DWORD, int, int>;

TEST(Unicode, WideningAsksForTheLengthThenForTheText) {
  static std::vector<Conversion> recorded;
  recorded.clear();
  const test::ReplacedCall recording(
      VE_IMPORTED(MultiByteToWideChar),
      +[](UINT codePage, DWORD flags, const char*, int length, wchar_t* out, int room) -> int {
        recorded.emplace_back(codePage, flags, length, room);
        if (out != nullptr) std::wstring_view(L"xy").copy(out, 2);
        return 2;
      });
  EXPECT_EQ(ToWide("abc"), L"xy");
  EXPECT_EQ(AnsiToWide("abc"), L"xy");
  EXPECT_THAT(recorded, ElementsAre(Conversion(65001, 0, 3, 0), Conversion(65001, 0, 3, 2),
                                    Conversion(CP_ACP, 0, 3, 0), Conversion(CP_ACP, 0, 3, 2)));
}

TEST(Unicode, NarrowingAsksForTheLengthThenForTheTextWithoutADefaultCharacter) {
  static std::vector<Conversion> recorded;
  recorded.clear();
  const test::ReplacedCall recording(
      VE_IMPORTED(WideCharToMultiByte),
      +[](UINT codePage, DWORD flags, const wchar_t*, int length, char* out, int room,
          const char* replacement, BOOL* replaced) -> int {
        recorded.emplace_back(codePage, flags, length, room);
        EXPECT_EQ(replacement, nullptr);
        EXPECT_EQ(replaced, nullptr);
        if (out != nullptr) std::string_view("xy").copy(out, 2);
        return 2;
      });
  EXPECT_EQ(ToUtf8(L"abc"), "xy");
  EXPECT_THAT(recorded, ElementsAre(Conversion(65001, 0, 3, 0), Conversion(65001, 0, 3, 2)));
}

TEST(Unicode, AFailedConversionIsEmpty) {
  const test::ReplacedCall widening(
      VE_IMPORTED(MultiByteToWideChar),
      +[](UINT, DWORD, const char*, int, wchar_t*, int) -> int { return 0; });
  const test::ReplacedCall narrowing(
      VE_IMPORTED(WideCharToMultiByte),
      +[](UINT, DWORD, const wchar_t*, int, char*, int, const char*, BOOL*) -> int { return 0; });
  EXPECT_EQ(ToWide("abc"), L"");
  EXPECT_EQ(AnsiToWide("abc"), L"");
  EXPECT_EQ(ToUtf8(L"abc"), "");
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
