// The content of the files that describe a channel's game and settings.
#pragma once

#include <string>
#include <string_view>

#include "archive/archive_format.h"
#include "publisher/build/build_folder.h"
#include "updater/game_version.h"

namespace ve::publish {

/// The text of "game_update.manifest". All digests must have been computed. Throws unless the
/// Launcher's own reader accepts it and reads exactly the build.
[[nodiscard]] std::string GameManifest(const BuildFolder& build);

/// The content of "GameVersion.vpak".
[[nodiscard]] std::string VersionArchive(const sdk::VersionNumber& version,
                                         file::ArchiveMode mode = file::ArchiveMode::kPlain);

/// The content of "UpdaterData.vpak".
[[nodiscard]] std::string SettingsArchive(std::wstring_view url, std::wstring_view channel,
                                          file::ArchiveMode mode = file::ArchiveMode::kPlain);

/// The mode in the header of an archive that was read.
[[nodiscard]] file::ArchiveMode ModeOf(std::string_view bytes);

/// Adds an error if a file is shorter than the record that was read from it, and a warning if it is
/// longer.
void CheckRecordSize(std::string_view bytes, const std::string& record, const std::string& location,
                     Diagnostics& diagnostics);

}  // namespace ve::publish
