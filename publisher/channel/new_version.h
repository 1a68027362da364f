// The version that is about to be published, held against the one on the server.
#pragma once

#include <optional>
#include <string>

#include "publisher/channel/channel_swap.h"
#include "publisher/report/console.h"
#include "updater/game_version.h"

namespace ve::publish {

/// Reads the version from the command line. Adds an error if the text is no version, or if the
/// version is not above the one on the server (a warning with `force`). Warns of versions that
/// leave little room above them: the Launcher never installs a lower one. Adds "previousVersion" to
/// the report. None if the text is no version.
[[nodiscard]] std::optional<sdk::VersionNumber> CheckNewVersion(const std::string& text,
                                                                const ChannelFolders& folders,
                                                                bool force, Console& console,
                                                                Diagnostics& diagnostics);

}  // namespace ve::publish
