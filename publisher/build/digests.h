// The digests of the studio's files, of any length.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "publisher/report/diagnostics.h"

namespace ve::publish {

/// A count that several threads increase.
using Counter = std::atomic<std::uint64_t>;

/// What was read of a file, or the error.
struct FileDigest {
  std::string md5;  ///< As manifests have it: 32 lowercase hexadecimal characters.
  std::uint64_t size = 0;
  std::wstring finalPath{};           ///< At the end of all links; empty if it is not known.
  std::optional<Diagnostic> error{};  ///< Instead of all this; never from `DigestFile`.
};

/// A file to read, and where to copy it to: empty for no copy.
struct FileToDigest {
  std::wstring path;
  std::wstring copy{};
};

/// The digests of many files, on up to 16 threads with 17 MiB each; small files side by side, large
/// ones in pieces. Calls `take` once for each file, in any order and on several threads at a time,
/// and `watch` as `ForEachInParallel` does. Throws what `take` throws. A copy has the bytes that were
/// digested, is flushed, and replaces no file. Of the source only the content is copied: with its
/// old time a web server would call the copy unchanged.
void DigestFiles(const std::vector<FileToDigest>& files, Counter& bytesDone,
                 const std::function<void(std::size_t index, const FileDigest& digest)>& take,
                 const std::function<void()>& watch);

/// The same for one file. Throws `PublishError`.
FileDigest DigestFile(const FileToDigest& file);

}  // namespace ve::publish
