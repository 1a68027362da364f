#include "updater/game_version.h"

#include <bit>

#include "archive/archive_file.h"
#include "core/errors.h"
#include "core/files.h"
#include "updater/download_messages.h"

namespace ve::sdk {

std::optional<VersionNumber> ReadInstalledVersion() {
  if (!file::Exists(kGameVersionFile)) return {};
  file::ArchiveReader reader = file::OpenArchiveFile(kGameVersionFile);
  if (reader.ReadString() != GameVersion::kHeader) return {};
  if (reader.ReadU32() != GameVersion::kFileVersion) return {};
  return ReadVersionNumber(reader);
}

VersionNumber ReadOfferedVersion(std::string_view bytes) {
  file::ArchiveReader reader(bytes);
  return ReadOfferedVersion(reader);
}

VersionNumber ReadOfferedVersion(file::ArchiveReader& reader) {
  const std::string_view header = reader.ReadString();
  if (header != GameVersion::kHeader) {
    // "Remove" is the wording, here and below.
    ThrowUpdaterException("Remove game-version file had unexpected header '{}'.", header);
  }
  const std::uint32_t fileVersion = reader.ReadU32();
  if (fileVersion != GameVersion::kFileVersion) {
    ThrowUpdaterException("Remove game-version file had unexpected file-version '{}'.",
                          fileVersion);
  }
  return ReadVersionNumber(reader);
}

std::strong_ordering VersionNumber::operator<=>(const VersionNumber& other) const noexcept {
  for (std::size_t word = words.size(); word-- > 0;) {
    if (words[word] != other.words[word]) return words[word] <=> other.words[word];
  }
  return std::strong_ordering::equal;
}

VersionNumber ReadVersionNumber(file::ArchiveReader& reader) {
  return {std::bit_cast<std::array<std::int32_t, 4>>(reader.ReadBlock16())};
}

bool CheckGameVersion(std::wstring_view versionUrl, std::optional<std::string>& pendingVersion,
                      const Downloader& download) {
  const std::optional<VersionNumber> local = ReadInstalledVersion();
  if (!local) return true;

  DownloadResult remote = download(versionUrl);
  if (!remote.Succeeded()) {
    ThrowUpdaterException(kVersionDownloadFailed, remote.Error());
  }
  if (*local >= ReadOfferedVersion(remote.Body())) return false;
  pendingVersion = std::move(remote.Body());
  return true;
}

}  // namespace ve::sdk
