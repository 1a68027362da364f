// Log entries about failed updates.
#pragma once

#include <string>
#include <string_view>

namespace ve::sdk {

/// The entry: "Error while running updater:", then `stage` directly followed by `message`.
[[nodiscard]] std::string UpdaterFailureText(std::string_view stage, std::string_view message);

/// Appends that entry.
void LogUpdaterFailure(std::string_view stage, std::string_view message);

}  // namespace ve::sdk
