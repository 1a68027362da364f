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

/// Counts from several threads.
using Counter = std::atomic<std::uint64_t>;

/// What was read of one file.
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

/// The digests of many files, on all processors and on each of them several files side by side. Calls
/// `take` for each on any thread, and `watch` as `ForEachInParallel` does. Throws what `take` throws.
/// A copy has the bytes that were digested, is flushed, and replaces no file. Of the source only the
/// content is copied: with its old time a web server would call the copy unchanged.
void DigestFiles(const std::vector<FileToDigest>& files, Counter& bytesDone,
                 const std::function<void(std::size_t index, const FileDigest& digest)>& take,
                 const std::function<void()>& watch);

/// The same for one file. Throws `PublishError`.
FileDigest DigestFile(const FileToDigest& file);

}  // namespace ve::publish
