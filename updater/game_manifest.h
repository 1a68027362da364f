// The game update manifest, "game_update.manifest": the directories and files of one version of the
// game.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ve::sdk {

struct FileEntry {
  std::wstring name;        ///< Below the game root, with "/"; each byte widened by its sign.
  std::uint64_t size;       ///< In bytes, never 0.
  std::string_view digest;  ///< MD5, 32 characters, compared as they stand.
};

/// The entry of a file line that was found right. The digest is a view into the line.
[[nodiscard]] FileEntry EntryOf(std::string_view fileLine);

/// Directories, file lines and digests are views into the text that the manifest was read from; it
/// must stay alive and unchanged while they are used.
struct GameUpdateManifest {
  std::vector<std::string_view> directories;
  /// All of them found right. An entry is made of its line when it is asked for: to keep one of
  /// each, with its name twice as wide as it came, would take longer than all else that is done to
  /// read a manifest.
  std::vector<std::string_view> fileLines;
};

/// Reads the manifest, whose carriage returns are removed in place. Strict, because what the
/// manifest does not list gets deleted: throws `UpdaterException` at the first line that is not
/// right. `judged`, if given, is that line then, in the text without its carriage returns, or
/// nothing at the end of a text that ends too early.
[[nodiscard]] GameUpdateManifest ReadGameUpdateManifest(std::string& text,
                                                        std::string_view* judged = nullptr);

/// A name of the manifest as the wide text that paths are made from: byte by byte, not decoded.
[[nodiscard]] std::wstring WidenName(std::string_view name);

}  // namespace ve::sdk
