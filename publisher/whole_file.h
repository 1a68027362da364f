// Whole files on the studio's side: of any path length, and with every error told. (The Launcher's
// own file operations have limits of their own.)
#pragma once

#include <string>
#include <string_view>

namespace ve::publish {

/// What the name of a file ends with while it is written beside its place.
inline constexpr std::wstring_view kBesideSuffix = L".publishing";

/// The content. Throws a filesystem error that names the path.
[[nodiscard]] std::string ReadWholeFile(const std::wstring& path);

/// Writes a file beside its place and renames it into it: others see the old content or the new,
/// never a part. What an interrupted write left beside it is overwritten by the next. Throws a
/// filesystem error that names the path.
void WriteFileAtomically(const std::wstring& path, std::string_view content);

/// The same with the content of another file.
void CopyWholeFile(const std::wstring& source, const std::wstring& path);

}  // namespace ve::publish
