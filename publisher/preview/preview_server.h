// The server as a previewed run meets it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "net/download.h"
#include "publisher/channel/published_tree.h"
#include "publisher/preview/imagined_disk.h"
#include "publisher/report/diagnostics.h"
#include "updater/game_manifest.h"

namespace ve::publish {

/// A file of the game as the server has it.
struct Payload {
  DownloadResult result;  ///< Without its bytes.
  std::uint64_t size;
  ContentMatch content;
};

/// Answers the run's requests, from a served tree or from a folder, and keeps their URLs.
class PreviewServer {
 public:
  /// `configuredUrl` and `channel` are those of the installed settings. A tree that is served is
  /// asked for its redirection at once, as the run does.
  PreviewServer(const TreeOptions& options, bool fetch, std::wstring_view configuredUrl,
                std::wstring_view channel, Diagnostics& diagnostics);

  /// What the Launcher puts in front of all names. For a folder it is made of the settings.
  [[nodiscard]] const std::wstring& UpdatesUrl() const noexcept { return updatesUrl_; }

  [[nodiscard]] DownloadResult Fetch(std::wstring_view url);

  /// A payload need not be fetched to be previewed: its size is listed. It is looked for in a
  /// folder, and downloaded from a server if that is wanted; else it is taken to be as listed.
  [[nodiscard]] Payload FetchPayload(std::wstring_view url, const sdk::FileEntry& entry);

  [[nodiscard]] std::vector<std::string> TakeRequests() { return std::move(requests_); }

 private:
  [[nodiscard]] Payload FindInFolder(std::wstring_view name) const;
  [[nodiscard]] Payload Downloaded(std::wstring_view url) const;
  [[nodiscard]] std::wstring_view NameOf(std::wstring_view url) const;

  PublishedTree tree_;
  bool fetch_;
  std::wstring updatesUrl_;
  std::vector<std::string> requests_;
};

}  // namespace ve::publish
