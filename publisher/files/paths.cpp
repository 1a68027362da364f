#include "publisher/files/paths.h"

#include <algorithm>

#include "core/extended_length_path.h"
#include "core/format.h"
#include "core/handle.h"
#include "core/unicode.h"

namespace ve::publish {
namespace {

constexpr std::wstring_view kLongPrefix = L"\\\\?\\";
constexpr std::wstring_view kLongSharePrefix = L"\\\\?\\UNC\\";

}  // namespace

std::wstring ExtendedLengthPath(std::string_view path) {
  return file::ExtendedLengthPath(ToWide(path));
}

std::wstring JoinPath(std::wstring_view folder, std::wstring_view name) {
  std::wstring path = Format(folder.ends_with(L'\\') ? L"{}{}" : L"{}\\{}", folder, name);
  // Behind the prefix only backslashes separate.
  std::replace(path.begin() + static_cast<std::ptrdiff_t>(folder.size()), path.end(), L'/', L'\\');
  return path;
}

std::wstring WithSlashes(std::wstring_view path) {
  std::wstring name(path);
  std::replace(name.begin(), name.end(), L'\\', L'/');
  return name;
}

std::string DisplayPath(std::wstring_view path) {
  if (path.starts_with(kLongSharePrefix)) {
    return Format("\\\\{}", ToUtf8(path.substr(kLongSharePrefix.size())));
  }
  if (path.starts_with(kLongPrefix)) path.remove_prefix(kLongPrefix.size());
  return ToUtf8(path);
}

std::wstring FinalPath(HANDLE file) {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length =
        GetFinalPathNameByHandleW(file, path.data(), static_cast<DWORD>(path.size()), 0);
    if (length < path.size()) return path.substr(0, length);
    path.resize(length);
  }
}

std::wstring FinalPath(const std::wstring& path) {
  const UniqueFileHandle file(
      CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  return file ? FinalPath(file.Get()) : std::wstring();
}

}  // namespace ve::publish
