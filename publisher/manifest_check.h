// What a game manifest may not say although its reader takes it.
#pragma once

#include <string>

#include "publisher/findings.h"
#include "updater/game_manifest.h"

namespace ve::publish {

/// Refuses every entry that the Launcher would fail on, that it would install and delete again, or
/// that would never count as current. `place` is the manifest's, for the findings.
void CheckManifest(const sdk::GameUpdateManifest& manifest, const std::string& place,
                   Findings& findings);

/// A name as Windows compares names: "/" and "\" are one, and so are the cases.
[[nodiscard]] std::wstring FoldedName(std::wstring_view name);

}  // namespace ve::publish
