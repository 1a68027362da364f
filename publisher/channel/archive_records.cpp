#include "publisher/channel/archive_records.h"

#include <cstdint>
#include <span>

#include "archive/archive_reader.h"
#include "archive/archive_writer.h"
#include "archive/updater_settings.h"
#include "core/format.h"

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

file::ArchiveMode ModeOf(std::string_view bytes) { return file::ArchiveReader(bytes).Mode(); }

void CheckRecordSize(std::string_view bytes, const std::string& record, const std::string& location,
                     Diagnostics& diagnostics) {
  if (bytes.size() < record.size()) {
    diagnostics.AddError(location, "the file ends before its version does",
                         "The Launcher reads what is missing as 0.0.0.0. Publish again.");
  } else if (bytes.size() > record.size()) {
    diagnostics.AddWarning(location,
                           Format("{} bytes follow the record", bytes.size() - record.size()),
                           "The Launcher does not read them. The file may be damaged.");
  }
}

}  // namespace ve::publish
