#include "core/windows_error.h"

#include <gtest/gtest.h>
#include <string>

#include "core/unicode.h"
#include "support/system_text.h"

namespace ve {
namespace {

std::string TextOf(DWORD code) {
  SetLastError(code);
  return ToUtf8(WindowsErrorText());
}

TEST(WindowsError, NoErrorHasNoText) { EXPECT_EQ(TextOf(0), ""); }

TEST(WindowsError, TheTextIsTheSystemsWithItsLineBreak) {
  EXPECT_EQ(TextOf(ERROR_FILE_NOT_FOUND), test::SystemText(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(TextOf(ERROR_ACCESS_DENIED), test::SystemText(ERROR_ACCESS_DENIED));
  EXPECT_NE(TextOf(ERROR_ACCESS_DENIED), TextOf(ERROR_FILE_NOT_FOUND));
  EXPECT_TRUE(TextOf(ERROR_FILE_NOT_FOUND).ends_with(".\r\n"));
}

TEST(WindowsError, InsertsStayAsTheyAre) {
  // "%1 is not a valid Win32 application", or how the system words it: nothing takes the place.
  EXPECT_EQ(TextOf(ERROR_BAD_EXE_FORMAT), test::SystemText(ERROR_BAD_EXE_FORMAT));
}

TEST(WindowsError, ACodeWithoutWordsIsASignedNumber) {
  EXPECT_EQ(TextOf(99999), "99999");
  EXPECT_EQ(TextOf(0xFFFF1234), "-60876");
  EXPECT_EQ(TextOf(0x80000000 | 0x2FFFFFFF), "-1342177281");
}

TEST(WindowsError, AModulesTableIsAskedOnRequest) {
  // 12007, a host name that cannot be resolved, stands in this module's table only.
  const HMODULE wininet = LoadLibraryW(L"wininet.dll");
  ASSERT_NE(wininet, nullptr);
  const std::wstring text = MessageTableText(12007, FORMAT_MESSAGE_FROM_HMODULE, wininet);
  EXPECT_TRUE(text.ends_with(L"\r\n")) << ToUtf8(text);
  EXPECT_EQ(MessageTableText(12007, FORMAT_MESSAGE_FROM_SYSTEM, nullptr), L"12007");
  FreeLibrary(wininet);
  // This program has no message table.
  EXPECT_EQ(MessageTableText(ERROR_FILE_NOT_FOUND, FORMAT_MESSAGE_FROM_HMODULE,
                             GetModuleHandleW(nullptr)),
            L"2");
}

}  // namespace
}  // namespace ve
