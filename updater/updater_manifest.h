// The updater manifest, "updater.manifest": which version of the Launcher the server offers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "updater/updater_manifest_reader.h"

namespace ve::sdk {

/// The version of this build of the Launcher. It is told by nothing else, not even by the
/// executable's own version resource.
inline constexpr std::uint32_t kOwnUpdaterVersion = LAUNCHER_VERSION;

/// Reads the manifest as this build does.
[[nodiscard]] inline std::uint32_t ReadUpdaterManifest(std::string& text) {
  return ReadUpdaterManifest(text, kOwnUpdaterVersion);
}

/// Writes the manifest that offers this build's version; for publishing. At most 255 characters of
/// the path are used, and failures of the stream are not checked.
void WriteUpdaterManifest(std::wstring_view path);

}  // namespace ve::sdk
