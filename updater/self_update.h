// The self-update: the Launcher's own executable and its settings archive.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "net/download.h"

namespace ve::sdk {

/// Brings the Launcher up to date from the "updater/" folder below `updatesUrl`, which ends with a
/// slash. `settings` is the settings archive as it was read at the start.
///
/// Returns when the Launcher and its settings are current, or after a failure, which it logs. After
/// replacing the executable or the settings archive, starts the new Launcher and ends this process
/// with exit code 0.
///
/// Leaves on disk one of: the current build; the new build, with the previous one beside it as
/// "_old.exe" until the next start; the previous build again, after a failed replacement. If the
/// rollback fails, too, or the process is killed, "_old.exe" may be the only complete build.
void RunSelfUpdate(std::wstring_view updatesUrl, std::string_view settings);

// Building blocks, also used by the preview of publish.exe.

/// The name of the previous executable after an update.
inline constexpr std::wstring_view kParkedExecutable = L"_old.exe";

inline constexpr const wchar_t* kRestartCaption = L"Restart required.";
inline constexpr const wchar_t* kSelfUpdateFailedCaption =
    L"Error while loading new version of updater";

/// The URL of the folder that the Launcher's own update is in.
[[nodiscard]] std::wstring UpdaterUrl(std::wstring_view updatesUrl);

/// What stands in a log entry before the message of a failed self-update.
[[nodiscard]] std::string SelfUpdateLogPrefix(std::wstring_view updaterUrl);

/// Downloads and reads the updater manifest. Returns the offered version, `ownVersion` or higher.
/// Throws `UpdaterException`.
[[nodiscard]] std::uint32_t FetchOfferedLauncher(std::wstring_view updaterUrl,
                                                 std::uint32_t ownVersion,
                                                 const Downloader& download = Download);

/// Downloads the offered executable. Throws `UpdaterException`.
[[nodiscard]] std::string FetchNewBuild(std::wstring_view updaterUrl, std::wstring_view executable,
                                        const Downloader& download = Download);

/// Downloads the server's settings archive. Throws `UpdaterException`.
[[nodiscard]] std::string FetchSettings(std::wstring_view updaterUrl,
                                        const Downloader& download = Download);

}  // namespace ve::sdk
