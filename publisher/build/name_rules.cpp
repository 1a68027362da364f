#include "publisher/build/name_rules.h"

#include "core/windows.h"

#include <algorithm>
#include <array>

#include "core/format.h"
#include "core/unicode.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"
#include "updater/game_download.h"
#include "updater/self_update.h"

namespace ve::publish {
namespace {

// The Launcher opens no longer path.
constexpr std::size_t kLongestPath = 255;
// Without the terminator.
// https://learn.microsoft.com/windows/win32/fileio/maximum-file-path-limitation
constexpr std::size_t kLongestWindowsPath = 259;

// Names are appended to addresses as they stand. These begin another part of the address, or are
// decoded by the server.
constexpr std::wstring_view kAddressCharacters = L"%#?";
constexpr std::wstring_view kForbiddenOnWindows = L"\"*:<>|\\";
// Reach nginx unharmed, but not every server and CDN.
constexpr std::wstring_view kDoubtfulCharacters = L"+[]{}^`";

bool IsPrintableAscii(wchar_t c) { return c >= L' ' && c <= L'~'; }

bool HasAnyOf(std::wstring_view name, std::wstring_view characters) {
  return name.find_first_of(characters) != std::wstring_view::npos;
}

/// "NUL", "nul.txt", "NUL .txt": devices, whatever the extension.
/// https://learn.microsoft.com/windows/win32/fileio/naming-a-file
bool IsDevice(std::wstring_view part) {
  static constexpr std::array<std::wstring_view, 7> kDevices{
      L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$", L"CLOCK$"};
  std::wstring stem = FoldCase(part.substr(0, part.find(L'.')));
  stem.erase(stem.find_last_not_of(L' ') + 1);
  if (std::find(kDevices.begin(), kDevices.end(), stem) != kDevices.end()) return true;
  return stem.size() == 4 && (stem.starts_with(L"COM") || stem.starts_with(L"LPT")) &&
         stem[3] >= L'0' && stem[3] <= L'9';
}

void CheckPart(std::wstring_view part, const std::string& subject, Diagnostics& diagnostics) {
  if (part.ends_with(L'.') || part.ends_with(L' ')) {
    diagnostics.AddError(subject, "Windows drops dots and blanks at the end of a name",
                         "Rename it without.");
  }
  if (IsDevice(part)) {
    diagnostics.AddError(subject, Format("Windows takes '{}' for a device", ToUtf8(part)),
                         "Rename it.");
  }
}

/// The length of the name's path in the staging folder. The Launcher makes folders there with one
/// separator more.
std::size_t StagedLength(std::wstring_view name, NameKind kind) {
  return sdk::StagingPath(name).size() + (kind == NameKind::kDirectory ? 1 : 0);
}

void CheckLength(std::wstring_view name, NameKind kind, const std::string& subject,
                 Diagnostics& diagnostics) {
  const std::size_t length = StagedLength(name, kind);
  if (length <= kLongestPath) return;
  diagnostics.AddError(
      subject,
      Format("in the staging folder its path has {} characters, and the Launcher opens "
             "none of more than {}",
             length, kLongestPath),
      Format("Shorten it by {}.", length - kLongestPath));
}

/// "INTERMEDIATE/UPDATE".
std::wstring StagingKey() {
  std::wstring key = FoldCase(sdk::kStagingFolder);
  key.pop_back();
  return key;
}

void CheckPlace(std::wstring_view name, NameKind kind, std::wstring_view launcher,
                const std::string& subject, Diagnostics& diagnostics) {
  const std::wstring key = FoldCase(name);
  const std::wstring staging = StagingKey();
  // A file in the place of a folder above it is as bad.
  const bool blocksStaging = kind == NameKind::kFile && staging.starts_with(key + L'/');
  if (key == staging || blocksStaging) {
    diagnostics.AddError(subject, "the Launcher stages updates in Intermediate\\Update",
                         "Leave it out of the build.");
  }
  if (key == FoldCase(kVersionName) || key == FoldCase(kManifestName)) {
    diagnostics.AddError(subject, "the server has a file of its own by this name", "Rename it.");
  }
  if (key == FoldCase(kUpdaterFolder)) {
    diagnostics.AddError(subject,
                         "the folder is the Launcher's own, on the server and on a player's disk",
                         "Leave it out of the build; publish launcher fills it.");
  }
  if (key == FoldCase(launcher)) {
    diagnostics.AddError(subject, "the Launcher cannot replace itself while it runs",
                         "Leave it out of the build; it is published by publish launcher.");
  }
  if (key == FoldCase(sdk::kParkedExecutable)) {
    diagnostics.AddError(subject, "the Launcher deletes this file at every start",
                         "Leave it out of the build, or rename it.");
  }
  if (key.ends_with(FoldCase(kBesideSuffix))) {
    diagnostics.AddError(
        subject,
        Format("names ending in {} are this tool's own, for files that it is writing",
               ToUtf8(kBesideSuffix)),
        "Rename it.");
  }
}

}  // namespace

void CheckCharacters(std::wstring_view name, const std::string& subject, Diagnostics& diagnostics) {
  if (!std::all_of(name.begin(), name.end(), IsPrintableAscii)) {
    diagnostics.AddError(subject, "names are printable ASCII: the Launcher decodes no others",
                         "Rename it.");
  }
  if (HasAnyOf(name, L"'")) {
    diagnostics.AddError(subject, "a single quote ends the name in the manifest", "Rename it.");
  }
  if (HasAnyOf(name, kAddressCharacters)) {
    diagnostics.AddError(
        subject,
        "the Launcher appends names to addresses as they stand, where %, # and ? have "
        "meanings of their own",
        "Rename it.");
  }
  if (HasAnyOf(name, kForbiddenOnWindows)) {
    diagnostics.AddError(subject, "Windows allows none of \" * : < > | \\ in a name", "Rename it.");
  }
  if (HasAnyOf(name, kDoubtfulCharacters)) {
    diagnostics.AddWarning(
        subject,
        "the Launcher appends names to addresses as they stand, and not every server "
        "takes + [ ] { } ^ ` there",
        "Try it with your server, or rename it.");
  }
}

void CheckName(std::wstring_view name, NameKind kind, std::wstring_view launcher,
               Diagnostics& diagnostics) {
  const std::string subject = ToUtf8(name);
  const std::wstring_view part = name.substr(name.rfind(L'/') + 1);
  CheckCharacters(part, subject, diagnostics);
  CheckPart(part, subject, diagnostics);
  CheckLength(name, kind, subject, diagnostics);
  CheckPlace(name, kind, launcher, subject, diagnostics);
}

bool IsForbiddenFolder(std::wstring_view name) {
  const std::wstring key = FoldCase(name);
  return key == FoldCase(kUpdaterFolder) || key == StagingKey();
}

std::wstring FoldCase(std::wstring_view name) {
  std::wstring key(name);
  // As the file system compares, of which this thread's locale knows nothing.
  CharUpperBuffW(key.data(), static_cast<DWORD>(key.size()));
  std::replace(key.begin(), key.end(), L'\\', L'/');
  return key;
}

std::size_t MaxGameFolderLength(std::wstring_view name) {
  const std::size_t taken = sdk::StagingPath(name).size() + 1;  // With a separator in front.
  return taken < kLongestWindowsPath ? kLongestWindowsPath - taken : 0;
}

}  // namespace ve::publish
