#include "publisher/executable_version.h"

#include "core/windows.h"

#include <cstddef>
#include <vector>

namespace ve::publish {

std::optional<std::uint32_t> ExecutableVersion(const std::wstring& path) {
  const DWORD size = GetFileVersionInfoSizeW(path.c_str(), nullptr);
  if (size == 0) return {};
  std::vector<std::byte> resource(size);
  void* version = nullptr;
  UINT versionSize = 0;
  if (GetFileVersionInfoW(path.c_str(), 0, size, resource.data()) == FALSE ||
      VerQueryValueW(resource.data(), L"\\", &version, &versionSize) == FALSE ||
      versionSize < sizeof(VS_FIXEDFILEINFO)) {
    return {};
  }
  return HIWORD(static_cast<const VS_FIXEDFILEINFO*>(version)->dwFileVersionMS);
}

}  // namespace ve::publish
