// The payload of a channel's next state: the build's files, and what stays of the present state.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "publisher/build_folder.h"

namespace ve::publish {

/// Told how far the work is; "Reading" or "Copying" with files and bytes, done and in all.
struct PayloadStep {
  const char* work;
  std::uint64_t filesDone, files, bytesDone, bytes;
};
using PayloadProgress = std::function<void(const PayloadStep&)>;

/// Computes the digests of the build's files, and tells for each whether it lies in the published
/// folder already with the same content. That is read, not believed.
[[nodiscard]] std::vector<bool> DigestBuild(const std::wstring& source,
                                            const std::wstring& published, BuildFolder& build,
                                            const PayloadProgress& progress);

struct CopyStats {
  std::uint64_t linkedFiles = 0;  ///< Shared with the published state: not copied.
  std::uint64_t copiedFiles = 0;
  std::uint64_t copiedBytes = 0;
};

/// Makes the build's directories and files in `next`: those that are published already by a link to
/// the published file, which takes no room and keeps its time.
[[nodiscard]] CopyStats PlacePayload(const std::wstring& source, const std::wstring& published,
                                     const BuildFolder& build, const std::vector<bool>& isPublished,
                                     const std::wstring& next, const PayloadProgress& progress);

/// Takes the Launcher's own update over from the published state, if it has one.
void PlaceLauncher(const std::wstring& published, const std::wstring& next);

}  // namespace ve::publish
