// The Launcher's readers on the studio's side: what they read, or what they reject and where.
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

/// Why a reader rejects a file.
struct ParseError {
  std::string message;   ///< The reader's own, word for word.
  std::size_t offset;    ///< In the file, of the bytes or the line at fault.
  std::size_t line = 0;  ///< In a manifest, counted from 1 and with the empty ones.
};

/// Where the error is, in words: "at byte 9".
[[nodiscard]] std::string FormatLocation(const ParseError& error);

/// What all archives have.
struct ArchiveFacts {
  file::ArchiveMode mode;
  std::size_t end;  ///< Where the record ends; what follows is not read.
};

struct SettingsFile {
  ArchiveFacts archive;
  std::string url;
  std::string channel;
};

struct VersionFile {
  ArchiveFacts archive;
  sdk::VersionNumber version;
  bool complete;  ///< False if the file ends in front of the version or in it: it is read as 0.
};

[[nodiscard]] std::variant<SettingsFile, ParseError> ParseSettings(std::string_view bytes);
[[nodiscard]] std::variant<VersionFile, ParseError> ParseVersionFile(std::string_view bytes);

/// The version that the manifest offers, as a Launcher of any version reads it.
[[nodiscard]] std::variant<std::uint32_t, ParseError> ParseUpdaterManifest(
    std::string_view content);

/// `text` becomes the content that the manifest's views point into.
[[nodiscard]] std::variant<sdk::GameUpdateManifest, ParseError> ParseGameManifest(
    std::string_view content, std::string& text);

/// The two modes in words: "plain", "checked".
[[nodiscard]] std::string_view ModeInWords(file::ArchiveMode mode);

/// Whether the bytes begin as an archive does.
[[nodiscard]] bool HasArchiveMagic(std::string_view bytes);

}  // namespace ve::publish
