#include "publisher/paths.h"

#include "core/windows.h"

#include <algorithm>

#include "core/format.h"
#include "core/unicode.h"

namespace ve::publish {
namespace {

constexpr std::wstring_view kLongPrefix = L"\\\\?\\";
constexpr std::wstring_view kLongSharePrefix = L"\\\\?\\UNC\\";
constexpr std::wstring_view kSharePrefix = L"\\\\";

std::wstring FullPath(const std::wstring& path) {
  const DWORD needed = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
  if (needed == 0) return path;
  std::wstring full(needed, L'\0');
  full.resize(GetFullPathNameW(path.c_str(), needed, full.data(), nullptr));
  return full;
}

}  // namespace

std::wstring ExtendedLengthPath(std::string_view path) {
  std::wstring full = FullPath(ToWide(path));
  const bool isDriveRoot = full.size() == 3 && full[1] == L':';
  if (!isDriveRoot && (full.ends_with(L'\\') || full.ends_with(L'/'))) full.pop_back();
  if (full.starts_with(kLongPrefix)) return full;
  if (full.starts_with(kSharePrefix)) {
    return Format(L"{}{}", kLongSharePrefix, std::wstring_view(full).substr(kSharePrefix.size()));
  }
  return Format(L"{}{}", kLongPrefix, full);
}

std::wstring JoinPath(std::wstring_view folder, std::wstring_view name) {
  std::wstring path = Format(folder.ends_with(L'\\') ? L"{}{}" : L"{}\\{}", folder, name);
  // Behind the prefix only backslashes separate.
  std::replace(path.begin() + static_cast<std::ptrdiff_t>(folder.size()), path.end(), L'/', L'\\');
  return path;
}

std::string DisplayPath(std::wstring_view path) {
  if (path.starts_with(kLongSharePrefix)) {
    return Format("\\\\{}", ToUtf8(path.substr(kLongSharePrefix.size())));
  }
  if (path.starts_with(kLongPrefix)) path.remove_prefix(kLongPrefix.size());
  return ToUtf8(path);
}

}  // namespace ve::publish
