// The game update: from the comparison of versions to the installed game.
#pragma once

#include <string_view>

namespace ve::sdk {

/// Brings the game in the current directory up to date from `updatesUrl`, which ends with a slash,
/// if the server has a newer version and the player agrees.
///
/// Returns when the game may be started: nothing to do, declined, done, the comparison failed, or
/// the update failed before a file was fetched and the player wants the old version; failures are
/// logged. Ends the process with exit code -1 when the player does not want it. A failure after the progress thread has started
/// ends the process through std::terminate: no dialog, no log entry, no game.
void RunGameUpdate(std::wstring_view updatesUrl);

}  // namespace ve::sdk
