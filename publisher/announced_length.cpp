#include "publisher/announced_length.h"

#include "core/windows.h"

#include <wininet.h>

#include <string>

#include "core/handle.h"
#include "net/com_scope.h"

namespace ve::publish {
namespace {

struct InternetHandlePolicy {
  using Value = HINTERNET;
  static Value Empty() noexcept { return nullptr; }
  static bool Close(Value handle) noexcept { return InternetCloseHandle(handle) != FALSE; }
};
using UniqueInternetHandle = Unique<InternetHandlePolicy>;

// As the Launcher asks.
constexpr DWORD kRequestFlags =
    INTERNET_FLAG_RELOAD | INTERNET_FLAG_NO_CACHE_WRITE | INTERNET_FLAG_NO_AUTH;

std::optional<DWORD> QueryNumber(HINTERNET request, DWORD what) {
  DWORD number = 0;
  DWORD size = sizeof(number);
  if (HttpQueryInfoW(request, what | HTTP_QUERY_FLAG_NUMBER, &number, &size, nullptr) == FALSE) {
    return {};
  }
  return number;
}

}  // namespace

std::optional<std::uint64_t> AnnouncedLength(std::wstring_view url) {
  const ComScope com;
  // Declared in the order of their making, so that the request closes before its root.
  const UniqueInternetHandle root(
      InternetOpenW(nullptr, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0));
  if (!root) return {};
  const UniqueInternetHandle request(
      InternetOpenUrlW(root.Get(), std::wstring(url).c_str(), nullptr, 0, kRequestFlags, 0));
  if (!request || QueryNumber(request.Get(), HTTP_QUERY_STATUS_CODE) != HTTP_STATUS_OK) return {};
  return QueryNumber(request.Get(), HTTP_QUERY_CONTENT_LENGTH);
}

}  // namespace ve::publish
