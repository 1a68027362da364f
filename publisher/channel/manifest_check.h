// What a game manifest may not say although its reader takes it.
#pragma once

#include <string>
#include <string_view>

#include "publisher/report/diagnostics.h"
#include "updater/game_manifest.h"

namespace ve::publish {

/// Refuses every name that no build may have (name_rules.h): a manifest may have been made by other
/// means. `place` is the manifest's, for the diagnostics; `launcher` is the name of the Launcher's
/// own file.
void CheckListedNames(const sdk::GameUpdateManifest& manifest, const std::string& place,
                      std::wstring_view launcher, Diagnostics& diagnostics);

/// Refuses these names, and every entry that the Launcher would fail on, that it would install and
/// delete again, or that would never count as current.
void CheckManifest(const sdk::GameUpdateManifest& manifest, const std::string& place,
                   std::wstring_view launcher, Diagnostics& diagnostics);

}  // namespace ve::publish
