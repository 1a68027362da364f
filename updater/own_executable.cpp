#include "updater/own_executable.h"

#include "core/windows.h"

#include <array>
#include <string>

namespace ve::sdk {

std::wstring_view OwnExecutableName() {
  static const std::wstring kPath = [] {
    std::array<wchar_t, MAX_PATH> buffer{};
    const DWORD length =
        GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    return std::wstring(buffer.data(), length);
  }();
  return std::wstring_view(kPath).substr(kPath.find_last_of(L"\\/") + 1);
}

}  // namespace ve::sdk
