#include "core/windows_error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "core/unicode.h"
#include "support/format_message_recorder.h"
#include "support/system_text.h"

namespace ve {
namespace {

std::string TextOf(DWORD code) {
  SetLastError(code);
  return ToUtf8(WindowsErrorText());
}

TEST(WindowsError, NoErrorHasNoText) { EXPECT_EQ(TextOf(0), ""); }

TEST(WindowsError, TheTextIsThatOfTheSystemWithItsLineBreak) {
  EXPECT_EQ(TextOf(ERROR_FILE_NOT_FOUND), test::SystemText(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(TextOf(ERROR_ACCESS_DENIED), test::SystemText(ERROR_ACCESS_DENIED));
  EXPECT_NE(TextOf(ERROR_ACCESS_DENIED), TextOf(ERROR_FILE_NOT_FOUND));
  EXPECT_TRUE(TextOf(ERROR_FILE_NOT_FOUND).ends_with(".\r\n"));
}

TEST(WindowsError, InsertsStayAsTheyAre) {
  // "%1 is not a valid Win32 application", or how the system words it: %1 is not replaced.
  EXPECT_EQ(TextOf(ERROR_BAD_EXE_FORMAT), test::SystemText(ERROR_BAD_EXE_FORMAT));
}

TEST(WindowsError, ACodeWithoutATextIsASignedNumber) {
  EXPECT_EQ(TextOf(99999), "99999");
  EXPECT_EQ(TextOf(0xFFFF1234), "-60876");
  EXPECT_EQ(TextOf(0x80000000 | 0x2FFFFFFF), "-1342177281");
}

TEST(WindowsError, TheSystemIsAskedInTheNeutralLanguageAndItsBufferFreed) {
  const test::FormatMessageRecorder recorder;
  SetLastError(0x80004005);
  EXPECT_EQ(WindowsErrorText(), test::FormatMessageRecorder::kText);
  // From the system (0x1000), into a buffer of the system's (0x100), inserts ignored (0x200).
  EXPECT_THAT(recorder.Recorded(), testing::ElementsAre(test::FormatMessageRecorder::Arguments{
                                       0x1300, nullptr, 0x80004005, 0x400, true, false}));
  EXPECT_EQ(recorder.TimesFreed(), 1);
}

TEST(WindowsError, AModuleIsAskedWithTheCallersFlagsAndSource) {
  const test::FormatMessageRecorder recorder;
  const HMODULE module = GetModuleHandleW(nullptr);
  EXPECT_EQ(MessageTableText(12007, FORMAT_MESSAGE_FROM_HMODULE, module),
            test::FormatMessageRecorder::kText);
  EXPECT_THAT(recorder.Recorded(), testing::ElementsAre(test::FormatMessageRecorder::Arguments{
                                       0xB00, module, 12007, 0x400, true, false}));
  EXPECT_EQ(recorder.TimesFreed(), 1);
}

TEST(WindowsError, WithoutATextNothingIsFreed) {
  const test::FormatMessageRecorder recorder(false);
  SetLastError(99999);
  EXPECT_EQ(WindowsErrorText(), L"99999");
  EXPECT_EQ(recorder.TimesFreed(), 0);
}

TEST(WindowsError, WithoutAnErrorTheSystemIsNotAsked) {
  const test::FormatMessageRecorder recorder;
  SetLastError(ERROR_SUCCESS);
  EXPECT_EQ(WindowsErrorText(), L"");
  EXPECT_TRUE(recorder.Recorded().empty());
}

TEST(WindowsError, AModulesTableHasItsOwnCodes) {
  // 12007, a host name that cannot be resolved, is in this module's table only.
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
