// The payload of a channel's next state: the build's files, and what stays of the present state.
#pragma once

#include <cstdint>
#include <string>

#include "publisher/build/build_folder.h"
#include "publisher/report/console.h"
#include "updater/game_manifest.h"

namespace ve::publish {

/// Computes the digest of every file of the build that `live` lists with the same size, and marks
/// those that have the listed one as published. Published files are not read: their digests are in
/// the manifest. Returns whether all are published. Throws `PublishError`, also for a link to a
/// file.
[[nodiscard]] bool FindPublished(const std::wstring& source, const std::wstring& published,
                                 const sdk::GameUpdateManifest& live, BuildFolder& build,
                                 Console& console);

/// Computes the digests that are missing, without copying.
void DigestOthers(const std::wstring& source, BuildFolder& build, Console& console);

/// Makes `next` with the build's directories and files. Links published files, which take no space
/// and keep their time; copies the others, which get the present time. A file that the file system
/// cannot link to is copied, and no longer marked as published. Sets the digest of each copy to that
/// of the bytes copied. Checks the free space first. Throws `PublishError`.
void PlacePayload(const std::wstring& source, const std::wstring& published, BuildFolder& build,
                  const std::wstring& next, Console& console);

/// Whether there is a file of this size, and not a link.
[[nodiscard]] bool IsFileOfSize(const std::wstring& path, std::uint64_t size);

/// Takes the Launcher's own update over from the published state, if it has one.
void PlaceLauncher(const std::wstring& published, const std::wstring& next);

}  // namespace ve::publish
