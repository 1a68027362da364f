// The two files that describe a published game: its manifest and its version file.
#pragma once

#include <string>

#include "publisher/build/build_folder.h"
#include "updater/game_version.h"

namespace ve::publish {

/// The text of "game_update.manifest". All digests must have been computed. It has been read back
/// with the Launcher's own reader: throws if that does not yield exactly the build.
[[nodiscard]] std::string GameManifest(const BuildFolder& build);

/// The content of "GameVersion.vpak", read back in the same way.
[[nodiscard]] std::string GameVersionFile(const sdk::VersionNumber& version);

}  // namespace ve::publish
