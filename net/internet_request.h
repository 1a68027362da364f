// Building blocks of a request, also used by publish.exe: the flags, the owner of the handles, the
// numbers in a response's header, and the error texts of its status.
#pragma once

#include "core/windows.h"

#include <wininet.h>

#include <optional>
#include <string>
#include <string_view>

#include "core/format.h"
#include "core/handle.h"

namespace ve {

namespace detail {

struct InternetHandlePolicy {
  using Value = HINTERNET;
  static Value Empty() noexcept { return nullptr; }
  static bool Close(Value handle) noexcept { return InternetCloseHandle(handle) != FALSE; }
};

}  // namespace detail

using UniqueInternetHandle = Unique<detail::InternetHandlePolicy>;

/// Fetches from the server, stores nothing in the cache, answers no authentication challenge.
inline constexpr DWORD kRequestFlags =
    INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_NO_AUTH;

/// A number of the response's header, such as HTTP_QUERY_STATUS_CODE. None, with the last error
/// set, if the header has no such number.
[[nodiscard]] inline std::optional<DWORD> QueryNumber(HINTERNET request, DWORD what) noexcept {
  DWORD number = 0;
  DWORD size = sizeof(number);
  if (HttpQueryInfoW(request, what | HTTP_QUERY_FLAG_NUMBER, &number, &size, nullptr) == FALSE) {
    return {};
  }
  return number;
}

inline constexpr std::wstring_view kNoSuchFile = L"404 - no such file.";

/// The error text of a status other than 200.
[[nodiscard]] inline std::wstring HttpStatusText(DWORD status) {
  switch (status) {
    case HTTP_STATUS_DENIED:
      return L"401 - unauthorized.";
    case HTTP_STATUS_NOT_FOUND:
      return std::wstring(kNoSuchFile);
    case HTTP_STATUS_SERVER_ERROR:
      return L"500 - internal server error.";
    default:
      return Format(L"{} - unknown error code.", status);
  }
}

}  // namespace ve
