#include "net/wininet_error.h"

#include "core/windows.h"

#include <wininet.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

#include "support/format_message_recorder.h"
#include "support/replaced_call.h"
#include "support/wininet_text.h"

extern "C" void* VE_IMPORTED(InternetGetLastResponseInfoW);

namespace ve {
namespace {

/// Answers for the server's last response, which Wine never has, while it exists.
class LastResponse {
 public:
  /// Without a text, the second call fails.
  explicit LastResponse(std::optional<std::wstring> text) {
    text_ = std::move(text);
    sizes_.clear();
  }

  /// The size of the buffer in each call, 0 for none.
  [[nodiscard]] static const std::vector<DWORD>& BufferSizes() { return sizes_; }

 private:
  static constexpr DWORD kAnnounced = 4;

  static BOOL WINAPI Get(DWORD* error, wchar_t* buffer, DWORD* length) {
    *error = 0;
    sizes_.push_back(buffer == nullptr ? 0 : *length);
    if (buffer == nullptr) {
      *length = kAnnounced;
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return FALSE;
    }
    if (!text_) {
      SetLastError(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
    *length = static_cast<DWORD>(text_->copy(buffer, *length));
    return TRUE;
  }

  inline static std::optional<std::wstring> text_;
  inline static std::vector<DWORD> sizes_;
  test::ReplacedCall call_{VE_IMPORTED(InternetGetLastResponseInfoW), &Get};
};

WinINetErrorText TextOf(DWORD error) {
  SetLastError(error);
  return {};
}

TEST(WinINetError, NoErrorIsEmpty) {
  const WinINetErrorText error = TextOf(ERROR_SUCCESS);
  EXPECT_EQ(error.text, L"");
  EXPECT_EQ(error.code, 0);
}

TEST(WinINetError, KnownErrorsHaveTheTextOfWinINetWithItsLineBreak) {
  for (const int code : {ERROR_INTERNET_TIMEOUT, ERROR_INTERNET_UNRECOGNIZED_SCHEME,
                         ERROR_INTERNET_NAME_NOT_RESOLVED, ERROR_INTERNET_CANNOT_CONNECT}) {
    const WinINetErrorText error = TextOf(static_cast<DWORD>(code));
    EXPECT_EQ(error.text, test::WinINetWords(static_cast<DWORD>(code))) << code;
    EXPECT_TRUE(error.text.ends_with(L"\r\n")) << code;
    EXPECT_EQ(error.code, -1) << code;
  }
}

TEST(WinINetError, AnErrorWithoutATextIsItsSignedNumber) {
  EXPECT_EQ(TextOf(99999).text, L"99999");
  EXPECT_EQ(TextOf(99999).code, -1);
  EXPECT_EQ(TextOf(0xC0000005).text, L"-1073741819");
}

TEST(WinINetError, TheSystemsTextIsNotUsed) {
  // The system has a text for code 87, wininet.dll may have none.
  EXPECT_EQ(TextOf(ERROR_INVALID_PARAMETER).text, test::WinINetWords(ERROR_INVALID_PARAMETER));
}

TEST(WinINetError, WininetDllIsAskedInTheNeutralLanguageAndTheBufferFreed) {
  const test::FormatMessageRecorder recorder;
  const WinINetErrorText error = TextOf(ERROR_INTERNET_TIMEOUT);
  EXPECT_EQ(error.text, test::FormatMessageRecorder::kText);
  EXPECT_EQ(error.code, -1);
  const HMODULE wininet = GetModuleHandleW(L"wininet.dll");
  ASSERT_NE(wininet, nullptr);
  // From a module (0x800), into a buffer of the system's (0x100), inserts ignored (0x200).
  EXPECT_THAT(recorder.Recorded(),
              testing::ElementsAre(test::FormatMessageRecorder::Arguments{
                  0xB00, wininet, ERROR_INTERNET_TIMEOUT, 0x400, true, false}));
  EXPECT_EQ(recorder.TimesFreed(), 1);
}

TEST(WinINetError, WithoutAnErrorNothingIsAsked) {
  const test::FormatMessageRecorder recorder;
  EXPECT_EQ(TextOf(ERROR_SUCCESS).text, L"");
  EXPECT_TRUE(recorder.Recorded().empty());
}

TEST(WinINetError, AnExtendedErrorHasTheServersLastResponse) {
  const LastResponse response(L"busy");
  const WinINetErrorText error = TextOf(ERROR_INTERNET_EXTENDED_ERROR);
  EXPECT_EQ(error.text, L"busy");
  EXPECT_EQ(error.code, -1);
  EXPECT_THAT(LastResponse::BufferSizes(), testing::ElementsAre(0U, 5U));
}

TEST(WinINetError, AResponseShorterThanAnnouncedIsReturnedWithItsLength) {
  const LastResponse response(L"no");
  EXPECT_EQ(TextOf(ERROR_INTERNET_EXTENDED_ERROR).text, L"no");
}

TEST(WinINetError, WithoutAResponseTheTextIsThatOfTheExtendedError) {
  const LastResponse response(std::nullopt);
  const WinINetErrorText error = TextOf(ERROR_INTERNET_EXTENDED_ERROR);
  EXPECT_EQ(error.text, test::WinINetWords(ERROR_INTERNET_EXTENDED_ERROR));
  EXPECT_EQ(error.code, -1);
  EXPECT_EQ(LastResponse::BufferSizes().size(), 2U);
}

TEST(WinINetError, NoOtherErrorAsksForAResponse) {
  const LastResponse response(L"busy");
  EXPECT_EQ(TextOf(ERROR_INTERNET_TIMEOUT).text, test::WinINetWords(ERROR_INTERNET_TIMEOUT));
  EXPECT_THAT(LastResponse::BufferSizes(), testing::IsEmpty());
}

}  // namespace
}  // namespace ve
