#include "publisher/executable_version.h"

#include "core/windows.h"

#include <cstddef>
#include <cstring>
#include <vector>

namespace ve::publish {

bool IsExecutable(std::string_view content) {
  if (!content.starts_with("MZ") || content.size() < sizeof(IMAGE_DOS_HEADER)) return false;
  IMAGE_DOS_HEADER header;
  std::memcpy(&header, content.data(), sizeof(header));
  if (header.e_lfanew < 0) return false;
  const auto offset = static_cast<std::size_t>(header.e_lfanew);
  return offset < content.size() &&
         content.substr(offset).starts_with(std::string_view("PE\0\0", 4));
}

std::optional<std::uint32_t> ExecutableVersion(const std::wstring& path) {
  DWORD ignored = 0;
  const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &ignored);
  if (size == 0) return {};
  std::vector<std::byte> data(size);
  void* root = nullptr;
  UINT rootSize = 0;
  if (GetFileVersionInfoW(path.c_str(), 0, size, data.data()) == FALSE ||
      VerQueryValueW(data.data(), L"\\", &root, &rootSize) == FALSE ||
      rootSize < sizeof(VS_FIXEDFILEINFO)) {
    return {};
  }
  VS_FIXEDFILEINFO fixed;
  std::memcpy(&fixed, root, sizeof(fixed));
  return HIWORD(fixed.dwFileVersionMS);
}

}  // namespace ve::publish
