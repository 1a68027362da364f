// Which of the Launcher's files some content is.
#pragma once

#include <string_view>

namespace ve::publish {

enum class FileKind {
  kSettings,         ///< "UpdaterData.vpak"
  kVersion,          ///< "GameVersion.vpak"
  kGameManifest,     ///< "game_update.manifest"
  kUpdaterManifest,  ///< "updater.manifest"
  kUnknown,
};

/// Judges by the content alone, and so that a file with one fault is still told: a manifest by its
/// first line or else by the key of its third.
[[nodiscard]] FileKind KindOf(std::string_view content);

}  // namespace ve::publish
