#include "core/fixed_text.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace ve {
namespace {

TEST(FixedText, HoldsTheTextAndATerminator) {
  const FixedText<char, 8> text(std::string_view("abcdef", 3));
  EXPECT_STREQ(text.Get(), "abc");
  EXPECT_STREQ(WidePathText(L"a\\b").Get(), L"a\\b");
}

TEST(FixedText, HoldsEmptyText) {
  EXPECT_STREQ(NarrowPathText("").Get(), "");
  EXPECT_STREQ(WidePathText({}).Get(), L"");
}

TEST(FixedText, HoldsExactlyOneCharacterLessThanItsSize) {
  const std::wstring longest(255, L'x');
  EXPECT_EQ(std::wstring(WidePathText(longest).Get()), longest);
  EXPECT_EQ(std::string(NarrowPathText(std::string(255, 'x')).Get()), std::string(255, 'x'));
}

TEST(FixedText, CutsLongerText) {
  EXPECT_EQ(std::wstring(WidePathText(std::wstring(256, L'x')).Get()), std::wstring(255, L'x'));
  EXPECT_EQ(std::string(NarrowPathText(std::string(100'000, 'x')).Get()), std::string(255, 'x'));
}

TEST(FixedText, NeverWritesPastItsEnd) {
  struct {
    std::array<char, 4> before{'#', '#', '#', '#'};
    FixedText<char, 4> text{"abcdefgh"};
    std::array<char, 4> after{'#', '#', '#', '#'};
  } guarded;
  EXPECT_STREQ(guarded.text.Get(), "abc");
  EXPECT_EQ(std::string(guarded.before.data(), 4), "####");
  EXPECT_EQ(std::string(guarded.after.data(), 4), "####");
}

TEST(FixedText, CanBeWrittenInto) {
  FixedText<wchar_t, 8> text(L"abc");
  text.GetWritable()[1] = L'X';
  EXPECT_STREQ(text.Get(), L"aXc");
}

}  // namespace
}  // namespace ve
