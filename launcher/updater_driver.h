// The updates of one run, in their order.
#pragma once

#include <string>
#include <string_view>

namespace ve {

/// The game, relative to its root, and the directory that it is started in.
inline constexpr std::wstring_view kGameProgram = L"bin\\Velmorant Player.exe";
inline constexpr std::wstring_view kGameDirectory = L"bin\\";

/// The URL below which a channel's updates lie, with its last slash. The base is what the server
/// has in "redirect.txt" below the configured URL, taken exactly as it is, or else the configured
/// URL; only one redirection is followed.
[[nodiscard]] std::wstring FindUpdatesUrl(std::wstring_view configuredUrl,
                                          std::wstring_view channel);

/// Reads the settings, finds the server, updates the Launcher, then the game. Logs failures and
/// returns when the game may be started. Ends the process instead when the self-update restarts the
/// Launcher, and when the game update fails and the player does not want the old version.
void RunUpdater();

}  // namespace ve
