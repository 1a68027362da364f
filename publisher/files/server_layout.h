// Where things lie on the update server, below its base URL or the folder that is served as it.
//
//   redirect.txt                          optional: another base URL
//   updates/CHANNEL/GameVersion.vpak      the game's version
//   updates/CHANNEL/game_update.manifest  its directories and files
//   updates/CHANNEL/...                   the files, by their names
//   updates/CHANNEL/updater/              the Launcher's own update:
//     updater.manifest, UpdaterData.vpak, and the executable by its name
//     published.json: what was published there last, for this tool only
#pragma once

#include <string>
#include <string_view>

#include "core/format.h"

namespace ve::publish {

inline constexpr std::wstring_view kRedirectName = L"redirect.txt";
inline constexpr std::wstring_view kVersionName = L"GameVersion.vpak";
inline constexpr std::wstring_view kManifestName = L"game_update.manifest";
inline constexpr std::wstring_view kUpdaterFolder = L"updater";
inline constexpr std::wstring_view kUpdaterManifestName = L"updater/updater.manifest";
inline constexpr std::wstring_view kUpdaterSettingsName = L"updater/UpdaterData.vpak";
inline constexpr std::wstring_view kLauncherRecordName = L"updater/published.json";

/// "updates/CHANNEL": the folder of a channel, and the URL of it without its last slash.
[[nodiscard]] inline std::wstring ChannelName(std::wstring_view channel) {
  return Format(L"updates/{}", channel);
}

}  // namespace ve::publish
