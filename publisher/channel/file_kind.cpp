#include "publisher/channel/file_kind.h"

#include <algorithm>
#include <array>
#include <string>

#include "archive/archive_reader.h"
#include "archive/updater_settings.h"
#include "core/errors.h"
#include "publisher/channel/parsed_files.h"
#include "updater/game_version.h"
#include "updater/manifest_text.h"

namespace ve::publish {
namespace {

constexpr std::size_t kHeadLength = 4096;  // More than three lines of a manifest are.

FileKind KindOfArchive(std::string_view bytes) {
  try {
    file::ArchiveReader reader(bytes);
    const std::string_view header = reader.ReadString();
    if (header == sdk::UpdaterSettings::kHeader) return FileKind::kSettings;
    if (header == sdk::GameVersion::kHeader) return FileKind::kVersion;
  } catch (const file::FileException&) {
    // The readers say what is wrong.
  }
  return FileKind::kUnknown;
}

FileKind KindOfManifest(std::string_view content) {
  std::string head(content.substr(0, kHeadLength));
  sdk::StripCarriageReturns(head);
  std::vector<std::string_view> lines = sdk::SplitLines(head, '\n', sdk::EmptyPieces::kDrop);
  lines.resize(std::max<std::size_t>(lines.size(), 3));
  if (lines[0] == "GameUpdate") return FileKind::kGameManifest;
  if (lines[0] == "Velmorant Updater") return FileKind::kUpdaterManifest;
  const std::string_view thirdKey = sdk::SplitKeyValue(lines[2], ": ").key;
  if (thirdKey == "Directories") return FileKind::kGameManifest;
  if (thirdKey == "Version") return FileKind::kUpdaterManifest;
  return FileKind::kUnknown;
}

}  // namespace

FileKind KindOf(std::string_view content) {
  return HasArchiveMagic(content) ? KindOfArchive(content) : KindOfManifest(content);
}

}  // namespace ve::publish
