// What an executable says about itself, in its headers and its version resource.
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

}  // namespace ve::publish
