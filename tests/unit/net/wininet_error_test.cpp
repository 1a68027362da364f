#include "net/wininet_error.h"

#include "core/windows.h"

#include <wininet.h>

#include <gtest/gtest.h>

#include "support/wininet_text.h"

namespace ve {
namespace {

WinINetErrorText TextOf(DWORD error) {
  SetLastError(error);
  return {};
}

TEST(WinINetError, NoErrorIsEmpty) {
  const WinINetErrorText error = TextOf(ERROR_SUCCESS);
  EXPECT_EQ(error.text, L"");
  EXPECT_EQ(error.code, 0);
}

TEST(WinINetError, KnownErrorsHaveTheWordsOfWinINetWithTheirLineBreak) {
  for (const int code : {ERROR_INTERNET_TIMEOUT, ERROR_INTERNET_UNRECOGNIZED_SCHEME,
                         ERROR_INTERNET_NAME_NOT_RESOLVED, ERROR_INTERNET_CANNOT_CONNECT}) {
    const WinINetErrorText error = TextOf(static_cast<DWORD>(code));
    EXPECT_EQ(error.text, test::WinINetWords(static_cast<DWORD>(code))) << code;
    EXPECT_TRUE(error.text.ends_with(L"\r\n")) << code;
    EXPECT_EQ(error.code, -1) << code;
  }
}

TEST(WinINetError, AnErrorWithoutWordsIsItsSignedNumber) {
  EXPECT_EQ(TextOf(99999).text, L"99999");
  EXPECT_EQ(TextOf(99999).code, -1);
  EXPECT_EQ(TextOf(0xC0000005).text, L"-1073741819");
}

TEST(WinINetError, TheSystemsOwnWordsAreNotUsed) {
  // The system has words for code 87, wininet.dll may have none.
  EXPECT_EQ(TextOf(ERROR_INVALID_PARAMETER).text, test::WinINetWords(ERROR_INVALID_PARAMETER));
}

}  // namespace
}  // namespace ve
