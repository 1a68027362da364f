// Errors of a game manifest that its reader accepts, and of the files that it lists.
#pragma once

#include <string>
#include <string_view>

#include "publisher/channel/published_tree.h"
#include "publisher/report/console.h"
#include "publisher/report/diagnostics.h"
#include "updater/game_manifest.h"

namespace ve::publish {

/// Checks every listed name as `CheckName` does: a manifest need not have been written by this
/// tool. The diagnostics are about `location`, the manifest's. `launcher` is the name of the
/// Launcher's file.
void CheckListedNames(const sdk::GameUpdateManifest& manifest, const std::string& location,
                      std::wstring_view launcher, Diagnostics& diagnostics);

/// The same, and checks for a missing game and for every entry that fails the update, that is
/// installed and deleted again, or that never counts as current.
void CheckManifest(const sdk::GameUpdateManifest& manifest, const std::string& location,
                   std::wstring_view launcher, Diagnostics& diagnostics);

/// Compares every listed file's size and digest, several files at a time and each in pieces, and
/// shows the progress. The diagnostics are in the manifest's order.
void CheckPayload(const PublishedTree& tree, const sdk::GameUpdateManifest& manifest,
                  Console& console, Diagnostics& diagnostics);

}  // namespace ve::publish
