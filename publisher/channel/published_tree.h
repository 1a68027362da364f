// A channel of a published tree, in the folder that is served or at its URL.
#pragma once

#include <string>
#include <string_view>

#include "net/download.h"
#include "publisher/report/diagnostics.h"

namespace ve::publish {

/// Where a tree is: exactly one of the two is given.
struct TreeOptions {
  std::string server;  ///< The folder that is served.
  std::string url;     ///< The base URL, with its last slash.
};

/// What the Launcher says of a file that is not there.
inline constexpr std::wstring_view kNotFound = L"404 - no such file.";

/// `Download`; refuses a body of another length than the response announces, which
/// Launchers take as it is. `place` is the URL for the diagnostics.
[[nodiscard]] DownloadResult DownloadChecked(std::wstring_view url, const std::string& place,
                                             Diagnostics& diagnostics);

/// Fetches the files of one channel by their names, as the Launcher does.
class PublishedTree {
 public:
  /// Behind a URL, "redirect.txt" is asked for first and followed.
  PublishedTree(const TreeOptions& options, std::wstring_view channel);

  /// The file's content, or the text of the download's failure. A file missing in a folder reads
  /// like a server's status 404.
  [[nodiscard]] DownloadResult Fetch(std::wstring_view name) const;
  /// The same, and checks the response's length.
  [[nodiscard]] DownloadResult Fetch(std::wstring_view name, Diagnostics& diagnostics) const;

  /// The file's URL, or its path, for people.
  [[nodiscard]] std::string LocationOf(std::wstring_view name) const;

  [[nodiscard]] bool IsServed() const noexcept { return folder_.empty(); }
  /// The channel's folder (absolute); empty if the tree is served.
  [[nodiscard]] const std::wstring& Folder() const noexcept { return folder_; }
  /// The URL that the Launcher puts in front of every name; empty if the tree is a folder.
  [[nodiscard]] const std::wstring& UpdatesUrl() const noexcept { return updatesUrl_; }

 private:
  std::wstring folder_;
  std::wstring updatesUrl_;
};

}  // namespace ve::publish
