#include "publisher/files/paths.h"

#include <algorithm>

#include "core/extended_length_path.h"
#include "core/format.h"
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

std::string DisplayPath(std::wstring_view path) {
  if (path.starts_with(kLongSharePrefix)) {
    return Format("\\\\{}", ToUtf8(path.substr(kLongSharePrefix.size())));
  }
  if (path.starts_with(kLongPrefix)) path.remove_prefix(kLongPrefix.size());
  return ToUtf8(path);
}

}  // namespace ve::publish
