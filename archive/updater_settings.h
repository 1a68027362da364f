// The updater's settings, "Updater\UpdaterData.vpak": which server to ask, and for which channel.
#pragma once

#include <string_view>

namespace ve::sdk {

/// Views into the archive's bytes, which must outlive them.
struct UpdaterSettings {
  std::wstring_view url;      ///< The server's base URL; ends with a slash by convention.
  std::wstring_view channel;  ///< "alpha", "beta", "demo" or "release".
};

/// Reads a settings archive. Throws `UpdaterException` for an invalid record and
/// `ve::file::FileException` for an invalid archive.
[[nodiscard]] UpdaterSettings ReadUpdaterSettings(std::string_view bytes);

}  // namespace ve::sdk
