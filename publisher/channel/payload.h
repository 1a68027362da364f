// The payload of a channel's next state: the build's files, and what stays of the present state.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "publisher/build/build_folder.h"
#include "publisher/report/progress.h"

namespace ve::publish {

/// Computes the digests of the build's files, and tells for each whether it lies in the published
/// folder already with the same content. That is read, not believed.
[[nodiscard]] std::vector<bool> DigestBuild(const std::wstring& source,
                                            const std::wstring& published, BuildFolder& build,
                                            const ProgressCallback& progress);

struct CopyStats {
  std::uint64_t linkedFiles = 0;  ///< Shared with the published state: not copied.
  std::uint64_t copiedFiles = 0;
  std::uint64_t copiedBytes = 0;
};

/// Makes the build's directories and files in `next`: those that are published already by a link to
/// the published file, which takes no room and keeps its time.
[[nodiscard]] CopyStats PlacePayload(const std::wstring& source, const std::wstring& published,
                                     const BuildFolder& build, const std::vector<bool>& isPublished,
                                     const std::wstring& next, const ProgressCallback& progress);

/// Takes the Launcher's own update over from the published state, if it has one.
void PlaceLauncher(const std::wstring& published, const std::wstring& next);

}  // namespace ve::publish
