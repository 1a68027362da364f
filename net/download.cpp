#include "net/download.h"

#include <array>
#include <optional>

#include "core/format.h"
#include "net/com_scope.h"
#include "net/internet_request.h"
#include "net/wininet_error.h"

namespace ve {
namespace {

DownloadResult LastErrorFailure() { return DownloadResult::Failure(WinINetErrorText().text); }

DownloadResult StatusFailure(DWORD status) {
  switch (status) {
    case HTTP_STATUS_DENIED:
      return DownloadResult::Failure(L"401 - unauthorized.");
    case HTTP_STATUS_NOT_FOUND:
      return DownloadResult::Failure(L"404 - no such file.");
    case HTTP_STATUS_SERVER_ERROR:
      return DownloadResult::Failure(L"500 - internal server error.");
    default:
      return DownloadResult::Failure(Format(L"{} - unknown error code.", status));
  }
}

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
  if (*status != HTTP_STATUS_OK) return StatusFailure(*status);

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
