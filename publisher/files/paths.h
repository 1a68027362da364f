// Paths on the studio's side.
#pragma once

#include <string>
#include <string_view>

namespace ve::publish {

/// `file::ExtendedLengthPath` of a path given on the command line, in UTF-8.
[[nodiscard]] std::wstring ExtendedLengthPath(std::string_view path);

/// `folder`, a separator, `name`; the slashes of the name become backslashes.
[[nodiscard]] std::wstring JoinPath(std::wstring_view folder, std::wstring_view name);

/// A path in words: without the \\?\ in front, in UTF-8.
[[nodiscard]] std::string DisplayPath(std::wstring_view path);

}  // namespace ve::publish
