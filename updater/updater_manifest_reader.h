// Reads the updater manifest. What this build makes of it is in updater_manifest.h.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ve::sdk {

/// The lowest format version that is read. There is no highest: newer formats are read like this
/// one.
inline constexpr std::uint32_t kMinimumFileVersion = 1;

/// Reads the manifest, whose carriage returns are removed in place, and returns the offered
/// version, which is `ownVersion` or a higher one. Throws `UpdaterException`, also for an offered
/// version below that.
[[nodiscard]] std::uint32_t ReadUpdaterManifest(std::string& text, std::uint32_t ownVersion);

}  // namespace ve::sdk
