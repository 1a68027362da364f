#include "updater/updater_manifest.h"

#include <filesystem>
#include <fstream>
#include <vector>

#include "core/errors.h"
#include "core/truncated_string.h"
#include "updater/manifest_text.h"

namespace ve::sdk {
namespace {

constexpr std::string_view kHeader = "Velmorant Updater";
constexpr std::string_view kFileVersionKey = "FileVersion";
constexpr std::string_view kVersionKey = "Version";
constexpr std::size_t kMinLines = 3;

}  // namespace

std::uint32_t ReadUpdaterManifest(std::string& text, std::uint32_t ownVersion) {
  StripCarriageReturns(text);
  const std::vector<std::string_view> lines = SplitLines(text, '\n', EmptyPieces::kDrop);
  if (lines.size() < kMinLines) {
    ThrowUpdaterException(
        "Invalid number of lines in updater-manifest file. Expecting at least 3, was only {}.",
        lines.size());
  }
  if (lines[0] != kHeader) {
    ThrowUpdaterException(
        "Unknown header in received updater-manifest file (was '{}', expected '{}').", lines[0],
        kHeader);
  }

  const KeyValue fileVersionLine = SplitKeyValue(lines[1], ": ");
  if (fileVersionLine.key != kFileVersionKey) {
    ThrowUpdaterException("Unknown file version name '{}' (should have been '{}')",
                          fileVersionLine.key, kFileVersionKey);
  }
  const auto fileVersion = ReadDecimal<std::uint32_t>(fileVersionLine.value);
  if (fileVersion < kMinimumFileVersion) {
    ThrowUpdaterException("Unsupported file version '{}' (must be at least {}).", fileVersion,
                          kMinimumFileVersion);
  }

  const KeyValue versionLine = SplitKeyValue(lines[2], ": ");
  if (versionLine.key != kVersionKey) {
    ThrowUpdaterException("Unknown updater version name '{}' (should have been '{}')",
                          versionLine.key, kVersionKey);
  }
  const auto offered = ReadDecimal<std::uint32_t>(versionLine.value);
  if (offered < ownVersion) {
    ThrowUpdaterException(
        "Trying to downgrade updater to version '{}' (from '{}'). Downgrade is not supported",
        offered, ownVersion);
  }
  return offered;
}

void WriteUpdaterManifest(std::wstring_view path, std::uint32_t version) {
  // In text mode: every line feed is stored as carriage return and line feed.
  std::ofstream manifest(std::filesystem::path(WidePath(path).Get()),
                         std::ios::out | std::ios::trunc);
  manifest << kHeader << '\n'
           << Format("{}: {}\n", kFileVersionKey, kMinimumFileVersion)
           << Format("{}: {}", kVersionKey, version);
}

}  // namespace ve::sdk
