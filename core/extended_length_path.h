// Paths of any length.
#pragma once

#include <string>
#include <string_view>

namespace ve::file {

/// The absolute form of `path` with the prefix that lifts Windows' limit of 259 characters ("\\?\",
/// or "\\?\UNC\" for a share), without a trailing separator except at a drive's root. Behind the
/// prefix only backslashes separate names. A path that Windows cannot make absolute gets the prefix
/// as it is.
/// https://learn.microsoft.com/windows/win32/fileio/maximum-file-path-limitation
[[nodiscard]] std::wstring ExtendedLengthPath(std::wstring_view path);

}  // namespace ve::file
