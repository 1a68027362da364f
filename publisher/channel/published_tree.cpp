#include "publisher/channel/published_tree.h"

#include <cstdint>
#include <optional>

#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "launcher/updater_driver.h"
#include "publisher/channel/content_length.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {

DownloadResult DownloadChecked(std::wstring_view url, const std::string& place,
                               Diagnostics& diagnostics) {
  DownloadResult download = Download(url);
  if (!download.Succeeded()) return download;
  const std::optional<std::uint64_t> announced = ContentLength(url);
  const std::size_t length = download.Body().size();
  if (!announced) {
    diagnostics.AddError(place, "came once, but not when it was asked for again", "Verify again.");
  } else if (*announced != length) {
    diagnostics.AddError(
        place, Format("came with {} bytes, but its Content-Length is {}", length, *announced),
        "Launchers take what came for the whole. See to the server, and to what stands in front of "
        "it.");
  }
  return download;
}

PublishedTree::PublishedTree(const TreeOptions& options, std::wstring_view channel) {
  if (options.url.empty()) {
    folder_ = JoinPath(ExtendedLengthPath(options.server), ChannelName(channel));
  } else {
    updatesUrl_ = FindUpdatesUrl(ToWide(options.url), channel);
  }
}

DownloadResult PublishedTree::Fetch(std::wstring_view name) const {
  if (IsServed()) return Download(Format(L"{}{}", updatesUrl_, name));
  const std::wstring path = JoinPath(folder_, name);
  if (!file::Exists(path)) return DownloadResult::Failure(std::wstring(kNotFound));
  return DownloadResult::Success(ReadWholeFile(path));
}

DownloadResult PublishedTree::Fetch(std::wstring_view name, Diagnostics& diagnostics) const {
  if (!IsServed()) return Fetch(name);
  return DownloadChecked(Format(L"{}{}", updatesUrl_, name), LocationOf(name), diagnostics);
}

std::string PublishedTree::LocationOf(std::wstring_view name) const {
  return IsServed() ? ToUtf8(Format(L"{}{}", updatesUrl_, name))
                    : DisplayPath(JoinPath(folder_, name));
}

}  // namespace ve::publish
