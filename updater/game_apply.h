// The applying stage of the game update: making the game folder match the manifest.
#pragma once

#include <functional>
#include <string_view>
#include <unordered_set>

#include "core/directory_walk.h"
#include "updater/cleanup_rules.h"
#include "updater/game_download.h"
#include "updater/game_manifest.h"

namespace ve::sdk {

/// Makes the game in the current directory match the manifest, in this order: creates the listed
/// directories, copies the staged files over the installed ones, cleans up, removes the staging
/// folder, and writes `pendingVersion` as the installed version file, so the recorded version is
/// new only if the game is. Throws `file::FileException` and filesystem errors; ignores only a
/// failure to remove the staging folder.
void ApplyUpdate(const GameUpdateManifest& manifest, const StagedUpdate& staged,
                 std::string_view pendingVersion);

/// Removes every entry below the current directory that is neither listed nor preserved. Throws a
/// filesystem error ("remove") for what cannot be removed: also for a directory that still holds
/// entries, even if all of them are listed, unless this build keeps those (`BuildConfig`).
void CleanUp(const std::unordered_set<std::wstring_view>& listedNames);

// Building blocks, also used by the preview of publish.exe.

/// `file::TryRemove`, or what replaces it in a preview.
using RemoveCall = std::function<DWORD(std::wstring_view path)>;

/// Keeps or removes one entry that the walk meets, `relativePath` below the game root. Returns
/// whether to walk into it. Throws the filesystem error of the removal.
[[nodiscard]] file::WalkAction CleanUpEntry(const CleanupRules& rules,
                                            const file::DirectoryEntry& entry,
                                            std::wstring_view relativePath,
                                            const RemoveCall& remove);

}  // namespace ve::sdk
