// The updater's settings, "Updater\UpdaterData.vpak": which server to ask, and for which channel.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "archive/archive_reader.h"

namespace ve::sdk {

/// Where the settings are installed.
inline constexpr std::wstring_view kSettingsFile = L"Updater\\UpdaterData.vpak";

inline constexpr std::array<std::wstring_view, 4> kReleaseChannels{L"alpha", L"beta", L"demo",
                                                                   L"release"};

/// The record's fields, after its header word and file version. Views into the archive's bytes,
/// which must outlive them.
struct UpdaterSettings {
  static constexpr std::string_view kHeader = "UpdaterData";
  static constexpr std::uint32_t kFileVersion = 1;

  std::wstring_view url;      ///< The server's base URL; ends with a slash by convention.
  std::wstring_view channel;  ///< One of `kReleaseChannels`.
};

/// Reads a settings archive. Throws `UpdaterException` for an invalid record and
/// `ve::file::FileException` for an invalid archive.
[[nodiscard]] UpdaterSettings ReadUpdaterSettings(std::string_view bytes);

}  // namespace ve::sdk
