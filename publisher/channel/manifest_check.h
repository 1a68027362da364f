// Errors of a game manifest that its reader accepts.
#pragma once

#include <string>
#include <string_view>

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

}  // namespace ve::publish
