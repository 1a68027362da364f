// The two archives that the publishing tool writes and checks, as bytes.
#pragma once

#include <string>
#include <string_view>

#include "archive/archive_format.h"
#include "publisher/report/diagnostics.h"
#include "updater/game_version.h"

namespace ve::publish {

/// The content of "UpdaterData.vpak".
[[nodiscard]] std::string SettingsArchive(std::wstring_view url, std::wstring_view channel,
                                          file::ArchiveMode mode = file::ArchiveMode::kPlain);

/// The content of "GameVersion.vpak".
[[nodiscard]] std::string VersionArchive(const sdk::VersionNumber& version,
                                         file::ArchiveMode mode = file::ArchiveMode::kPlain);

/// The mode in the header of an archive that was read.
[[nodiscard]] file::ArchiveMode ModeOf(std::string_view bytes);

/// Adds an error if a file is shorter than the record that was read from it, and a warning if it is
/// longer.
void CheckRecordSize(std::string_view bytes, const std::string& record, const std::string& location,
                     Diagnostics& diagnostics);

}  // namespace ve::publish
