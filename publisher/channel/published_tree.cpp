#include "publisher/channel/published_tree.h"

#include "core/windows.h"

#include <atomic>
#include <cstdint>
#include <utility>

#include "core/files.h"
#include "core/format.h"
#include "core/md5.h"
#include "core/unicode.h"
#include "publisher/build/digests.h"
#include "publisher/build/name_rules.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {

TreeOptions FollowRedirect(const TreeOptions& options, Diagnostics& diagnostics) {
  TreeOptions followed = options;
  if (options.url.empty()) {
    const std::wstring redirect = JoinPath(ExtendedLengthPath(options.server), kRedirectName);
    if (!file::Exists(redirect)) return followed;
    const std::string url = ReadWholeFile(redirect);
    diagnostics.AddWarning(DisplayPath(redirect), Format("sends all players to '{}'", url),
                           "Players do not get what is in this folder. Verify that URL too.");
    WarnOfBaseUrl(url, DisplayPath(redirect), diagnostics);
    return followed;
  }
  WarnOfBaseUrl(options.url, "--url", diagnostics);
  const std::string location = Format("{}{}", options.url, ToUtf8(kRedirectName));
  const FileContent redirect = Fetcher(options.timeout).Get(ToWide(location), Keep::kBody);
  if (redirect.error.empty()) {
    CheckContentLength(redirect, location, diagnostics);
    WarnOfBaseUrl(redirect.body, location, diagnostics);
    followed.url = redirect.body;
  } else if (redirect.error != kNotFound) {
    diagnostics.AddWarning(location, Format("cannot be fetched: {}", ToUtf8(redirect.error)),
                           "Launchers go on as if there were no redirection.");
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
  FileContent content;
  const std::wstring path = JoinPath(folder_, name);
  // No attributes means that there is no such file.
  if ((GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    content.error = kNotFound;
    return content;
  }
  if (keep == Keep::kBody) {
    content.body = ReadWholeFile(path);
    content.md5 = Md5Hex(content.body);
    content.size = content.body.size();
  } else {
    std::atomic<std::uint64_t> bytesDone = 0;
    FileDigest digest = DigestOf(path, bytesDone);
    content.md5 = std::move(digest.md5);
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

void WarnOfPlainHttp(std::string_view url, const std::string& where, Diagnostics& diagnostics) {
  if (!FoldCase(ToWide(url)).starts_with(L"HTTP://")) return;
  diagnostics.AddWarning(
      where, Format("{} is plain http: anyone between server and player can replace files", url),
      "Use https.");
}

void WarnOfBaseUrl(std::string_view url, const std::string& where, Diagnostics& diagnostics) {
  if (!url.ends_with('/')) {
    diagnostics.AddWarning(where, Format("{} does not end with a slash", url),
                           "Launchers append \"updates\" to it directly. Add the slash, unless "
                           "that is meant.");
  }
  WarnOfPlainHttp(url, where, diagnostics);
}

}  // namespace ve::publish
