#include "publisher/channel/channel_files.h"

#include <algorithm>
#include <cstdint>
#include <span>

#include "archive/archive_reader.h"
#include "archive/archive_writer.h"
#include "archive/updater_settings.h"
#include "core/errors.h"
#include "core/format.h"
#include "updater/game_manifest.h"

namespace ve::publish {

std::string GameManifest(const BuildFolder& build) {
  std::string text =
      Format("GameUpdate\nFileVersion: 1\nDirectories: {}\n", build.directories.size());
  for (const std::wstring& directory : build.directories) text += Format("{}\n", directory);
  text += "Files:\n";
  for (const BuildFile& file : build.files) {
    text += Format("'{}' {} {}\n", file.name, file.size, file.digest);
  }
  std::string copy = text;  // The reader changes it, and the manifest has views into it.
  const sdk::GameUpdateManifest manifest = sdk::ReadGameUpdateManifest(copy);
  const auto isSame = [](const sdk::FileEntry& read, const BuildFile& file) {
    return read.name == file.name && read.size == file.size && read.digest == file.digest;
  };
  if (!std::ranges::equal(manifest.directories, build.directories, {}, sdk::WidenName) ||
      !std::ranges::equal(manifest.files, build.files, isSame)) {
    throw VERuntimeError("the manifest does not read back as the build that it was made from");
  }
  return text;
}

std::string VersionArchive(const sdk::VersionNumber& version, file::ArchiveMode mode) {
  file::ArchiveWriter writer(mode);
  writer.WriteString(sdk::GameVersion::kHeader);
  writer.WriteU32(sdk::GameVersion::kFileVersion);
  writer.WriteBlock16(std::as_bytes(std::span(version.words)));
  return writer.Bytes();
}

std::string SettingsArchive(std::wstring_view url, std::wstring_view channel,
                            file::ArchiveMode mode) {
  file::ArchiveWriter writer(mode);
  writer.WriteString(sdk::UpdaterSettings::kHeader);
  writer.WriteU32(sdk::UpdaterSettings::kFileVersion);
  writer.WriteWideString(url);
  writer.WriteWideString(channel);
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
