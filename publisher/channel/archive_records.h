// The two archives that the publishing tool writes, as bytes.
#pragma once

#include <string>
#include <string_view>

#include "archive/archive_format.h"
#include "updater/game_version.h"

namespace ve::publish {

/// The content of "UpdaterData.vpak".
[[nodiscard]] std::string SettingsArchive(std::wstring_view url, std::wstring_view channel,
                                          file::ArchiveMode mode = file::ArchiveMode::kPlain);

/// The content of "GameVersion.vpak".
[[nodiscard]] std::string VersionArchive(const sdk::VersionNumber& version,
                                         file::ArchiveMode mode = file::ArchiveMode::kPlain);

}  // namespace ve::publish
