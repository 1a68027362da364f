// The digests of files of the studio, of any length, read piece by piece.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace ve::publish {

/// What was read of one file.
struct FileDigest {
  std::string md5;  ///< As manifests have it: 32 lowercase hexadecimal characters.
  std::uint64_t size = 0;
  std::wstring finalPath;  ///< At the end of all links; empty if the file system cannot tell.
};

/// The digest of one file; adds to `bytesDone` while it reads. Throws `PublishError`.
[[nodiscard]] FileDigest DigestOf(const std::wstring& path, std::atomic<std::uint64_t>& bytesDone);

/// Copies a file to a path where there is none, and flushes the copy. Of the source only the
/// content is copied: with its old time a web server would call the copy unchanged. Returns the
/// digest of exactly the bytes that were written. Throws `PublishError`.
FileDigest CopyWithDigest(const std::wstring& source, const std::wstring& path,
                          std::atomic<std::uint64_t>& bytesDone);

}  // namespace ve::publish
