// Log entries about failed updates.
#pragma once

#include <string_view>

namespace ve::sdk {

/// Appends the entry: "Error while running updater:", then `stage` directly followed by `message`.
void LogUpdaterFailure(std::string_view stage, std::string_view message);

}  // namespace ve::sdk
