// Conversions between UTF-8 and UTF-16.
#pragma once

#include <string>
#include <string_view>

namespace ve {

/// The text in UTF-16. Invalid input is not reported: the result is what MultiByteToWideChar makes
/// of it, and empty when that fails. Embedded NULs are converted like any other character.
[[nodiscard]] std::wstring ToWide(std::string_view utf8);

/// The same for narrow text of the process's active code page, such as narrow paths.
[[nodiscard]] std::wstring AnsiToWide(std::string_view ansi);

/// The text in UTF-8, by the same rules (WideCharToMultiByte).
[[nodiscard]] std::string ToUtf8(std::wstring_view utf16);

}  // namespace ve
