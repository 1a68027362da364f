#include "publisher/published_tree.h"

#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "launcher/updater_driver.h"
#include "publisher/paths.h"
#include "publisher/server_layout.h"
#include "publisher/whole_file.h"

namespace ve::publish {

PublishedTree::PublishedTree(const TreeOptions& options, std::wstring_view channel) {
  if (options.url.empty()) {
    folder_ = Below(AbsolutePath(options.server), ChannelName(channel));
  } else {
    updatesUrl_ = FindUpdatesUrl(ToWide(options.url), channel);
  }
}

DownloadResult PublishedTree::Fetch(std::wstring_view name) const {
  if (IsServed()) return Download(Format(L"{}{}", updatesUrl_, name));
  const std::wstring path = Below(folder_, name);
  if (!file::Exists(path)) return DownloadResult::Failure(L"404 - no such file.");
  return DownloadResult::Success(ReadWholeFile(path));
}

std::string PublishedTree::PlaceOf(std::wstring_view name) const {
  return IsServed() ? ToUtf8(Format(L"{}{}", updatesUrl_, name)) : PathText(Below(folder_, name));
}

}  // namespace ve::publish
