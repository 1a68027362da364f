// HTTP requests of the tool itself, several at a time.
//
//   const Fetcher fetcher(60);
//   const FileContent file = fetcher.Get(url, Keep::kDigest);
//   if (!file.error.empty()) ...
#pragma once

#include <cstdint>
#include <string>

#include "net/internet_request.h"

namespace ve::publish {

/// A file as it was read, or why it was not.
struct FileContent {
  std::wstring error;               ///< As the Launcher reports it; empty if the file was read.
  std::string body;                 ///< Empty if only the digest is kept.
  std::string md5;                  ///< As manifests have it.
  std::uint64_t size = 0;           ///< In bytes, of what was read.
  std::uint64_t contentLength = 0;  ///< What the response announced.
};

enum class Keep { kBody, kDigest };

/// How many requests to make at a time.
inline constexpr unsigned kParallelRequests = 8;

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

}  // namespace ve::publish
