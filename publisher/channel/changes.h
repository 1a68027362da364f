// What a publish changes: for players, and for the place that the tree is copied to.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "publisher/channel/channel_swap.h"
#include "publisher/report/console.h"
#include "updater/game_manifest.h"

namespace ve::publish {

/// Names of files, with "/", sorted.
struct Changes {
  std::vector<std::wstring> added;
  std::vector<std::wstring> changed;
  std::vector<std::wstring> removed;
};

/// What a channel serves now; nothing if that is not a manifest that the Launcher reads. The entries
/// are views into `text`.
[[nodiscard]] sdk::GameUpdateManifest ReadLiveManifest(const ChannelFolders& folders,
                                                       std::string& text);

/// Compares what two manifests list by name, size and digest.
[[nodiscard]] Changes CompareManifests(const sdk::GameUpdateManifest& before,
                                       const sdk::GameUpdateManifest& after);

/// Prints the numbers and up to ten names of each kind, and adds all to the report as "changes".
void ReportChanges(const Changes& changes, Console& console);

/// Writes lists of files for a tool that copies a published tree to where it is served, such as
/// rclone with --files-from. Creates the folder (absolute) if it is missing. Each list has one path
/// per line, relative to the served folder, with "/", and may be empty. Call it before the swap, which
/// removes what the changes are computed from. Throws `PublishError` or a filesystem error.
///
///   1-payload.txt   the game files to upload: added and changed ones
///   2-manifest.txt  the game's manifest
///   3-version.txt   the game's version file
///   4-delete.txt    the game files that the new state no longer has
///   5-purge.txt     what a cache in front must drop after each of these steps, as URL paths
///                   ("/updates/..." with %20 for a space)
///
/// The order matters: a Launcher fetches the version file, then the manifest, then the files, and
/// does not check what it downloads. With the version file before the manifest it records the new
/// version without the new files. Deletions come last for the updates that are under way.
void WriteUploadLists(const std::wstring& folder, std::wstring_view channel,
                      const Changes& changes);

}  // namespace ve::publish
