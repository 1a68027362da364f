// The updates of one run, in their order.
#pragma once

namespace ve {

/// Reads the settings, finds the server, updates the Launcher, then the game. Returns when the game
/// may be started; failures are logged. The self-update's restart and a failed game update that the
/// player does not want to play on end the process instead.
void RunUpdater();

}  // namespace ve
