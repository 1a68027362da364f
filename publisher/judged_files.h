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
struct Rejection {
  std::string message;   ///< The reader's own, word for word.
  std::size_t offset;    ///< In the file, of the bytes or the line at fault.
  std::size_t line = 0;  ///< In a manifest, counted from 1 and with the empty ones.
};

/// Where the rejection is, in words: "at byte 9".
[[nodiscard]] std::string PlaceInWords(const Rejection& rejection);

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

[[nodiscard]] std::variant<SettingsFile, Rejection> JudgeSettings(std::string_view bytes);
[[nodiscard]] std::variant<VersionFile, Rejection> JudgeVersion(std::string_view bytes);

/// The version that the manifest offers, as a Launcher of any version reads it.
[[nodiscard]] std::variant<std::uint32_t, Rejection> JudgeUpdaterManifest(std::string_view content);

/// `text` becomes the content that the manifest's views point into.
[[nodiscard]] std::variant<sdk::GameUpdateManifest, Rejection> JudgeGameManifest(
    std::string_view content, std::string& text);

/// The two modes in words: "plain", "checked".
[[nodiscard]] std::string_view ModeInWords(file::ArchiveMode mode);

/// Whether the bytes begin as an archive does.
[[nodiscard]] bool HasArchiveMagic(std::string_view bytes);

}  // namespace ve::publish
