#include "updater/game_manifest.h"

#include <algorithm>
#include <span>

#include "core/errors.h"
#include "core/format.h"
#include "updater/manifest_text.h"

namespace ve::sdk {
namespace {

constexpr std::string_view kHeader = "GameUpdate";
constexpr std::string_view kFilesHeader = "Files:";
constexpr std::int32_t kFileVersion = 1;
constexpr std::size_t kLeastLines = 4;
constexpr std::size_t kHeaderLines = 3;
constexpr std::size_t kDigestLength = 32;

/// Reads "'name' size digest". `index` counts the file lines from 0, as the messages do.
FileEntry ReadFileLine(std::string_view line, std::size_t index) {
  const std::size_t open = line.find('\'');
  const std::size_t close =
      open == std::string_view::npos ? std::string_view::npos : line.find('\'', open + 1);
  if (close == std::string_view::npos || close == open + 1) {
    ThrowUpdaterException("Invalid file-name at line {}: '{}'", index, std::string_view());
  }
  const std::string_view name = line.substr(open + 1, close - open - 1);

  std::string_view rest = line.substr(close + 1);
  if (rest.starts_with(' ')) rest.remove_prefix(1);
  const auto [sizeText, digest] = SplitKeyValue(rest, " ");
  const auto size = ReadDecimal<std::uint64_t>(sizeText);
  if (size == 0) {
    ThrowUpdaterException("Invalid empty file size at line {}, for file '{}'", index, name);
  }
  if (digest.size() != kDigestLength) {
    ThrowUpdaterException("Invalid hash '{}' with length {} at line {} for file '{}'.", digest,
                          digest.size(), index, name);
  }
  return {WidenName(name), size, digest};
}

}  // namespace

GameUpdateManifest ReadGameUpdateManifest(std::string& text, std::string_view* judged) {
  std::string_view unasked;
  std::string_view& line = judged != nullptr ? *judged : unasked;
  StripCarriageReturns(text);
  const std::string_view textEnd = std::string_view(text).substr(text.size());
  const std::vector<std::string_view> allLines = SplitLines(text, '\n', EmptyPieces::kDrop);
  std::span<const std::string_view> lines(allLines);
  line = textEnd;
  if (lines.size() < kLeastLines) {
    ThrowUpdaterException("Invalid amount of lines ({}, at least 4 expected).", lines.size());
  }
  line = lines[0];
  if (line != kHeader) {
    ThrowUpdaterException("Invalid header '{}'. (is expecting '{}')", line, kHeader);
  }

  line = lines[1];
  const KeyValue versionLine = SplitKeyValue(line, ": ");
  if (versionLine.key != "FileVersion") {
    ThrowUpdaterException("Invalid file-version name '{}'. (is expecting 'FileVersion')",
                          versionLine.key);
  }
  if (ReadDecimal<std::int32_t>(versionLine.value) != kFileVersion) {
    // The key stands where one would expect the number, on purpose.
    ThrowUpdaterException("Invalid file-version {}. (supported: 1)", versionLine.key);
  }

  line = lines[2];
  const KeyValue directoriesLine = SplitKeyValue(line, ": ");
  if (directoriesLine.key != "Directories") {
    ThrowUpdaterException("Invalid directory-name '{}'. (expected: 'Directories')",
                          directoriesLine.key);
  }
  const auto directoryCount = ReadDecimal<std::uint32_t>(directoriesLine.value);
  if (directoryCount == 0) {
    throw UpdaterException("No directories. Abort update to prevent corruption.");
  }
  lines = lines.subspan(kHeaderLines);
  if (directoryCount > lines.size()) {
    ThrowUpdaterException("Less assumed directory-entries than lines ({}, can be a maximum of {}).",
                          directoryCount, lines.size());
  }

  GameUpdateManifest manifest;
  const auto directories = lines.first(directoryCount);
  manifest.directories.assign(directories.begin(), directories.end());
  lines = lines.subspan(directoryCount);
  line = textEnd;
  if (lines.empty()) throw UpdaterException("No lines after directory-entries.");
  line = lines[0];
  if (line != kFilesHeader) {
    ThrowUpdaterException("Invalid file-header '{}' (is expecting 'Files:')", line);
  }
  lines = lines.subspan(1);
  line = textEnd;
  if (lines.empty()) {
    throw UpdaterException("No files present. Aborting update to prevent corruption.");
  }

  manifest.files.reserve(lines.size());
  for (std::size_t index = 0; index < lines.size(); ++index) {
    line = lines[index];
    manifest.files.push_back(ReadFileLine(line, index));
  }
  return manifest;
}

std::wstring WidenName(std::string_view name) {
  std::wstring wide(name.size(), L'\0');
  std::transform(name.begin(), name.end(), wide.begin(), WidenByte);
  return wide;
}

}  // namespace ve::sdk
