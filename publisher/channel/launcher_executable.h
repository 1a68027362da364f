// What is known of a Launcher's executable: from its headers and its version resource, and from the
// record of the last `publish launcher` in a channel's tree (kLauncherRecordName). Launchers never
// ask for that record. Later runs compare the files of the tree with it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ve::publish {

/// What a program's version resource says.
struct ProgramVersion {
  std::uint32_t number;           ///< The first number of the fixed file version.
  bool keepsNonEmptyDirectories;  ///< Whether it is the special build (cmake/Program.cmake).
};

/// None for a file without a version resource, also for one that is not a program.
[[nodiscard]] std::optional<ProgramVersion> ReadProgramVersion(const std::wstring& path);

/// Whether the content of a 64-bit executable has an Authenticode signature. Does not verify it.
[[nodiscard]] bool IsSigned(std::string_view content);

struct LauncherRecord {
  std::string executable;  ///< The file's name, without a folder, in UTF-8.
  std::uint64_t size = 0;
  std::string md5;  ///< 32 lowercase hexadecimal characters.
  std::uint32_t version = 0;
  bool isSigned = false;
};

/// The record as the content of its file.
[[nodiscard]] std::string LauncherRecordText(const LauncherRecord& record);

/// Reads the content of a record's file; ignores keys that it does not know. None if the content is
/// not valid JSON, or lacks a key, or has one of another type.
[[nodiscard]] std::optional<LauncherRecord> ParseLauncherRecord(std::string_view text);

}  // namespace ve::publish
