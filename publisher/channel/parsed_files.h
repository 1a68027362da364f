// Reads published files with the Launcher's own readers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "archive/archive_format.h"
#include "publisher/report/diagnostics.h"
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
  std::size_t recordSize;  ///< In bytes, with the archive's header.
};

struct VersionFile {
  sdk::VersionNumber version;
  std::size_t recordSize;
};

[[nodiscard]] std::variant<SettingsFile, ParseError> ParseSettings(std::string_view bytes);
[[nodiscard]] std::variant<VersionFile, ParseError> ParseVersionFile(std::string_view bytes);

/// The version that the manifest offers, whatever the reading Launcher's own version is.
[[nodiscard]] std::variant<std::uint32_t, ParseError> ParseUpdaterManifest(
    std::string_view content);

/// Sets `text` to the content that the manifest's views point into.
[[nodiscard]] std::variant<sdk::GameUpdateManifest, ParseError> ParseGameManifest(
    std::string_view content, std::string& text);

/// The mode in the header of an archive that was parsed.
[[nodiscard]] file::ArchiveMode ModeOf(std::string_view bytes);

/// Adds an error if an archive's file is shorter than its record, and a warning if it is longer.
void CheckRecordSize(std::size_t recordSize, std::size_t size, const std::string& location,
                     Diagnostics& diagnostics);

}  // namespace ve::publish
