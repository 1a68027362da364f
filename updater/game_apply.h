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

/// Whether this build keeps a directory that the clean-up cannot remove because it still holds
/// entries, and goes on into it; if not, that ends the update.
[[nodiscard]] bool KeepsNonEmptyDirectories() noexcept;

/// Where the clean-up's walk begins.
inline constexpr std::wstring_view kCleanupRoot = L".";

/// `file::TryRemove`, or what stands for it where a run is only foretold.
using RemoveCall = std::function<DWORD(std::wstring_view path)>;

/// The clean-up of one entry, met at `path` on the walk: keeps it or removes it. Whether to go on
/// into it. Throws the filesystem error of the removal.
[[nodiscard]] file::WalkAction CleanUpEntry(CleanupRules& rules, std::wstring_view path,
                                            const RemoveCall& remove);

/// Removes every entry of the current directory that is neither listed nor preserved. Removing a
/// directory that still holds entries fails, and that throws, on purpose, also where all that it
/// holds is listed; only a build whose clean-up walks on keeps it and goes on into it.
void CleanUp(const std::unordered_set<std::wstring>& listedNames);

}  // namespace ve::sdk
