// The updater manifest, "updater.manifest": which version of the Launcher the server offers.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ve::sdk {

/// The lowest format version that is read. There is no highest: later formats are read like this
/// one.
inline constexpr std::uint32_t kMinimumFileVersion = 1;

/// Reads the manifest, removes the carriage returns from `text` in place, and returns the offered
/// version. Throws `UpdaterException` if the manifest is not valid or offers a version below
/// `ownVersion`.
[[nodiscard]] std::uint32_t ReadUpdaterManifest(std::string& text, std::uint32_t ownVersion);

/// Writes the manifest that offers `version`. Uses at most 255 characters of the path and ignores
/// write errors. Not called by the Launcher; part of the support library for publishing.
void WriteUpdaterManifest(std::wstring_view path, std::uint32_t version);

}  // namespace ve::sdk
