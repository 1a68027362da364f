#include "core/unicode.h"

#include "core/windows.h"

namespace ve {
namespace {

// All conversions reject a length of 0 with an error code of their own, so empty text is answered
// without asking them: callers read the last error of the call before.

std::wstring Widen(UINT codePage, std::string_view text) {
  if (text.empty()) return {};
  const int length = static_cast<int>(text.size());
  const int needed = MultiByteToWideChar(codePage, 0, text.data(), length, nullptr, 0);
  std::wstring utf16(static_cast<std::size_t>(needed), L'\0');
  MultiByteToWideChar(codePage, 0, text.data(), length, utf16.data(), needed);
  return utf16;
}

}  // namespace

std::wstring ToWide(std::string_view utf8) { return Widen(CP_UTF8, utf8); }

std::wstring AnsiToWide(std::string_view ansi) { return Widen(CP_ACP, ansi); }

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
