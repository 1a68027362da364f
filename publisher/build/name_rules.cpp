#include "publisher/build/name_rules.h"

#include "core/windows.h"

#include <algorithm>
#include <array>
#include <initializer_list>

#include "core/format.h"
#include "core/unicode.h"
#include "publisher/files/server_layout.h"
#include "updater/game_download.h"
#include "updater/self_update.h"

namespace ve::publish {
namespace {

// The Launcher opens no longer path.
constexpr std::size_t kMaxPath = 255;

// The Launcher appends names to URLs without encoding them. These begin another part of the URL, or
// are decoded by the server.
constexpr std::wstring_view kUrlCharacters = L"%#?";
constexpr std::wstring_view kForbiddenOnWindows = L"\"*:<>|\\";
constexpr const char* kRename = "Rename it.";

bool IsPrintableAscii(wchar_t c) { return c >= L' ' && c <= L'~'; }

bool HasAnyOf(std::wstring_view name, std::wstring_view characters) {
  return name.find_first_of(characters) != std::wstring_view::npos;
}

bool Contains(std::wstring_view name, std::wstring_view part) {
  return name.find(part) != std::wstring_view::npos;
}

/// "NUL", "nul.txt", "NUL .txt": devices, whatever the extension.
/// https://learn.microsoft.com/windows/win32/fileio/naming-a-file
bool IsDevice(std::wstring_view part) {
  static constexpr std::array<std::wstring_view, 7> kDevices{
      L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$", L"CLOCK$"};
  std::wstring stem = FoldCase(part.substr(0, part.find(L'.')));
  stem.erase(stem.find_last_not_of(L' ') + 1);
  if (std::ranges::find(kDevices, stem) != kDevices.end()) return true;
  return stem.size() == 4 && (stem.starts_with(L"COM") || stem.starts_with(L"LPT")) &&
         stem[3] >= L'0' && stem[3] <= L'9';
}

/// Why the name is not a path below the game's folder; null if it is one.
const char* PathError(std::wstring_view name) {
  std::wstring path = Format(L"/{}/", name);
  std::replace(path.begin(), path.end(), L'\\', L'/');
  const bool hasDrive = name.size() > 1 && name[1] == L':';
  if (hasDrive || path.starts_with(L"//") || Contains(path, L"/../")) {
    return "leads outside the game's folder";
  }
  if (Contains(path, L"//")) return "has an empty part";
  if (Contains(path, L"/./")) return "has the part '.'";
  if (Contains(name, L"\\")) return "is written with a backslash";
  return nullptr;
}

/// "INTERMEDIATE/UPDATE".
std::wstring StagingKey() {
  std::wstring key = FoldCase(sdk::kStagingFolder);
  key.pop_back();
  return key;
}

bool IsAtOrBelow(std::wstring_view key, const std::wstring& folder) {
  return key == folder || key.starts_with(folder + L'/');
}

struct Rule {
  bool isBroken;
  const char* message;
  const char* hint;
};

void AddBroken(std::initializer_list<Rule> rules, const std::string& subject,
               Diagnostics& diagnostics) {
  for (const Rule& rule : rules) {
    if (rule.isBroken) diagnostics.AddError(subject, rule.message, rule.hint);
  }
}

}  // namespace

void CheckCharacters(std::wstring_view name, const std::string& subject, Diagnostics& diagnostics) {
  AddBroken(
      {{!std::all_of(name.begin(), name.end(), IsPrintableAscii),
        "contains non-ASCII or control characters, which the Launcher cannot decode", kRename},
       {Contains(name, L"'"), "a single quote ends the name in the manifest", kRename},
       {HasAnyOf(name, kUrlCharacters), "the Launcher does not encode %, # and ? in URLs", kRename},
       {HasAnyOf(name, kForbiddenOnWindows), "Windows does not allow \" * : < > | \\ in a name",
        kRename}},
      subject, diagnostics);
}

bool CheckName(std::wstring_view name, NameKind kind, std::wstring_view launcher,
               const std::string& subject, Diagnostics& diagnostics) {
  if (const char* error = PathError(name)) {
    diagnostics.AddError(subject, error,
                         "Write the path below the game's folder, with / between its parts, such "
                         "as bin/data/level1.pak.");
    return false;
  }
  const std::wstring_view part = name.substr(name.rfind(L'/') + 1);
  CheckCharacters(part, subject, diagnostics);
  // The Launcher creates folders with one separator more.
  const std::size_t length = sdk::StagingPath(name).size() + (kind == NameKind::kDirectory ? 1 : 0);
  const std::wstring key = FoldCase(name);
  const std::wstring staging = StagingKey();
  // A file at the path of a folder above it is as bad.
  const bool isStaging =
      IsAtOrBelow(key, staging) || (kind == NameKind::kFile && IsAtOrBelow(staging, key));
  const bool isUpdater = IsAtOrBelow(key, FoldCase(kUpdaterFolder));
  const std::string device = Format("'{}' is a reserved device name on Windows", ToUtf8(part));
  const std::string tooLong =
      Format("its path in the staging folder has {} characters; the Launcher opens at most {}",
             length, kMaxPath);
  AddBroken(
      {{part.ends_with(L'.') || part.ends_with(L' '),
        "Windows removes dots and spaces from the end of a name", kRename},
       {IsDevice(part), device.c_str(), kRename},
       {length > kMaxPath, tooLong.c_str(), "Shorten it."},
       {isStaging, "the Launcher stages updates in Intermediate\\Update",
        "Leave it out of the build."},
       {key == FoldCase(kVersionName) || key == FoldCase(kManifestName),
        "publish writes a file of this name to the server", kRename},
       {isUpdater, "this folder belongs to the Launcher",
        "Leave it out of the build; publish launcher fills it."},
       {key == FoldCase(launcher), "the Launcher cannot replace itself while it runs",
        "Leave it out of the build; it is published by publish launcher."},
       {key == FoldCase(sdk::kParkedExecutable), "the Launcher deletes this file at every start",
        "Leave it out of the build, or rename it."}},
      subject, diagnostics);
  return !isStaging && !isUpdater;
}

std::wstring FoldCase(std::wstring_view name) {
  std::wstring key(name);
  // Like the file system, which does not compare by this thread's locale.
  CharUpperBuffW(key.data(), static_cast<DWORD>(key.size()));
  std::replace(key.begin(), key.end(), L'\\', L'/');
  return key;
}

}  // namespace ve::publish
