// Paths on the studio's side.
#pragma once

#include "core/windows.h"

#include <string>
#include <string_view>

namespace ve::publish {

/// `file::ExtendedLengthPath` of a path given on the command line, in UTF-8.
[[nodiscard]] std::wstring ExtendedLengthPath(std::string_view path);

/// `folder`, a separator, `name`; the slashes of the name become backslashes.
[[nodiscard]] std::wstring JoinPath(std::wstring_view folder, std::wstring_view name);

/// The path with slashes instead of backslashes, as manifests and URLs have it.
[[nodiscard]] std::wstring WithSlashes(std::wstring_view path);

/// A path in words: without the \\?\ in front, in UTF-8.
[[nodiscard]] std::string DisplayPath(std::wstring_view path);

/// Where an open file or folder is at the end of all links, with the \\?\ in front; empty if the
/// file system cannot tell. See GetFinalPathNameByHandleW.
[[nodiscard]] std::wstring FinalPath(HANDLE file);
/// The same for a path; empty also if there is nothing.
[[nodiscard]] std::wstring FinalPath(const std::wstring& path);

}  // namespace ve::publish
