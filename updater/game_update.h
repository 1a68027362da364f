// The game update: from the comparison of versions to the installed game.
#pragma once

#include <string>
#include <string_view>

#include "net/download.h"

namespace ve::sdk {

/// Brings the game in the current directory up to date from `updatesUrl`, which ends with a slash,
/// if the server has a newer version and the player agrees.
///
/// Returns when the game may be started: nothing to do, declined, done, the comparison failed, or
/// the update failed before a file was fetched and the player wants the old version; failures are
/// logged. Ends the process with exit code -1 when the player does not want it. A failure after the
/// progress thread has started ends the process through std::terminate: no dialog, no log entry, no
/// game.
void RunGameUpdate(std::wstring_view updatesUrl);

// Its parts, for whoever has to foretell it.

inline constexpr const wchar_t* kUpdateAvailableCaption = L"Update available";
inline constexpr const wchar_t* kUpdateFailedCaption = L"Update failed.";
inline constexpr const wchar_t* kUpdateSuccessfulCaption = L"Update successfull.";

/// The stage as the log entry of a failure names it.
[[nodiscard]] std::string GameUpdateLogPrefix(std::wstring_view updatesUrl);

/// The URL of the server's version file.
[[nodiscard]] std::wstring VersionUrl(std::wstring_view updatesUrl);

/// The server's version file, unread. Throws `UpdaterException`.
[[nodiscard]] std::string FetchVersionFile(std::wstring_view updatesUrl,
                                           const Downloader& download = Download);

/// The text of the game update manifest. Throws `UpdaterException`.
[[nodiscard]] std::string FetchGameManifest(std::wstring_view updatesUrl,
                                            const Downloader& download = Download);

}  // namespace ve::sdk
