#include "core/truncated_string.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace ve {
namespace {

TEST(TruncatedString, HoldsTheTextAndATerminator) {
  const TruncatedString<char, 8> text(std::string_view("abcdef", 3));
  EXPECT_STREQ(text.Get(), "abc");
  EXPECT_STREQ(WidePath(L"a\\b").Get(), L"a\\b");
}

TEST(TruncatedString, HoldsEmptyText) {
  EXPECT_STREQ(NarrowPath("").Get(), "");
  EXPECT_STREQ(WidePath({}).Get(), L"");
}

TEST(TruncatedString, HoldsExactlyOneCharacterLessThanItsSize) {
  const std::wstring longest(255, L'x');
  EXPECT_EQ(std::wstring(WidePath(longest).Get()), longest);
  EXPECT_EQ(std::string(NarrowPath(std::string(255, 'x')).Get()), std::string(255, 'x'));
}

TEST(TruncatedString, CutsLongerText) {
  EXPECT_EQ(std::wstring(WidePath(std::wstring(256, L'x')).Get()), std::wstring(255, L'x'));
  EXPECT_EQ(std::string(NarrowPath(std::string(100'000, 'x')).Get()), std::string(255, 'x'));
}

TEST(TruncatedString, NeverWritesPastItsEnd) {
  struct {
    std::array<char, 4> before{'#', '#', '#', '#'};
    TruncatedString<char, 4> text{"abcdefgh"};
    std::array<char, 4> after{'#', '#', '#', '#'};
  } guarded;
  EXPECT_STREQ(guarded.text.Get(), "abc");
  EXPECT_EQ(std::string(guarded.before.data(), 4), "####");
  EXPECT_EQ(std::string(guarded.after.data(), 4), "####");
}

TEST(TruncatedString, CanBeWrittenInto) {
  TruncatedString<wchar_t, 8> text(L"abc");
  text.GetWritable()[1] = L'X';
  EXPECT_STREQ(text.Get(), L"aXc");
}

}  // namespace
}  // namespace ve
