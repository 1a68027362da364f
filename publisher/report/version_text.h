// Version numbers as people write them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "updater/game_version.h"

namespace ve::publish {

/// "1.4.0.2": four numbers from 0 to 2147483647, the most significant first (the file holds it
/// last). None for any other text.
[[nodiscard]] std::optional<sdk::VersionNumber> ParseVersion(std::string_view text);

/// The same text again; a version file may also hold negative numbers.
[[nodiscard]] std::string VersionText(const sdk::VersionNumber& version);

}  // namespace ve::publish
