#include "updater/cleanup_rules.h"

#include <algorithm>
#include <array>
#include <cwctype>

namespace ve::sdk {
namespace {

constexpr std::wstring_view kKeptFile = L"Output.txt";
constexpr std::wstring_view kKeptExtension = L"rar";
constexpr std::array<std::wstring_view, 8> kPreservedNames{
    L"Intermediate", L"Symbols", L"Screenshots", L"CrashLogs",
    L"updates",      L"Updater", L"Logs",        L"Saved"};

/// What follows the last "." anywhere in the path, be it in a directory's name; nothing if that is
/// its first character.
std::wstring_view Extension(std::wstring_view relativePath) {
  const std::size_t dot = relativePath.rfind(L'.');
  if (dot == std::wstring_view::npos || dot == 0) return {};
  return relativePath.substr(dot + 1);
}

bool HasKeptExtension(std::wstring_view relativePath) {
  const std::wstring_view extension = Extension(relativePath);
  return std::equal(
      extension.begin(), extension.end(), kKeptExtension.begin(), kKeptExtension.end(),
      [](wchar_t unit, wchar_t kept) { return static_cast<wchar_t>(std::towlower(unit)) == kept; });
}

bool IsPreserved(std::wstring_view relativePath) {
  const std::wstring_view first = relativePath.substr(0, relativePath.find(L'\\'));
  return std::find(kPreservedNames.begin(), kPreservedNames.end(), first) != kPreservedNames.end();
}

}  // namespace

bool CleanupRules::Keeps(std::wstring_view relativePath) const {
  if (relativePath == kKeptFile) return true;
  if (HasKeptExtension(relativePath)) return true;
  if (relativePath == ownExecutable_) return true;
  if (IsPreserved(relativePath)) return true;
  std::wstring key(relativePath);
  std::replace(key.begin(), key.end(), L'\\', L'/');
  return listedNames_.contains(key);
}

}  // namespace ve::sdk
