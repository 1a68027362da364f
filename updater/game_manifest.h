// The game update manifest, "game_update.manifest": the directories and files of one version of the
// game.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace ve::sdk {

struct FileEntry {
  std::wstring_view name;   ///< Below the game root, with "/"; each byte widened by its sign.
  std::uint64_t size;       ///< In bytes, never 0.
  std::string_view digest;  ///< MD5, 32 characters, compared as they stand.
};

/// The memory that the names of a manifest stand in, one behind the other in few large blocks: an
/// allocation for each name would take longer than all else that is done to read it. Views of the
/// names stay valid while this lives, also when it is moved; what it was moved from is used no
/// more.
class NameStore {
 public:
  /// Keeps the name, each byte widened by its sign.
  [[nodiscard]] std::wstring_view Add(std::string_view name);

 private:
  std::vector<std::unique_ptr<wchar_t[]>> blocks_;
  wchar_t* free_ = nullptr;
  std::size_t freeLength_ = 0;
};

/// Directories and digests are views into the text that the manifest was read from; it must stay
/// alive and unchanged while they are used. The names are views into the manifest's own memory.
struct GameUpdateManifest {
  std::vector<std::string_view> directories;
  std::vector<FileEntry> files;
  NameStore names = {};
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
