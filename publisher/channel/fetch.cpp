#include "publisher/channel/fetch.h"

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "core/format.h"
#include "core/md5.h"
#include "net/wininet_error.h"

namespace ve::publish {
namespace {

constexpr std::size_t kBuffer = std::size_t{64} << 10;

FileContent Failure(std::wstring error) {
  while (error.ends_with(L'\n') || error.ends_with(L'\r')) error.pop_back();
  FileContent content;
  content.error = std::move(error);
  return content;
}

FileContent LastErrorFailure() { return Failure(WinINetErrorText().text); }

std::wstring StatusText(DWORD status) {
  switch (status) {
    case HTTP_STATUS_DENIED:
      return L"401 - unauthorized.";
    case HTTP_STATUS_NOT_FOUND:
      return L"404 - no such file.";
    case HTTP_STATUS_SERVER_ERROR:
      return L"500 - internal server error.";
    default:
      return Format(L"{} - unknown error code.", status);
  }
}

void SetNumber(HINTERNET handle, int option, DWORD value) {
  InternetSetOptionW(handle, static_cast<DWORD>(option), &value, sizeof(value));
}

/// Sets the time-outs of each new handle. `context` is the time in milliseconds.
void CALLBACK OnStatus(HINTERNET /*parent*/, DWORD_PTR context, DWORD status, void* information,
                       DWORD /*length*/) {
  if (status != INTERNET_STATUS_HANDLE_CREATED) return;
  for (const int option : {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_SEND_TIMEOUT,
                           INTERNET_OPTION_RECEIVE_TIMEOUT}) {
    SetNumber(*static_cast<HINTERNET*>(information), option, static_cast<DWORD>(context));
  }
}

}  // namespace

Fetcher::Fetcher(unsigned timeout)
    : root_(InternetOpenW(nullptr, INTERNET_OPEN_TYPE_DIRECT, nullptr, nullptr, 0)),
      timeout_(timeout * 1000) {
  // The limits of connections are the process's.
  SetNumber(nullptr, INTERNET_OPTION_MAX_CONNS_PER_SERVER, kParallelRequests);
  SetNumber(nullptr, INTERNET_OPTION_MAX_CONNS_PER_1_0_SERVER, kParallelRequests);
  SetNumber(root_.Get(), INTERNET_OPTION_CONNECT_RETRIES, 1);
  InternetSetStatusCallbackW(root_.Get(), OnStatus);
}

FileContent Fetcher::Get(const std::wstring& url, Keep keep) const {
  // Without cookies: their one store slows parallel requests down several times.
  const UniqueInternetHandle request(InternetOpenUrlW(
      root_.Get(), url.c_str(), nullptr, 0,
      kRequestFlags | INTERNET_FLAG_NO_COOKIES | INTERNET_FLAG_KEEP_CONNECTION, timeout_));
  if (!request) return LastErrorFailure();
  const std::optional<DWORD> status = QueryNumber(request.Get(), HTTP_QUERY_STATUS_CODE);
  if (!status) return LastErrorFailure();
  if (*status != HTTP_STATUS_OK) return Failure(StatusText(*status));
  const std::optional<DWORD> length = QueryNumber(request.Get(), HTTP_QUERY_CONTENT_LENGTH);
  if (!length) return LastErrorFailure();

  FileContent content;
  content.contentLength = *length;
  Md5 md5;
  std::vector<std::byte> buffer(kBuffer);
  for (DWORD read = 1; read != 0;) {
    if (InternetReadFile(request.Get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read) ==
        FALSE) {
      return LastErrorFailure();
    }
    md5.Update(std::span(buffer).first(read));
    if (keep == Keep::kBody) content.body.append(reinterpret_cast<char*>(buffer.data()), read);
    content.size += read;
  }
  md5.Finalize();
  content.md5 = md5.Hex();
  return content;
}

}  // namespace ve::publish
