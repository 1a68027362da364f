// The applying stage of the game update: making the game folder match the manifest.
#pragma once

#include <string_view>
#include <unordered_set>

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

}  // namespace ve::sdk
