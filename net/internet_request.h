// Building blocks of a request, also used by publish verify: the flags, the owner of the handles,
// and the numbers in a response's header.
#pragma once

#include "core/windows.h"

#include <wininet.h>

#include <optional>

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

}  // namespace ve
