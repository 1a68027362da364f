// The text of wininet.dll for an error, queried independently of the code under test.
#pragma once

#include "core/windows.h"

#include <array>
#include <string>

namespace ve::test {

/// The text for a WinINet error; the number where wininet.dll has no text for it. Which errors have
/// a text differs between systems.
[[nodiscard]] inline std::wstring WinINetWords(DWORD code) {
  std::array<wchar_t, 512> text{};
  const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_IGNORE_INSERTS,
                                      GetModuleHandleW(L"wininet.dll"), code, 0x400, text.data(),
                                      static_cast<DWORD>(text.size()), nullptr);
  return length == 0 ? std::to_wstring(static_cast<int>(code)) : std::wstring(text.data(), length);
}

}  // namespace ve::test
