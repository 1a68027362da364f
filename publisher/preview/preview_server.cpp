#include "publisher/preview/preview_server.h"

#include "core/windows.h"

#include <utility>

#include "core/files.h"
#include "core/format.h"
#include "core/md5.h"
#include "core/unicode.h"
#include "launcher/updater_driver.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {
namespace {

Payload Missing(std::wstring_view error) {
  return {DownloadResult::Failure(std::wstring(error)), 0, {}};
}

Payload Present(std::uint64_t size, ContentMatch content) {
  return {DownloadResult::Success({}), size, std::move(content)};
}

/// A content of which only size and digest are kept.
ContentMatch Known(std::uint64_t size, std::string digest) {
  return [size, digest = std::move(digest)](std::uint64_t wantedSize, std::string_view wanted) {
    return wantedSize == size && wanted == digest;
  };
}

bool IsFile(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

}  // namespace

PreviewServer::PreviewServer(const TreeOptions& options, bool fetch,
                             std::wstring_view configuredUrl, std::wstring_view channel,
                             Diagnostics& diagnostics)
    : tree_(options, channel), fetch_(fetch) {
  const std::wstring baseUrl = tree_.IsServed() ? ToWide(options.url) : std::wstring(configuredUrl);
  requests_.push_back(ToUtf8(Format(L"{}{}", baseUrl, kRedirectName)));
  if (tree_.IsServed()) {
    updatesUrl_ = FindUpdatesUrl(baseUrl, channel);
    if (baseUrl != configuredUrl) {
      diagnostics.AddWarning(ToUtf8(configuredUrl),
                             "the installation's own settings name another server",
                             Format("The run was previewed as if they named {}.", options.url));
    }
    return;
  }
  updatesUrl_ = Format(L"{}{}/", configuredUrl, ChannelName(channel));
  const std::wstring redirect = JoinPath(ExtendedLengthPath(options.server), kRedirectName);
  if (IsFile(redirect)) {
    diagnostics.AddWarning(
        DisplayPath(redirect), "players are sent to the server that this file names",
        "The run was previewed as if the folder were that server; see it with --url.");
  }
  if (!file::Exists(tree_.Folder())) {
    diagnostics.AddWarning(DisplayPath(tree_.Folder()),
                           "the folder has nothing for the installed channel",
                           "Publish to it, or name the folder that holds \"updates\".");
  }
}

std::wstring_view PreviewServer::NameOf(std::wstring_view url) const {
  return url.substr(updatesUrl_.size());
}

DownloadResult PreviewServer::Fetch(std::wstring_view url) {
  requests_.push_back(ToUtf8(url));
  if (tree_.IsServed()) return Download(url);
  // A server gives no folders.
  if (!IsFile(JoinPath(tree_.Folder(), NameOf(url))))
    return DownloadResult::Failure(std::wstring(kNotFound));
  return DownloadResult::Success(ReadWholeFile(JoinPath(tree_.Folder(), NameOf(url))));
}

Payload PreviewServer::FetchPayload(std::wstring_view url, const sdk::FileEntry& entry) {
  requests_.push_back(ToUtf8(url));
  if (!tree_.IsServed()) return FindInFolder(NameOf(url));
  if (fetch_) return Downloaded(url);
  return Present(entry.size, Known(entry.size, std::string(entry.digest)));
}

Payload PreviewServer::FindInFolder(std::wstring_view name) const {
  // Through the system's own reading of the path: a URL may hold "./" as well.
  const std::wstring path = ExtendedLengthPath(DisplayPath(JoinPath(tree_.Folder(), name)));
  if (!IsFile(path)) return Missing(kNotFound);
  const std::uint64_t size = file::FileSize(path);
  return Present(size, [path, size](std::uint64_t wantedSize, std::string_view digest) {
    return size == wantedSize && Md5Hex(ReadWholeFile(path)) == digest;
  });
}

Payload PreviewServer::Downloaded(std::wstring_view url) const {
  DownloadResult result = Download(url);
  if (!result.Succeeded()) return Missing(result.Error());
  return Present(result.Body().size(), Known(result.Body().size(), Md5Hex(result.Body())));
}

}  // namespace ve::publish
