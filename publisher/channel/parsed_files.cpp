#include "publisher/channel/parsed_files.h"

#include "archive/archive_reader.h"
#include "archive/updater_settings.h"
#include "core/errors.h"
#include "core/format.h"
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

void CheckRecordSize(std::size_t recordSize, std::size_t size, const std::string& location,
                     Diagnostics& diagnostics) {
  if (size < recordSize) {
    diagnostics.AddError(location, "the file ends before its version does",
                         "The Launcher reads what is missing as 0.0.0.0. Publish again.");
  } else if (size > recordSize) {
    diagnostics.AddWarning(location, Format("{} bytes follow the record", size - recordSize),
                           "The Launcher does not read them. The file may be damaged.");
  }
}

}  // namespace ve::publish
