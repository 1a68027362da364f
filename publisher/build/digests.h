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
  std::optional<Diagnostic> error{};  ///< From `DigestFiles`, instead of all this.
};

/// The digest of one file; adds to `bytesDone` while it reads. Throws `PublishError`.
[[nodiscard]] FileDigest DigestOf(const std::wstring& path, Counter& bytesDone);

/// The digests of many files, on all processors and on each of them several files side by side. Calls
/// `take` for each on any thread, and `watch` as `ForEachInParallel` does. Throws what `take` throws.
void DigestFiles(const std::vector<std::wstring>& paths, Counter& bytesDone,
                 const std::function<void(std::size_t index, const FileDigest& digest)>& take,
                 const std::function<void()>& watch);

/// Copies a file to a path where there is none, and flushes the copy. Of the source only the
/// content is copied: with its old time a web server would call the copy unchanged. Returns the
/// digest of exactly the bytes that were written. Throws `PublishError`.
FileDigest CopyWithDigest(const std::wstring& source, const std::wstring& path, Counter& bytesDone);

}  // namespace ve::publish
