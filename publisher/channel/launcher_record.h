// What the last `publish launcher` published to a channel, kept in its tree (kLauncherRecordName).
// Launchers never ask for the file. Later runs compare the files of the tree with it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ve::publish {

struct LauncherRecord {
  std::string executable;  ///< The file's name, without a folder, in UTF-8.
  std::uint64_t size = 0;
  std::string md5;  ///< 32 lowercase hexadecimal characters.
  std::uint32_t version = 0;
  bool keepsNonEmptyDirectories = false;
  bool isSigned = false;

  [[nodiscard]] bool operator==(const LauncherRecord&) const = default;
};

/// The record as the content of its file.
[[nodiscard]] std::string LauncherRecordText(const LauncherRecord& record);

/// Reads the content of a record's file; ignores keys that it does not know. None if the content is
/// not valid JSON, or lacks a key, or has one of another type.
[[nodiscard]] std::optional<LauncherRecord> ParseLauncherRecord(std::string_view text);

}  // namespace ve::publish
