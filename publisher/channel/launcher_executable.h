// What is known of a Launcher's executable: from its headers and its version resource, and from the
// record of the last `publish launcher` in a channel's tree (kLauncherRecordName). Launchers never
// ask for that record. Later runs compare the files of the tree with it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ve::publish {

/// Whether the content is that of a Windows executable.
[[nodiscard]] bool IsExecutable(std::string_view content);

/// Whether the content of a 64-bit executable has an Authenticode signature. Does not verify it.
[[nodiscard]] bool IsSigned(std::string_view content);

/// The first number of the fixed file version; none if there is no version resource.
[[nodiscard]] std::optional<std::uint32_t> ExecutableVersion(const std::wstring& path);

/// Whether the version resource marks the program as the special build, whose clean-up keeps
/// non-empty directories (cmake/Program.cmake).
[[nodiscard]] bool KeepsNonEmptyDirectories(const std::wstring& path);

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
