#include "publisher/parsed_files.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "archive/archive_reader.h"
#include "archive/updater_settings.h"
#include "core/errors.h"
#include "core/format.h"
#include "core/unicode.h"
#include "updater/updater_manifest.h"

namespace ve::publish {
namespace {

/// Calls `read` with a reader at the begin of the record.
template <class Content, class Read>
std::variant<Content, ParseError> ParseArchive(std::string_view bytes, const Read& read) {
  std::optional<file::ArchiveReader> reader;
  try {
    reader.emplace(bytes);
    return read(*reader);
  } catch (const VERuntimeError& error) {
    // Without a reader it is the archive's own header that is wrong: its magic or its version.
    const std::size_t headerFault = HasArchiveMagic(bytes) ? sizeof(file::kArchiveMagic) : 0;
    return ParseError{error.what(), reader ? reader->LastReadPosition() : headerFault};
  }
}

/// Where a line of the text begins in the content that the text was made from by removing the
/// carriage returns: behind as many line feeds.
ParseError InManifest(std::string message, std::string_view content, std::string_view text,
                      std::string_view line) {
  const char* const lineBegin = line.data();
  const auto lineFeeds = static_cast<std::size_t>(std::count(text.data(), lineBegin, '\n'));
  if (lineBegin == text.data() + text.size()) {
    return {std::move(message), content.size(), lineFeeds + 1};
  }
  std::size_t offset = 0;
  for (std::size_t passed = 0; passed < lineFeeds; ++passed) {
    offset = content.find('\n', offset) + 1;
  }
  return {std::move(message), offset, lineFeeds + 1};
}

template <class Content, class Read>
std::variant<Content, ParseError> ParseManifest(std::string_view content, std::string& text,
                                                const Read& read) {
  text = content;
  std::string_view judged;
  try {
    return read(text, &judged);
  } catch (const VERuntimeError& error) {
    return InManifest(error.what(), content, text, judged);
  }
}

}  // namespace

std::string FormatLocation(const ParseError& error) {
  if (error.line == 0) return Format("at byte {}", error.offset);
  return Format("in line {}, at byte {}", error.line, error.offset);
}

std::variant<SettingsFile, ParseError> ParseSettings(std::string_view bytes) {
  return ParseArchive<SettingsFile>(bytes, [](file::ArchiveReader& reader) {
    const sdk::UpdaterSettings settings = sdk::ReadUpdaterSettings(reader);
    return SettingsFile{
        {reader.Mode(), reader.Position()}, ToUtf8(settings.url), ToUtf8(settings.channel)};
  });
}

std::variant<VersionFile, ParseError> ParseVersionFile(std::string_view bytes) {
  return ParseArchive<VersionFile>(bytes, [](file::ArchiveReader& reader) {
    const sdk::VersionNumber version = sdk::ReadOfferedVersion(reader);
    // Of a block that is not there as a whole, the reader takes nothing but goes to the end.
    const bool complete =
        reader.Position() - reader.LastReadPosition() == sizeof(file::ArchiveReader::Block16);
    return VersionFile{{reader.Mode(), reader.Position()}, version, complete};
  });
}

std::variant<std::uint32_t, ParseError> ParseUpdaterManifest(std::string_view content) {
  std::string text;
  return ParseManifest<std::uint32_t>(content, text, [](std::string& read, std::string_view* line) {
    return sdk::ReadUpdaterManifest(read, 0, line);
  });
}

std::variant<sdk::GameUpdateManifest, ParseError> ParseGameManifest(std::string_view content,
                                                                    std::string& text) {
  return ParseManifest<sdk::GameUpdateManifest>(content, text, sdk::ReadGameUpdateManifest);
}

std::string_view ModeInWords(file::ArchiveMode mode) {
  return mode == file::ArchiveMode::kChecked ? "checked" : "plain";
}

bool HasArchiveMagic(std::string_view bytes) {
  std::uint32_t magic = 0;
  if (bytes.size() < sizeof(magic)) return false;
  std::memcpy(&magic, bytes.data(), sizeof(magic));
  return magic == file::kArchiveMagic;
}

}  // namespace ve::publish
