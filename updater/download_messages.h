// What the log says about downloads that failed. Texts for the formatter: the last value is the
// download's own error.
#pragma once

#include <string_view>

namespace ve::sdk {

inline constexpr std::string_view kUpdaterManifestDownloadFailed =
    "Failed to download updater-manifest file with error: '{}'";
inline constexpr std::string_view kSettingsDownloadFailed =
    "Failed to download updater-data file with error: '{}'";
/// The first value is the executable's name.
inline constexpr std::string_view kExecutableDownloadFailed =
    "Failed to download new updater-exe '{}'. {}";
inline constexpr std::string_view kVersionDownloadFailed =
    "Failed to download game-version file with error: '{}'";
inline constexpr std::string_view kManifestDownloadFailed =
    "Failed to download game-update-manifest file with error: '{}'";
/// The first value is the file's URL.
inline constexpr std::string_view kFileDownloadFailed =
    "Failed to download game-file '{}' with error: '{}'";

}  // namespace ve::sdk
