#include "publisher/channel/parsed_files.h"

#include <cstring>

#include "archive/archive_reader.h"
#include "archive/updater_settings.h"
#include "core/errors.h"
#include "core/unicode.h"
#include "publisher/channel/archive_records.h"
#include "updater/updater_manifest.h"

namespace ve::publish {
namespace {

template <class Content, class Read>
std::variant<Content, ParseError> Parse(const Read& read) {
  try {
    return read();
  } catch (const VERuntimeError& error) {
    return ParseError{error.what()};
  }
}

}  // namespace

std::variant<SettingsFile, ParseError> ParseSettings(std::string_view bytes) {
  return Parse<SettingsFile>([bytes] {
    const sdk::UpdaterSettings settings = sdk::ReadUpdaterSettings(bytes);
    return SettingsFile{ToUtf8(settings.url), ToUtf8(settings.channel),
                        SettingsArchive(settings.url, settings.channel, ModeOf(bytes)).size()};
  });
}

std::variant<VersionFile, ParseError> ParseVersionFile(std::string_view bytes) {
  return Parse<VersionFile>([bytes] {
    const sdk::VersionNumber version = sdk::ReadOfferedVersion(bytes);
    return VersionFile{version, VersionArchive(version, ModeOf(bytes)).size()};
  });
}

std::variant<std::uint32_t, ParseError> ParseUpdaterManifest(std::string_view content) {
  std::string text(content);
  return Parse<std::uint32_t>([&text] { return sdk::ReadUpdaterManifest(text, 0); });
}

std::variant<sdk::GameUpdateManifest, ParseError> ParseGameManifest(std::string_view content,
                                                                    std::string& text) {
  text = content;
  return Parse<sdk::GameUpdateManifest>([&text] { return sdk::ReadGameUpdateManifest(text); });
}

file::ArchiveMode ModeOf(std::string_view bytes) { return file::ArchiveReader(bytes).Mode(); }

bool HasArchiveMagic(std::string_view bytes) {
  std::uint32_t magic = 0;
  if (bytes.size() < sizeof(magic)) return false;
  std::memcpy(&magic, bytes.data(), sizeof(magic));
  return magic == file::kArchiveMagic;
}

}  // namespace ve::publish
