// The updates of one run, in their order.
#pragma once

#include <string>
#include <string_view>

namespace ve {

/// The game, which every run ends with, and the directory that it is started in.
inline constexpr std::wstring_view kGameProgram = L"bin\\Velmorant Player.exe";
inline constexpr std::wstring_view kGameDirectory = L"bin\\";

/// The URL below which a channel's updates lie, with its last slash. The base is what the server
/// has in "redirect.txt" below the configured URL, taken exactly as it is, or else the configured
/// URL; only one redirection is followed.
[[nodiscard]] std::wstring FindUpdatesUrl(std::wstring_view configuredUrl,
                                          std::wstring_view channel);

/// The stage of a failure to read the settings, as its log entry names it.
inline constexpr std::string_view kSettingsLogPrefix = "While trying to access updater-data.";

/// Reads the settings, finds the server, updates the Launcher, then the game. Returns when the game
/// may be started; failures are logged. The self-update's restart and a failed game update that the
/// player does not want to play on end the process instead.
void RunUpdater();

}  // namespace ve
