#include "core/unicode.h"

#include "core/windows.h"

namespace ve {

// Both conversions reject a length of 0 with an error code of their own, so empty text is answered
// without asking them: callers read the last error of the call before.

std::wstring ToWide(std::string_view utf8) {
  if (utf8.empty()) return {};
  const int length = static_cast<int>(utf8.size());
  const int needed = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
  std::wstring utf16(static_cast<std::size_t>(needed), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, utf16.data(), needed);
  return utf16;
}

std::string ToUtf8(std::wstring_view utf16) {
  if (utf16.empty()) return {};
  const int length = static_cast<int>(utf16.size());
  const int needed =
      WideCharToMultiByte(CP_UTF8, 0, utf16.data(), length, nullptr, 0, nullptr, nullptr);
  std::string utf8(static_cast<std::size_t>(needed), '\0');
  WideCharToMultiByte(CP_UTF8, 0, utf16.data(), length, utf8.data(), needed, nullptr, nullptr);
  return utf8;
}

}  // namespace ve
