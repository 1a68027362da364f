#include "archive/updater_settings.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "archive/archive_reader.h"
#include "core/errors.h"

namespace ve::sdk {
namespace {

constexpr std::string_view kHeader = "UpdaterData";
constexpr std::uint32_t kFileVersion = 1;
constexpr std::array<std::wstring_view, 4> kChannels{L"alpha", L"beta", L"demo", L"release"};

}  // namespace

UpdaterSettings ReadUpdaterSettings(std::string_view bytes) {
  file::ArchiveReader reader(bytes);

  const std::string_view header = reader.ReadString();
  if (header != kHeader) {
    ThrowUpdaterException("Invalid header '{}' in UpdaterData.vpak (was expecting '{}').", header,
                          kHeader);
  }
  const std::uint32_t fileVersion = reader.ReadU32();
  if (fileVersion != kFileVersion) {
    // The header word stands where one would expect the version found, on purpose.
    ThrowUpdaterException("Invalid file-version {} in UpdaterData.vpak (supported: {}).", header,
                          kFileVersion);
  }
  const std::wstring_view url = reader.ReadWideString();
  if (url.empty()) throw UpdaterException("Empty URL in UpdaterData.vpak.");

  const std::wstring_view channel = reader.ReadWideString();
  if (std::find(kChannels.begin(), kChannels.end(), channel) == kChannels.end()) {
    // One value for two placeholders, on purpose: the channel is not shown.
    ThrowUpdaterException(
        "Invalid release-channel '{}' in UpdaterData.vpak (with file-version {}).", fileVersion);
  }
  return {url, channel};
}

}  // namespace ve::sdk
