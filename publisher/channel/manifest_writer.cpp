#include "publisher/channel/manifest_writer.h"

#include <algorithm>

#include "core/errors.h"
#include "core/format.h"
#include "publisher/channel/archive_records.h"
#include "updater/game_manifest.h"

namespace ve::publish {
namespace {

bool SameDirectories(const sdk::GameUpdateManifest& manifest, const BuildFolder& build) {
  return std::equal(manifest.directories.begin(), manifest.directories.end(),
                    build.directories.begin(), build.directories.end(),
                    [](std::string_view read, const std::wstring& meant) {
                      return sdk::WidenName(read) == meant;
                    });
}

bool SameFiles(const sdk::GameUpdateManifest& manifest, const BuildFolder& build) {
  return std::equal(manifest.files.begin(), manifest.files.end(), build.files.begin(),
                    build.files.end(), [](const sdk::FileEntry& read, const BuildFile& meant) {
                      return read.name == meant.name && read.size == meant.size &&
                             read.digest == meant.digest;
                    });
}

/// `text` is a copy: the manifest holds views into it.
void CheckByReading(std::string text, const BuildFolder& build) {
  const sdk::GameUpdateManifest manifest = sdk::ReadGameUpdateManifest(text);
  if (SameDirectories(manifest, build) && SameFiles(manifest, build)) return;
  throw VERuntimeError("the manifest does not read back as the build that it was made from");
}

}  // namespace

std::string GameManifest(const BuildFolder& build) {
  std::string text =
      Format("GameUpdate\nFileVersion: 1\nDirectories: {}\n", build.directories.size());
  for (const std::wstring& directory : build.directories) text += Format("{}\n", directory);
  text += "Files:\n";
  for (const BuildFile& file : build.files) {
    text += Format("'{}' {} {}\n", file.name, file.size, file.digest);
  }
  CheckByReading(text, build);
  return text;
}

std::string GameVersionFile(const sdk::VersionNumber& version) {
  std::string bytes = VersionArchive(version);
  if (sdk::ReadOfferedVersion(bytes) != version) {
    throw VERuntimeError("the version file does not read back as the version that it was made for");
  }
  return bytes;
}

}  // namespace ve::publish
