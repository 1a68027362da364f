// Whole files of the studio, with paths of any length. Errors are thrown as `PublishError`.
#pragma once

#include <string>
#include <string_view>

namespace ve::publish {

/// What the name of a file ends with while it is written beside its place.
inline constexpr std::wstring_view kBesideSuffix = L".publishing";

/// The content.
[[nodiscard]] std::string ReadWholeFile(const std::wstring& path);

/// Writes a file beside its place and renames it into it: others see the old content or the new,
/// never a part. The next write overwrites what an interrupted one left beside it.
void WriteFileAtomically(const std::wstring& path, std::string_view content);

}  // namespace ve::publish
