#include "net/download.h"

#include <array>
#include <optional>

#include "net/com_scope.h"
#include "net/internet_request.h"
#include "net/wininet_error.h"

namespace ve {
namespace {

DownloadResult LastErrorFailure() { return DownloadResult::Failure(WinINetErrorText().text); }

}  // namespace

DownloadResult Download(std::wstring_view url) {
  const ComScope com;
  // Declared in this order, so that the request closes before its root.
  const UniqueInternetHandle root(
      InternetOpenW(nullptr, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0));
  if (!root) return LastErrorFailure();
  const std::wstring address(url);  // Freeing a temporary may change the last error.
  const UniqueInternetHandle request(
      InternetOpenUrlW(root.Get(), address.c_str(), nullptr, 0, kRequestFlags, 0));
  if (!request) return LastErrorFailure();

  const std::optional<DWORD> status = QueryNumber(request.Get(), HTTP_QUERY_STATUS_CODE);
  if (!status) return LastErrorFailure();
  if (*status != HTTP_STATUS_OK) return DownloadResult::Failure(HttpStatusText(*status));

  const std::optional<DWORD> contentLength = QueryNumber(request.Get(), HTTP_QUERY_CONTENT_LENGTH);
  if (!contentLength) return LastErrorFailure();
  std::string body;
  body.reserve(*contentLength);
  for (;;) {
    std::array<char, 1024> piece;
    DWORD size = 0;
    if (InternetReadFile(request.Get(), piece.data(), static_cast<DWORD>(piece.size()), &size) ==
        FALSE) {
      return LastErrorFailure();
    }
    if (size == 0) return DownloadResult::Success(std::move(body));
    body.append(piece.data(), size);
  }
}

}  // namespace ve
