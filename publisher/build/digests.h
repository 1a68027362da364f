// The digests of many files: on all processors, and in buffers of a fixed size.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace ve::publish {

/// What was read of one file.
struct FileDigest {
  std::string md5;  ///< As manifests have it: 32 lowercase hexadecimal characters.
  std::uint64_t size = 0;
};

/// Told how far the work is: files and bytes read so far.
using DigestProgress = std::function<void(std::uint64_t filesDone, std::uint64_t bytesDone)>;

/// The digest of one file.
[[nodiscard]] FileDigest DigestOf(const std::wstring& path);

/// The digests of the files, in their order. `progress` is called now and then, on the calling
/// thread. Throws the filesystem error of the first file that cannot be read.
[[nodiscard]] std::vector<FileDigest> FileDigests(std::span<const std::wstring> paths,
                                                  const DigestProgress& progress);

/// How much of a file is read at once; the memory of each processor's work.
inline constexpr std::size_t kDigestBuffer = std::size_t{1} << 20;

}  // namespace ve::publish
