// The system's text for an error code, queried independently of the code under test.
#pragma once

#include "core/windows.h"

#include <array>
#include <string>

namespace ve::test {

/// Ends with the system's line break. ASCII on an English system.
[[nodiscard]] inline std::string SystemText(DWORD code) {
  std::array<char, 1024> text{};
  const DWORD length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                      nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT),
                                      text.data(), static_cast<DWORD>(text.size()), nullptr);
  return {text.data(), length};
}

}  // namespace ve::test
