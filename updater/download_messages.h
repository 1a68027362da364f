// The log's messages about failed downloads, as formats: the last value is the download's own
// error.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "core/errors.h"
#include "net/download.h"

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
/// The same file, downloaded after the player has agreed because no version was installed.
inline constexpr std::string_view kPendingVersionDownloadFailed =
    "Failed to download remote game-version file with error: '{}'";
inline constexpr std::string_view kManifestDownloadFailed =
    "Failed to download game-update-manifest file with error: '{}'";
/// The first value is the file's URL.
inline constexpr std::string_view kFileDownloadFailed =
    "Failed to download game-file '{}' with error: '{}'";

/// Downloads a file. Throws `UpdaterException` with the message `failure`, composed of `values` and
/// the download's error.
template <class... Values>
[[nodiscard]] std::string DownloadOrThrow(std::wstring_view url, std::string_view failure,
                                          const Values&... values) {
  DownloadResult result = Download(url);
  if (!result.Succeeded()) ThrowUpdaterException(failure, values..., result.Error());
  return std::move(result.Body());
}

}  // namespace ve::sdk
