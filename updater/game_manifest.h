// The game update manifest, "game_update.manifest": the directories and files of one version of the
// game.
//
//   GameUpdate
//   FileVersion: 1
//   Directories: 2
//   bin
//   bin/data
//   Files:
//   'bin/Game.dll' 1048576 0123456789abcdef0123456789abcdef
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ve::sdk {

struct FileEntry {
  std::wstring name;        ///< Below the game root, as listed ("/" separates), widened.
  std::uint64_t size;       ///< In bytes, never 0.
  std::string_view digest;  ///< MD5: 32 characters, not checked to be hexadecimal.
};

/// The manifest's directories and files, in file order. Directories and digests are views into the
/// manifest's text, which must stay alive and unchanged while they are used.
struct GameUpdateManifest {
  std::vector<std::string_view> directories;
  std::vector<FileEntry> files;
};

/// Reads the manifest and removes the carriage returns from `text` in place, even if it throws.
/// Strict, because the update deletes what the manifest does not list: throws `UpdaterException` at
/// the first line that is not valid.
[[nodiscard]] GameUpdateManifest ReadGameUpdateManifest(std::string& text);

/// A listed name as wide text: one unit per byte, extended by the byte's sign, not decoded. Names
/// are meant to be ASCII.
[[nodiscard]] std::wstring WidenName(std::string_view name);

}  // namespace ve::sdk
