// The errors that file operations throw. Building blocks of core/files, also used by the preview of
// publish.exe, so that both report identical errors.
#pragma once

#include <cstdint>
#include <string_view>

namespace ve::file {

/// What is wrong when a file cannot be opened, for `ThrowOpenError`.
inline constexpr std::string_view kLoadFailure = "Failed to open file for loading";
inline constexpr std::string_view kSaveFailure = "Failed to open file for saving";

/// Throws the `FileException` of a file that cannot be opened. `path` is shown as it is given;
/// `errorNumber` is the C runtime's errno.
[[noreturn]] void ThrowOpenError(std::string_view failure, std::string_view path, int errorNumber);

/// Throws the `FileException` of a copy that failed with a Windows error code.
[[noreturn]] void ThrowCopyError(std::wstring_view source, std::wstring_view target,
                                 std::uint32_t code);

}  // namespace ve::file
