#include "updater/game_version.h"

#include <bit>
#include <utility>

#include "archive/archive_file.h"
#include "core/errors.h"
#include "core/files.h"
#include "updater/download_messages.h"

namespace ve::sdk {

std::strong_ordering VersionNumber::operator<=>(const VersionNumber& other) const noexcept {
  for (std::size_t word = words.size(); word-- > 0;) {
    if (words[word] != other.words[word]) return words[word] <=> other.words[word];
  }
  return std::strong_ordering::equal;
}

GameVersion ReadGameVersion(file::ArchiveReader& reader) {
  GameVersion version;
  version.header = reader.ReadString();
  if (version.header != GameVersion::kHeader) return version;
  version.fileVersion = reader.ReadU32();
  if (version.fileVersion != GameVersion::kFileVersion) return version;
  version.number.words = std::bit_cast<std::array<std::int32_t, 4>>(reader.ReadBlock16());
  return version;
}

std::optional<VersionNumber> ReadInstalledVersion() {
  if (!file::Exists(kGameVersionFile)) return {};
  file::ArchiveReader reader = file::OpenArchiveFile(kGameVersionFile);
  const GameVersion version = ReadGameVersion(reader);
  if (!version.IsSupported()) return {};
  return version.number;
}

VersionNumber ReadOfferedVersion(std::string_view bytes) {
  file::ArchiveReader reader(bytes);
  const GameVersion version = ReadGameVersion(reader);
  // "Remove" is a misspelling of "Remote". Kept: players and support know both messages in this
  // form.
  if (version.header != GameVersion::kHeader) {
    ThrowUpdaterException("Remove game-version file had unexpected header '{}'.", version.header);
  }
  if (version.fileVersion != GameVersion::kFileVersion) {
    ThrowUpdaterException("Remove game-version file had unexpected file-version '{}'.",
                          version.fileVersion);
  }
  return version.number;
}

bool CheckGameVersion(std::wstring_view versionUrl, std::optional<std::string>& pendingVersion) {
  const std::optional<VersionNumber> installed = ReadInstalledVersion();
  if (!installed) return true;

  std::string offered = DownloadOrThrow(versionUrl, kVersionDownloadFailed);
  if (*installed >= ReadOfferedVersion(offered)) return false;
  pendingVersion = std::move(offered);
  return true;
}

}  // namespace ve::sdk
