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

/// Creates the listed directories, installs the staged files over the old ones, removes what is
/// neither listed nor preserved, removes the staging folder and records the new version, in this
/// order, so that the version file is new only when the game is. Whatever fails throws, but for the
/// staging folder's removal, which may fail.
void ApplyUpdate(const GameUpdateManifest& manifest, const StagedUpdate& staged,
                 std::string_view pendingVersion);

/// Where the clean-up's walk begins.
inline constexpr std::wstring_view kCleanupRoot = L".";

/// `file::TryRemove`, or what stands for it where a run is only foretold.
using RemoveCall = std::function<DWORD(std::wstring_view path)>;

/// The clean-up of one entry, met at `path` on the walk: keeps it or removes it. Whether to go on
/// into it. Throws the filesystem error of the removal.
[[nodiscard]] file::WalkAction CleanUpEntry(CleanupRules& rules, std::wstring_view path,
                                            const RemoveCall& remove);

/// Removes every entry of the current directory that is neither listed nor preserved. Throws for a
/// directory that is not empty, even if all files in it are listed; a build that keeps non-empty
/// directories keeps it and recurses into it instead (`BuildConfig`).
void CleanUp(const std::unordered_set<std::wstring>& listedNames);

}  // namespace ve::sdk
