// The updater manifest, "updater.manifest": which version of the Launcher the server offers.
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
/// version below that. `judged`, if given, is the line at fault then, in the text without its
/// carriage returns, or nothing at the end of a text that ends too early.
[[nodiscard]] std::uint32_t ReadUpdaterManifest(std::string& text, std::uint32_t ownVersion,
                                                std::string_view* judged = nullptr);

/// Writes the manifest that offers `version`; for publishing. At most 255 characters of the path
/// are used, and failures of the stream are not checked.
void WriteUpdaterManifest(std::wstring_view path, std::uint32_t version);

}  // namespace ve::sdk
