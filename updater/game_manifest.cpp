#include "updater/game_manifest.h"

#include <algorithm>
#include <cstddef>
#include <span>

#include "core/errors.h"
#include "core/format.h"
#include "updater/manifest_text.h"

namespace ve::sdk {
namespace {

constexpr std::string_view kHeader = "GameUpdate";
constexpr std::string_view kFilesHeader = "Files:";
constexpr std::int32_t kFileVersion = 1;
constexpr std::size_t kMinLines = 4;
constexpr std::size_t kHeaderLines = 3;
constexpr std::size_t kDigestLength = 32;

using Lines = std::span<const std::string_view>;

void CheckFileVersion(std::string_view line) {
  const auto [key, value] = SplitKeyValue(line, ": ");
  if (key != "FileVersion") {
    ThrowUpdaterException("Invalid file-version name '{}'. (is expecting 'FileVersion')", key);
  }
  if (ReadDecimal<std::int32_t>(value) != kFileVersion) {
    // The key stands in the place of the number: players and support know the message in this form.
    ThrowUpdaterException("Invalid file-version {}. (supported: 1)", key);
  }
}

/// Reads how many of the lines after the header are directories.
std::size_t ReadDirectoryCount(std::string_view line, std::size_t linesAfterHeader) {
  const auto [key, value] = SplitKeyValue(line, ": ");
  if (key != "Directories") {
    ThrowUpdaterException("Invalid directory-name '{}'. (expected: 'Directories')", key);
  }
  const auto count = ReadDecimal<std::uint32_t>(value);
  if (count == 0) throw UpdaterException("No directories. Abort update to prevent corruption.");
  if (count > linesAfterHeader) {
    ThrowUpdaterException("Less assumed directory-entries than lines ({}, can be a maximum of {}).",
                          count, linesAfterHeader);
  }
  return count;
}

/// What follows the directories: the files' header and the file lines. Returns the latter.
Lines CheckFilesHeader(Lines lines) {
  if (lines.empty()) throw UpdaterException("No lines after directory-entries.");
  if (lines.front() != kFilesHeader) {
    ThrowUpdaterException("Invalid file-header '{}' (is expecting 'Files:')", lines.front());
  }
  if (lines.size() == 1) {
    throw UpdaterException("No files present. Aborting update to prevent corruption.");
  }
  return lines.subspan(1);
}

/// Reads "'name' size digest". `index` counts the file lines from 0, as the messages do.
FileEntry ReadFileLine(std::string_view line, std::size_t index) {
  const std::size_t open = line.find('\'');
  const std::size_t close =
      open == std::string_view::npos ? std::string_view::npos : line.find('\'', open + 1);
  if (close == std::string_view::npos || close == open + 1) {
    // The quoted name is always empty: the line has none.
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

GameUpdateManifest ReadGameUpdateManifest(std::string& text) {
  StripCarriageReturns(text);
  const std::vector<std::string_view> split = SplitLines(text, '\n', EmptyPieces::kDrop);
  const Lines lines(split);
  if (lines.size() < kMinLines) {
    ThrowUpdaterException("Invalid amount of lines ({}, at least 4 expected).", lines.size());
  }
  if (lines[0] != kHeader) {
    ThrowUpdaterException("Invalid header '{}'. (is expecting '{}')", lines[0], kHeader);
  }
  CheckFileVersion(lines[1]);
  const Lines body = lines.subspan(kHeaderLines);
  const std::size_t directoryCount = ReadDirectoryCount(lines[2], body.size());
  const Lines directories = body.first(directoryCount);
  const Lines files = CheckFilesHeader(body.subspan(directoryCount));

  GameUpdateManifest manifest;
  manifest.directories.assign(directories.begin(), directories.end());
  manifest.files.reserve(files.size());
  for (const std::string_view line : files) {
    manifest.files.push_back(ReadFileLine(line, manifest.files.size()));
  }
  return manifest;
}

std::wstring WidenName(std::string_view name) {
  std::wstring wide(name.size(), L'\0');
  std::transform(name.begin(), name.end(), wide.begin(), WidenByte);
  return wide;
}

}  // namespace ve::sdk
