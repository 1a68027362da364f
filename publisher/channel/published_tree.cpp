#include "publisher/channel/published_tree.h"

#include "core/windows.h"

#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "core/files.h"
#include "core/format.h"
#include "core/md5.h"
#include "core/unicode.h"
#include "net/wininet_error.h"
#include "publisher/build/digests.h"
#include "publisher/build/name_rules.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {
namespace {

constexpr std::size_t kBuffer = std::size_t{64} << 10;

FileContent LastErrorFailure() {
  if (GetLastError() == WSAETIMEDOUT) SetLastError(ERROR_INTERNET_TIMEOUT);  // From Wine.
  std::wstring error = WinINetErrorText().text;
  while (error.ends_with(L'\n') || error.ends_with(L'\r')) error.pop_back();
  return {std::move(error)};
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
      timeout_(DWORD_PTR{timeout} * 1000) {
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
  if (*status != HTTP_STATUS_OK) return {HttpStatusText(*status)};
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

TreeOptions FollowRedirect(const TreeOptions& options, Diagnostics& diagnostics) {
  TreeOptions followed = options;
  if (options.url.empty()) {
    const std::wstring path = JoinPath(ExtendedLengthPath(options.server), kRedirectName);
    if (!file::Exists(path)) return followed;
    const std::string url = ReadWholeFile(path);
    diagnostics.AddWarning(DisplayPath(path), Format("sends all players to '{}'", url),
                           "Players do not get what is in this folder. Verify that URL too.");
    WarnOfBaseUrl(url, DisplayPath(path), diagnostics);
    return followed;
  }
  WarnOfBaseUrl(options.url, "--url", diagnostics);
  const std::string location = Format("{}{}", options.url, ToUtf8(kRedirectName));
  const FileContent redirect = Fetcher(options.timeout).Get(ToWide(location), Keep::kBody);
  if (redirect.error.empty()) {
    CheckContentLength(redirect, location, diagnostics);
    WarnOfBaseUrl(redirect.body, location, diagnostics);
    followed.url = redirect.body;
  } else if (redirect.error != kNoSuchFile) {
    diagnostics.AddWarning(location, Format("cannot be fetched: {}", ToUtf8(redirect.error)),
                           "Launchers continue without the redirection.");
  }
  return followed;
}

PublishedTree::PublishedTree(const TreeOptions& options, std::wstring_view channel) {
  if (options.url.empty()) {
    folder_ = JoinPath(ExtendedLengthPath(options.server), ChannelName(channel));
  } else {
    updatesUrl_ = Format(L"{}{}/", ToWide(options.url), ChannelName(channel));
    fetcher_.emplace(options.timeout);
  }
}

FileContent PublishedTree::Read(std::wstring_view name, Keep keep) const {
  if (fetcher_) return fetcher_->Get(Format(L"{}{}", updatesUrl_, name), keep);
  const std::wstring path = JoinPath(folder_, name);
  // No attributes means that there is no such file.
  if ((GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    return {std::wstring(kNoSuchFile)};
  }
  FileContent content;
  if (keep == Keep::kBody) {
    content.body = ReadWholeFile(path);
    content.md5 = Md5Hex(content.body);
    content.size = content.body.size();
  } else {
    const FileDigest digest = DigestFile({path});
    content.md5 = digest.md5;
    content.size = digest.size;
  }
  content.contentLength = content.size;
  return content;
}

std::string PublishedTree::LocationOf(std::wstring_view name) const {
  return IsServed() ? ToUtf8(Format(L"{}{}", updatesUrl_, name))
                    : DisplayPath(JoinPath(folder_, name));
}

void CheckContentLength(const FileContent& content, const std::string& location,
                        Diagnostics& diagnostics) {
  if (content.size == content.contentLength) return;
  diagnostics.AddError(
      location,
      Format("the body has {} bytes, but its Content-Length is {}", content.size,
             content.contentLength),
      "Launchers do not compare the two and take the body as it is. Check the server and the "
      "proxies or CDN in front of it.");
}

void WarnOfBaseUrl(std::string_view url, const std::string& where, Diagnostics& diagnostics) {
  if (!url.ends_with('/')) {
    diagnostics.AddWarning(where, Format("{} does not end with a slash", url),
                           "Launchers append \"updates\" to it directly. End it with a slash, "
                           "without a line break.");
  }
  if (FoldCase(ToWide(url)).starts_with(L"HTTP://")) {
    diagnostics.AddWarning(
        where, Format("{} is plain http: anyone between server and player can replace files", url),
        "Use https.");
  }
}

}  // namespace ve::publish
