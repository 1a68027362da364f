#include "publisher/channel/archive_records.h"

#include <cstdint>
#include <span>

#include "archive/archive_writer.h"
#include "archive/updater_settings.h"

namespace ve::publish {

std::string SettingsArchive(std::wstring_view url, std::wstring_view channel,
                            file::ArchiveMode mode) {
  file::ArchiveWriter writer(mode);
  writer.WriteString(sdk::UpdaterSettings::kHeader);
  writer.WriteU32(sdk::UpdaterSettings::kFileVersion);
  writer.WriteWideString(url);
  writer.WriteWideString(channel);
  return writer.Bytes();
}

std::string VersionArchive(const sdk::VersionNumber& version, file::ArchiveMode mode) {
  file::ArchiveWriter writer(mode);
  writer.WriteString(sdk::GameVersion::kHeader);
  writer.WriteU32(sdk::GameVersion::kFileVersion);
  writer.WriteBlock16(std::as_bytes(std::span(version.words)));
  return writer.Bytes();
}

}  // namespace ve::publish
