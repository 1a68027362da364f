#include "archive/updater_settings.h"

#include <algorithm>
#include <cstdint>

#include "core/errors.h"

namespace ve::sdk {

UpdaterSettings ReadUpdaterSettings(std::string_view bytes) {
  file::ArchiveReader reader(bytes);
  const std::string_view header = reader.ReadString();
  if (header != UpdaterSettings::kHeader) {
    ThrowUpdaterException("Invalid header '{}' in UpdaterData.vpak (was expecting '{}').", header,
                          UpdaterSettings::kHeader);
  }
  const std::uint32_t fileVersion = reader.ReadU32();
  if (fileVersion != UpdaterSettings::kFileVersion) {
    // The header word stands in the place of the version: support knows the message in this form.
    ThrowUpdaterException("Invalid file-version {} in UpdaterData.vpak (supported: {}).", header,
                          UpdaterSettings::kFileVersion);
  }
  const std::wstring_view url = reader.ReadWideString();
  if (url.empty()) throw UpdaterException("Empty URL in UpdaterData.vpak.");

  const std::wstring_view channel = reader.ReadWideString();
  if (std::find(kReleaseChannels.begin(), kReleaseChannels.end(), channel) ==
      kReleaseChannels.end()) {
    // One value for two placeholders: the message ends with "{INVALID}" and does not show the
    // channel. Support knows it in this form.
    ThrowUpdaterException(
        "Invalid release-channel '{}' in UpdaterData.vpak (with file-version {}).", fileVersion);
  }
  return {url, channel};
}

}  // namespace ve::sdk
