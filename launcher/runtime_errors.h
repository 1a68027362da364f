// How the C runtime reports a program that ends abnormally.
#pragma once

namespace ve {

/// Keeps the C runtime from showing a box of its own when the process is terminated: a GUI
/// program's abort() would otherwise wait for the player to close it. The exit code stays abort's.
/// Not done with SetErrorMode, which the game would inherit.
void SuppressCrtErrorDialog() noexcept;

}  // namespace ve
