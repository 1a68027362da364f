// Version numbers as people write them, and the check of one that is about to be published.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "publisher/channel/channel_swap.h"
#include "publisher/report/console.h"
#include "updater/game_version.h"

namespace ve::publish {

/// "1.4.0.2": four numbers from 0 to 2147483647, the most significant first (the file holds it
/// last). None for any other text.
[[nodiscard]] std::optional<sdk::VersionNumber> ParseVersion(std::string_view text);

/// The same text again; a version file may also hold negative numbers.
[[nodiscard]] std::string VersionText(const sdk::VersionNumber& version);

/// Reads the version from the command line. Adds an error if the text is not a valid version, or if
/// the version is not higher than the one on the server (a warning with `force`). Warns of versions that
/// leave little room above them: the Launcher never installs a lower one. Adds "previousVersion" to
/// the report. None if the text is not a valid version.
[[nodiscard]] std::optional<sdk::VersionNumber> CheckNewVersion(const std::string& text,
                                                                const ChannelFolders& folders,
                                                                bool force, Console& console,
                                                                Diagnostics& diagnostics);

}  // namespace ve::publish
