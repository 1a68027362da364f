// A channel of a published tree, in the served folder or at its URL.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "publisher/channel/fetch.h"
#include "publisher/report/diagnostics.h"

namespace ve::publish {

/// Where a tree is: exactly one of `server` and `url` is given.
struct TreeOptions {
  std::string server;     ///< The served folder.
  std::string url;        ///< The base URL, with its last slash.
  unsigned timeout = 60;  ///< In seconds, for connecting and for each read.
};

/// Where the server's "redirect.txt", if there is one, sends Launchers: the same tree with another
/// URL. Warns of what is odd about either URL. A folder remains the same, with a warning.
[[nodiscard]] TreeOptions FollowRedirect(const TreeOptions& options, Diagnostics& diagnostics);

/// What the Launcher reports for a file that the server does not have.
inline constexpr std::wstring_view kNotFound = L"404 - no such file.";

/// Reads the files of one channel by their names.
class PublishedTree {
 public:
  /// See also `FollowRedirect`.
  PublishedTree(const TreeOptions& options, std::wstring_view channel);

  /// Any thread may call it. A file missing in the folder has the error `kNotFound`. Throws
  /// `PublishError` for one in the folder that cannot be read.
  [[nodiscard]] FileContent Read(std::wstring_view name, Keep keep) const;

  /// The file's URL, or its path, for people.
  [[nodiscard]] std::string LocationOf(std::wstring_view name) const;

  [[nodiscard]] bool IsServed() const noexcept { return fetcher_.has_value(); }
  /// The channel's folder (absolute); empty if the tree is served.
  [[nodiscard]] const std::wstring& Folder() const noexcept { return folder_; }
  /// The URL in front of every name; empty if the tree is a folder.
  [[nodiscard]] const std::wstring& UpdatesUrl() const noexcept { return updatesUrl_; }

 private:
  std::wstring folder_;
  std::wstring updatesUrl_;
  std::optional<Fetcher> fetcher_;
};

/// Adds an error if the body was not as long as announced, which Launchers do not check.
void CheckContentLength(const FileContent& content, const std::string& location,
                        Diagnostics& diagnostics);

/// Warns if the URL is one of http rather than https. `where` is what contains it.
void WarnOfPlainHttp(std::string_view url, const std::string& where, Diagnostics& diagnostics);

/// The same, and warns if the URL lacks its last slash.
void WarnOfBaseUrl(std::string_view url, const std::string& where, Diagnostics& diagnostics);

}  // namespace ve::publish
