// The game update: from the comparison of versions to the installed game.
#pragma once

#include <string_view>

namespace ve::sdk {

/// Brings the game in the current directory up to date from `updatesUrl`, which ends with a slash,
/// if the server has a newer version and the player agrees.
///
/// Returns when the game may be started: there was nothing to do, the player declined, the update
/// succeeded, the comparison failed, or the update failed before the first file and the player
/// starts the old version. Logs failures. Ends the process with exit code -1 when the player does
/// not want the old version. A failure after the progress thread has started ends the process
/// through std::terminate, without a dialog, a log entry or the game.
void RunGameUpdate(std::wstring_view updatesUrl);

}  // namespace ve::sdk
