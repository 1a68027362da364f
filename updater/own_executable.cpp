#include "updater/own_executable.h"

#include "core/windows.h"

#include <array>
#include <string>

namespace ve::sdk {

std::wstring_view OwnExecutableName() {
  static const std::wstring path = [] {
    std::array<wchar_t, MAX_PATH> buffer{};
    const DWORD length =
        GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    return std::wstring(buffer.data(), length);
  }();
  return std::wstring_view(path).substr(path.find_last_of(L"\\/") + 1);
}

}  // namespace ve::sdk
