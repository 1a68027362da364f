#include "updater/game_manifest.h"

#include <algorithm>
#include <bit>

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

struct FileLine {
  std::string_view name;
  std::uint64_t size;
  std::string_view digest;
};

/// Reads "'name' size digest". `index` counts the file lines from 0, as the messages do.
FileLine ReadFileLine(std::string_view line, std::size_t index) {
  const char* const end = line.data() + line.size();
  const char* const open = FindByte<'\''>(line.data(), end);
  const char* const close = open == end ? end : FindByte<'\''>(open + 1, end);
  if (close == end || close == open + 1) {
    ThrowUpdaterException("Invalid file-name at line {}: '{}'", index, std::string_view());
  }
  const std::string_view name(open + 1, close);

  const char* const sizeText = close + 1 != end && close[1] == ' ' ? close + 2 : close + 1;
  std::size_t length = 0;
  const auto size = ReadDecimal<std::uint64_t>({sizeText, end}, &length);
  const char* const sizeEnd = FindByte<' '>(sizeText + length, end);
  if (size == 0) {
    ThrowUpdaterException("Invalid empty file size at line {}, for file '{}'", index, name);
  }
  const std::string_view digest(sizeEnd == end ? end : sizeEnd + 1, end);
  if (digest.size() != kDigestLength) {
    ThrowUpdaterException("Invalid hash '{}' with length {} at line {} for file '{}'.", digest,
                          digest.size(), index, name);
  }
  return {name, size, digest};
}

/// Whether the line is seen to be right without reading its number: the name comes first, then
/// after a blank a size of at most fourteen characters, the first a digit above 0, then a digest of
/// the right length. Nearly all lines are of this kind.
bool IsPlainFileLine(std::string_view line) noexcept {
  if (line.size() < kDigestLength + 1 || line.front() != '\'') return false;
  const char* const end = line.data() + line.size();
  const char* const name = line.data() + 1;
  const char* const close = FindByte<'\''>(name, end);
  const char* const sizeEnd = end - kDigestLength - 1;
  if (close == name || sizeEnd - close < 3 || sizeEnd - close > kStep) return false;
  if (close[1] != ' ') return false;
  const char* const size = close + 2;
  // What is looked at here ends before the digest does.
  const unsigned blanks = Matches<' '>(LoadStep(size));
  return *size >= '1' && *size <= '9' && size + std::countr_zero(blanks) == sizeEnd;
}

}  // namespace

FileEntry EntryOf(std::string_view fileLine) {
  const FileLine read = ReadFileLine(fileLine, 0);
  return {WidenName(read.name), read.size, read.digest};
}

// The text is gone over twice: once to remove its carriage returns and to count its lines, once to
// read them.
GameUpdateManifest ReadGameUpdateManifest(std::string& text, std::string_view* judged) {
  std::string_view unasked;
  std::string_view& line = judged != nullptr ? *judged : unasked;
  const std::size_t lineCount = StripCarriageReturns(text);
  LineReader lines(text);
  const std::string_view textEnd = std::string_view(text).substr(text.size());
  line = textEnd;
  if (lineCount < kMinLines) {
    ThrowUpdaterException("Invalid amount of lines ({}, at least 4 expected).", lineCount);
  }
  line = lines.Next();
  if (line != kHeader) {
    ThrowUpdaterException("Invalid header '{}'. (is expecting '{}')", line, kHeader);
  }

  line = lines.Next();
  const KeyValue versionLine = SplitKeyValue(line, ": ");
  if (versionLine.key != "FileVersion") {
    ThrowUpdaterException("Invalid file-version name '{}'. (is expecting 'FileVersion')",
                          versionLine.key);
  }
  if (ReadDecimal<std::int32_t>(versionLine.value) != kFileVersion) {
    // The key stands where one would expect the number, on purpose.
    ThrowUpdaterException("Invalid file-version {}. (supported: 1)", versionLine.key);
  }

  line = lines.Next();
  const KeyValue directoriesLine = SplitKeyValue(line, ": ");
  if (directoriesLine.key != "Directories") {
    ThrowUpdaterException("Invalid directory-name '{}'. (expected: 'Directories')",
                          directoriesLine.key);
  }
  const auto directoryCount = ReadDecimal<std::uint32_t>(directoriesLine.value);
  if (directoryCount == 0) {
    throw UpdaterException("No directories. Abort update to prevent corruption.");
  }
  std::size_t linesLeft = lineCount - kHeaderLines;
  if (directoryCount > linesLeft) {
    ThrowUpdaterException("Less assumed directory-entries than lines ({}, can be a maximum of {}).",
                          directoryCount, linesLeft);
  }

  GameUpdateManifest manifest;
  manifest.directories.resize(directoryCount);
  for (std::string_view& directory : manifest.directories) directory = lines.Next();
  linesLeft -= directoryCount;
  line = textEnd;
  if (linesLeft == 0) throw UpdaterException("No lines after directory-entries.");
  line = lines.Next();
  if (line != kFilesHeader) {
    ThrowUpdaterException("Invalid file-header '{}' (is expecting 'Files:')", line);
  }
  --linesLeft;
  line = textEnd;
  if (linesLeft == 0) {
    throw UpdaterException("No files present. Aborting update to prevent corruption.");
  }

  manifest.fileLines.reserve(linesLeft);
  for (std::size_t index = 0; index < linesLeft; ++index) {
    const std::string_view fileLine = lines.Next();
    line = fileLine;
    if (!IsPlainFileLine(fileLine)) (void)ReadFileLine(fileLine, index);
    manifest.fileLines.push_back(fileLine);
  }
  return manifest;
}

std::wstring WidenName(std::string_view name) {
  std::wstring wide(name.size(), L'\0');
  std::transform(name.begin(), name.end(), wide.begin(), WidenByte);
  return wide;
}

}  // namespace ve::sdk
