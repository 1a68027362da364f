// The game's version: its record, "GameVersion.vpak", and whether the server has a newer one.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "archive/archive_reader.h"

namespace ve::sdk {

/// Where the installed game's version is recorded.
inline constexpr std::wstring_view kGameVersionFile = L"Updater\\GameVersion.vpak";

/// Four words in file order: the least significant first, the most significant last. Published
/// version files depend on this order.
struct VersionNumber {
  std::array<std::int32_t, 4> words{};

  [[nodiscard]] bool operator==(const VersionNumber&) const = default;
  /// Compares from the last word to the first, as signed numbers.
  [[nodiscard]] std::strong_ordering operator<=>(const VersionNumber& other) const noexcept;
};

/// The record, with its fields in file order.
struct GameVersion {
  static constexpr std::string_view kHeader = "GameVersion";
  static constexpr std::uint32_t kFileVersion = 1;

  std::string header;             ///< `kHeader` in a version file.
  std::uint32_t fileVersion = 0;  ///< `kFileVersion` in a version file that this program reads.
  VersionNumber number;

  [[nodiscard]] bool IsSupported() const noexcept {
    return header == kHeader && fileVersion == kFileVersion;
  }
};

/// Whether the installed version is missing, not supported or older than the server's.
///
/// If it is older, sets `pendingVersion` to the server's version file as downloaded. If it is
/// missing or not supported, downloads nothing and leaves `pendingVersion` as it is. Throws
/// `UpdaterException` if the server's file cannot be downloaded or is not supported, and what the
/// archive reader throws for either file.
[[nodiscard]] bool CheckGameVersion(std::wstring_view versionUrl,
                                    std::optional<std::string>& pendingVersion);

// Building blocks, also used by publish.exe.

/// Reads the record from a reader positioned at its start. Stops after the first field that is not
/// as in a supported version file and leaves the rest as it is: another record has other fields.
/// Throws what the archive reader throws.
[[nodiscard]] GameVersion ReadGameVersion(file::ArchiveReader& reader);

/// The installed version in the current directory; none without a version file, or with one that is
/// not supported. Closes the file on return, because the update writes it at its end. Throws what
/// the archive reader throws.
[[nodiscard]] std::optional<VersionNumber> ReadInstalledVersion();

/// The version in the server's version file. Throws `UpdaterException` if the file is not
/// supported, and what the archive reader throws.
[[nodiscard]] VersionNumber ReadOfferedVersion(std::string_view bytes);

}  // namespace ve::sdk
