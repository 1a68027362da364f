#include "core/extended_length_path.h"

#include "core/windows.h"

#include "core/format.h"

namespace ve::file {
namespace {

constexpr std::wstring_view kPrefix = L"\\\\?\\";
constexpr std::wstring_view kSharePrefix = L"\\\\?\\UNC\\";
constexpr std::wstring_view kShare = L"\\\\";

std::wstring FullPath(std::wstring_view path) {
  std::wstring name(path);
  const DWORD needed = GetFullPathNameW(name.c_str(), 0, nullptr, nullptr);
  if (needed == 0) return name;
  std::wstring full(needed, L'\0');
  full.resize(GetFullPathNameW(name.c_str(), needed, full.data(), nullptr));
  return full;
}

}  // namespace

std::wstring ExtendedLengthPath(std::wstring_view path) {
  std::wstring full = FullPath(path);
  const bool isDriveRoot = full.size() == 3 && full[1] == L':';
  if (!isDriveRoot && full.ends_with(L'\\')) full.pop_back();
  if (full.starts_with(kPrefix)) return full;
  if (full.starts_with(kShare)) {
    return Format(L"{}{}", kSharePrefix, std::wstring_view(full).substr(kShare.size()));
  }
  return Format(L"{}{}", kPrefix, full);
}

}  // namespace ve::file
