// The game's version: its record, "GameVersion.vpak", and whether the server has a newer one.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "archive/archive_reader.h"
#include "net/download.h"

namespace ve::sdk {

/// Where the installed game's version is recorded.
inline constexpr std::wstring_view kGameVersionFile = L"Updater\\GameVersion.vpak";

/// Four words in the order of the file: the least significant first, the most significant last.
struct VersionNumber {
  std::array<std::int32_t, 4> words{};

  [[nodiscard]] bool operator==(const VersionNumber&) const = default;
  /// Compares from the last word to the first, as signed numbers.
  [[nodiscard]] std::strong_ordering operator<=>(const VersionNumber& other) const noexcept;
};

/// The record's fields, in their order.
struct GameVersion {
  static constexpr std::string_view kHeader = "GameVersion";
  static constexpr std::uint32_t kFileVersion = 1;
};

/// Reads the version number, the record's last field.
[[nodiscard]] VersionNumber ReadVersionNumber(file::ArchiveReader& reader);

/// The installed version in the current directory; none if there is no version file, or one with
/// another header word or file version. The file is closed again on return: the update writes it at
/// its end. Throws what the archive reader throws.
[[nodiscard]] std::optional<VersionNumber> ReadInstalledVersion();

/// The version in the server's version file. Throws `UpdaterException` if it is no version file,
/// and what the archive reader throws.
[[nodiscard]] VersionNumber ReadOfferedVersion(std::string_view bytes);
/// The same from a reader at the begin of the record.
[[nodiscard]] VersionNumber ReadOfferedVersion(file::ArchiveReader& reader);

/// Whether the installed version is missing, not understood or older than the server's.
///
/// If it is older, `pendingVersion` becomes the server's version file as downloaded. A local file
/// that is missing or has another header word or file version is simply an old game: nothing is
/// downloaded and `pendingVersion` stays empty. Throws `UpdaterException` if the server's file
/// cannot be had or is not a version file, and what the archive reader throws for either file.
[[nodiscard]] bool CheckGameVersion(std::wstring_view versionUrl,
                                    std::optional<std::string>& pendingVersion,
                                    const Downloader& download = Download);

}  // namespace ve::sdk
