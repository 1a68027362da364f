// Reading a published tree, in the served folder or at its URL.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "net/internet_request.h"
#include "publisher/report/diagnostics.h"

namespace ve::publish {

/// A file as it was read, or why it was not.
struct FileContent {
  std::wstring error{};             ///< As the Launcher reports it; empty if the file was read.
  std::string body{};               ///< Empty if only the digest is kept.
  std::string md5{};                ///< As manifests have it.
  std::uint64_t size = 0;           ///< In bytes, of what was read.
  std::uint64_t contentLength = 0;  ///< What the response announced.
};

enum class Keep { kBody, kDigest };

/// How many requests to make at a time.
inline constexpr unsigned kParallelRequests = 8;

/// HTTP requests, several at a time.
class Fetcher {
 public:
  /// `timeout`, in seconds, is for connecting and for each read.
  explicit Fetcher(unsigned timeout);

  /// One GET with the answer and the error texts that `Download` has, without line breaks at their
  /// ends. Does not compare the body's size with the announced one. Any thread may call it.
  [[nodiscard]] FileContent Get(const std::wstring& url, Keep keep) const;

 private:
  UniqueInternetHandle root_;
  DWORD_PTR timeout_;
};

/// Where a tree is: exactly one of `server` and `url` is given.
struct TreeOptions {
  std::string server;     ///< The served folder.
  std::string url;        ///< The base URL, ending with a slash.
  unsigned timeout = 60;  ///< In seconds, for connecting and for each read.
};

/// Where the server's "redirect.txt", if there is one, sends Launchers: the same tree with another
/// URL. Warns of what is odd about either URL. A folder remains the same, with a warning.
[[nodiscard]] TreeOptions FollowRedirect(const TreeOptions& options, Diagnostics& diagnostics);

/// Reads the files of one channel by their names.
class PublishedTree {
 public:
  /// See also `FollowRedirect`.
  PublishedTree(const TreeOptions& options, std::wstring_view channel);

  /// Any thread may call it. A file missing in the folder has the error `kNoSuchFile`. Throws
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

/// Warns if the URL is one of http rather than https, or does not end with a slash. `where` is what
/// contains it.
void WarnOfBaseUrl(std::string_view url, const std::string& where, Diagnostics& diagnostics);

}  // namespace ve::publish
