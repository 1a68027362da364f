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
/// Returns when there was nothing to do, or after a failure, which it has logged. When it has
/// replaced the executable or the settings archive it starts the Launcher anew and ends this
/// process with exit code 0. On disk it leaves the current build; the new build with the previous
/// one beside it as "_old.exe", which the next start deletes; or, where installing the new build
/// failed, the previous one put back.
void RunSelfUpdate(std::wstring_view updatesUrl, std::string_view settings);

// Its parts, for whoever has to foretell it.

/// Where the previous executable is put during an update.
inline constexpr std::wstring_view kParkedExecutable = L"_old.exe";

inline constexpr const wchar_t* kRestartCaption = L"Restart required.";
inline constexpr const wchar_t* kSelfUpdateFailedCaption =
    L"Error while loading new version of updater";

/// The URL of the folder that the Launcher's own update is in.
[[nodiscard]] std::wstring UpdaterUrl(std::wstring_view updatesUrl);

/// The stage as the log entry of a failure names it.
[[nodiscard]] std::string SelfUpdateLogPrefix(std::wstring_view updaterUrl);

/// The version of the Launcher that the server offers to one of version `ownVersion`. Throws
/// `UpdaterException`.
[[nodiscard]] std::uint32_t FetchOfferedLauncher(std::wstring_view updaterUrl,
                                                 std::uint32_t ownVersion,
                                                 const Downloader& download = Download);

/// The offered executable. Throws `UpdaterException`.
[[nodiscard]] std::string FetchNewBuild(std::wstring_view updaterUrl, std::wstring_view executable,
                                        const Downloader& download = Download);

/// The server's settings archive. Throws `UpdaterException`.
[[nodiscard]] std::string FetchSettings(std::wstring_view updaterUrl,
                                        const Downloader& download = Download);

}  // namespace ve::sdk
