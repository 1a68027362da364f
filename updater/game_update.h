// The game update: from the comparison of versions to the installed game.
#pragma once

#include <string>
#include <string_view>

#include "net/download.h"

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

// Building blocks, also used by the preview of publish.exe.

inline constexpr const wchar_t* kUpdateAvailableCaption = L"Update available";
inline constexpr const wchar_t* kUpdateFailedCaption = L"Update failed.";
inline constexpr const wchar_t* kUpdateSuccessfulCaption = L"Update successfull.";

/// What stands in a log entry before the message of a failed game update.
[[nodiscard]] std::string GameUpdateLogPrefix(std::wstring_view updatesUrl);

/// The URL of the server's version file.
[[nodiscard]] std::wstring VersionUrl(std::wstring_view updatesUrl);

/// Downloads the server's version file without checking it; `ApplyUpdate` writes it as it is.
/// Throws `UpdaterException`.
[[nodiscard]] std::string FetchVersionFile(std::wstring_view updatesUrl,
                                           const Downloader& download = Download);

/// Downloads the text of the game update manifest. Throws `UpdaterException`.
[[nodiscard]] std::string FetchGameManifest(std::wstring_view updatesUrl,
                                            const Downloader& download = Download);

}  // namespace ve::sdk
