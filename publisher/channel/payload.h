// The payload of a channel's next state: the build's files, and what stays of the present state.
#pragma once

#include <cstdint>
#include <string>

#include "publisher/build/build_folder.h"
#include "publisher/report/progress.h"
#include "updater/game_manifest.h"

namespace ve::publish {

/// Computes the digest of every file of the build that `live` lists with the same size, and marks
/// those that have the listed one as published. Published files are not read: their digests are in
/// the manifest. Throws `PublishError`, also for a link to a file.
void FindPublished(const std::wstring& source, const std::wstring& published,
                   const sdk::GameUpdateManifest& live, BuildFolder& build,
                   const ProgressCallback& progress);

/// Computes the digests that are missing, without copying.
void DigestOthers(const std::wstring& source, BuildFolder& build, const ProgressCallback& progress);

struct CopyStats {
  std::uint64_t linkedFiles = 0;  ///< Shared with the published state: not copied.
  std::uint64_t copiedFiles = 0;
  std::uint64_t copiedBytes = 0;
};

/// Makes the build's directories and files in `next`: a published file by a link to it, which takes
/// no room and keeps its time, the others by a copy, which gets the present time. Sets the digest
/// of each copy to that of the bytes copied. Finds out before the first copy whether the disk has
/// room. Throws `PublishError`.
[[nodiscard]] CopyStats PlacePayload(const std::wstring& source, const std::wstring& published,
                                     BuildFolder& build, const std::wstring& next,
                                     const ProgressCallback& progress);

/// Whether there is a file of this size, and not a link.
[[nodiscard]] bool IsFileOfSize(const std::wstring& path, std::uint64_t size);

/// Makes a second name for a file; where the file system has no links, a copy. Returns whether it
/// is a link.
bool LinkOrCopy(const std::wstring& existing, const std::wstring& path);

/// Takes the Launcher's own update over from the published state, if it has one.
void PlaceLauncher(const std::wstring& published, const std::wstring& next);

}  // namespace ve::publish
