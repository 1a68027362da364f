// What the Launcher's readers make of a published file: its content, or the error they report.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "archive/archive_format.h"
#include "updater/game_manifest.h"
#include "updater/game_version.h"

namespace ve::publish {

/// A reader's own message, word for word as a player's log has it.
struct ParseError {
  std::string message;
};

struct SettingsFile {
  std::string url;
  std::string channel;
  std::size_t
      recordSize;  ///< In bytes, with the archive's header. Launchers do not read what follows.
};

struct VersionFile {
  sdk::VersionNumber version;
  std::size_t recordSize;  ///< A file that is shorter breaks off: the version is read as 0.
};

[[nodiscard]] std::variant<SettingsFile, ParseError> ParseSettings(std::string_view bytes);
[[nodiscard]] std::variant<VersionFile, ParseError> ParseVersionFile(std::string_view bytes);

/// The version that the manifest offers, whatever the reading Launcher's own version is.
[[nodiscard]] std::variant<std::uint32_t, ParseError> ParseUpdaterManifest(
    std::string_view content);

/// Sets `text` to the content that the manifest's views point into.
[[nodiscard]] std::variant<sdk::GameUpdateManifest, ParseError> ParseGameManifest(
    std::string_view content, std::string& text);

/// The mode that the archive's header states.
[[nodiscard]] file::ArchiveMode ModeOf(std::string_view bytes);

/// Whether the bytes begin as an archive does.
[[nodiscard]] bool HasArchiveMagic(std::string_view bytes);

}  // namespace ve::publish
