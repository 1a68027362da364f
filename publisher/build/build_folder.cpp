#include "publisher/build/build_folder.h"

#include "core/windows.h"

#include <algorithm>
#include <limits>
#include <map>
#include <set>
#include <shlwapi.h>
#include <tuple>
#include <unordered_set>
#include <utility>

#include "core/directory_walk.h"
#include "core/format.h"
#include "core/unicode.h"
#include "launcher/updater_driver.h"
#include "publisher/build/name_rules.h"
#include "publisher/files/paths.h"
#include "updater/build_config.h"
#include "updater/cleanup_rules.h"
#include "updater/game_download.h"

namespace ve::publish {
namespace {

// The Launcher's digest and a response's length count in 32 bits.
constexpr std::uint64_t kMaxFileSize = std::numeric_limits<std::uint32_t>::max();

std::uint64_t Joined(DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; }

bool IsIgnored(const BuildRules& rules, const std::wstring& name) {
  const std::wstring part = name.substr(name.rfind(L'/') + 1);
  return std::ranges::any_of(rules.ignore, [&](const std::wstring& pattern) {
    const bool isWhole = pattern.find(L'/') != std::wstring::npos;
    return PathMatchSpecW((isWhole ? name : part).c_str(), pattern.c_str()) != FALSE;
  });
}

void CheckAttributes(const std::string& name, DWORD attributes, Diagnostics& diagnostics) {
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    diagnostics.AddError(name, "is a link", "Replace it with its target.");
  }
  if ((attributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) != 0) {
    diagnostics.AddWarning(name, "is a hidden or system file, and is published like any other",
                           "Leave it out with --ignore unless players need it.");
  }
}

BuildFile ReadFileEntry(const std::wstring& name, const std::wstring& path,
                        Diagnostics& diagnostics) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) == FALSE) {
    diagnostics.AddError(ToUtf8(name), "cannot be read",
                         "Windows cannot open a file of this name. Rename or remove it.");
    return {};
  }
  const std::uint64_t size = Joined(data.nFileSizeHigh, data.nFileSizeLow);
  if (size == 0) {
    diagnostics.AddError(ToUtf8(name), "is empty, and the Launcher rejects empty files",
                         "Write something into it, or leave it out with --ignore.");
  }
  if (size > kMaxFileSize) {
    diagnostics.AddError(
        ToUtf8(name), "is 4 GiB or larger; the Launcher accepts smaller files only", "Split it.");
  }
  const std::uint64_t written =
      Joined(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime);
  return {name, size, static_cast<std::int64_t>(written), {}, false};
}

void WarnOfLongestPath(const BuildFolder& build, Diagnostics& diagnostics) {
  const auto longest =
      std::ranges::max_element(build.files, {}, [](const BuildFile& f) { return f.name.size(); });
  if (longest == build.files.end()) return;
  // Windows opens paths of 259 characters: the game folder's, a separator, the name when staged.
  // https://learn.microsoft.com/windows/win32/fileio/maximum-file-path-limitation
  const std::size_t room = 258 - std::min<std::size_t>(sdk::StagingPath(longest->name).size(), 258);
  constexpr std::size_t kTypicalGameFolderLength = 100;  // With some to spare.
  if (room >= kTypicalGameFolderLength) return;
  diagnostics.AddWarning(
      ToUtf8(longest->name),
      Format("is the longest name: it leaves {} characters for the path of a player's game folder",
             room),
      "Shorten it.");
}

/// Everything that must be the same when a build is read again.
auto StateOf(const BuildFolder& build) {
  std::set<std::tuple<std::wstring, std::uint64_t, std::int64_t>> state;
  for (const std::wstring& directory : build.directories) state.insert({directory, 0, 0});
  for (const BuildFile& file : build.files) state.insert({file.name, file.size, file.written});
  return state;
}

void InsertFoldersAbove(const std::wstring& name, std::unordered_set<std::wstring>& folders) {
  for (std::size_t end = name.find(L'/'); end != std::wstring::npos;
       end = name.find(L'/', end + 1)) {
    folders.insert(name.substr(0, end));
  }
}

}  // namespace

BuildFolder ReadBuildFolder(const std::wstring& source, const BuildRules& rules,
                            Diagnostics& diagnostics) {
  const DWORD attributes = GetFileAttributesW(source.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    diagnostics.AddError(DisplayPath(source), "no such folder", "Pass the folder of a build.");
    return {};
  }
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
    diagnostics.AddWarning(DisplayPath(source), "is a link", "Its target is published.");
  }
  BuildFolder build;
  std::map<std::wstring, std::wstring> namesByKey;
  file::WalkDirectory(source, [&](const file::DirectoryEntry& entry) {
    const std::wstring name = WithSlashes(entry.path.substr(source.size() + 1));
    if (IsIgnored(rules, name)) {
      build.ignored.push_back(name);
      return file::WalkAction::kSkip;
    }
    const auto [other, isNew] = namesByKey.emplace(FoldCase(name), name);
    if (!isNew) {
      diagnostics.AddError(
          ToUtf8(name),
          Format("differs from {} only in case, which Windows ignores", ToUtf8(other->second)),
          "Rename one of them.");
    }
    CheckAttributes(ToUtf8(name), entry.attributes, diagnostics);
    const NameKind kind = entry.IsDirectory() ? NameKind::kDirectory : NameKind::kFile;
    const bool isAllowed = CheckName(name, kind, rules.launcher, ToUtf8(name), diagnostics);
    if (!entry.IsDirectory()) {
      build.files.push_back(ReadFileEntry(name, std::wstring(entry.path), diagnostics));
    } else if ((entry.attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
      build.directories.push_back(name);
    }
    return isAllowed ? file::WalkAction::kRecurse : file::WalkAction::kSkip;
  });
  std::ranges::sort(build.directories);
  std::ranges::sort(build.files, {}, &BuildFile::name);
  if (build.files.empty()) {
    diagnostics.AddError(DisplayPath(source),
                         "contains no file, and the Launcher rejects an update without files",
                         "Pass the folder of a build.");
  }
  if (build.directories.empty()) {
    diagnostics.AddError(DisplayPath(source),
                         "contains no folder, and the Launcher rejects an update without folders",
                         "Make one, for instance an empty folder Saved.");
  }
  WarnOfLongestPath(build, diagnostics);
  return build;
}

void CheckGameProgram(const std::wstring& source, const BuildFolder& build, bool force,
                      Diagnostics& diagnostics) {
  const std::wstring game = FoldCase(kGameProgram);
  const bool isThere = std::ranges::any_of(
      build.files, [&](const BuildFile& file) { return FoldCase(file.name) == game; });
  if (isThere || build.files.empty()) return;
  (force ? diagnostics.warnings : diagnostics.errors)
      .push_back({DisplayPath(source), Format("no {}", ToUtf8(kGameProgram)),
                  "The Launcher deletes every installed file that a build does not list, so this "
                  "would remove players' games. Pass the folder that contains bin\\, or --force to "
                  "publish anyway."});
}

void CheckUnchanged(const std::wstring& source, const BuildRules& rules, const BuildFolder& build,
                    Diagnostics& diagnostics) {
  Diagnostics known;  // From the first reading.
  const auto before = StateOf(build);
  const auto now = StateOf(ReadBuildFolder(source, rules, known));
  std::vector<std::tuple<std::wstring, std::uint64_t, std::int64_t>> differences;
  std::set_symmetric_difference(before.begin(), before.end(), now.begin(), now.end(),
                                std::back_inserter(differences));
  std::set<std::wstring> names;  // A changed entry differs twice.
  for (auto& difference : differences) names.insert(std::move(std::get<0>(difference)));
  for (const std::wstring& name : names) {
    diagnostics.AddError(ToUtf8(name),
                         "was added, changed or removed while the build was published",
                         "Publish again when the build is complete.");
  }
}

void WarnOfCleanUp(const BuildFolder& build, std::wstring_view launcher, Diagnostics& diagnostics) {
  std::unordered_set<std::wstring_view> listed;
  std::unordered_set<std::wstring> withFiles;
  for (const BuildFile& file : build.files) {
    listed.insert(file.name);
    InsertFoldersAbove(file.name, withFiles);
  }
  std::unordered_set<std::wstring> withEntries = withFiles;
  for (const std::wstring& directory : build.directories)
    InsertFoldersAbove(directory, withEntries);
  const sdk::CleanupRules rules(listed, launcher);

  for (const std::wstring& directory : build.directories) {
    std::wstring path = directory;
    std::replace(path.begin(), path.end(), L'/', L'\\');
    const bool isKept = rules.Keeps(path);
    const bool inRoot = directory.find(L'/') == std::wstring::npos;
    const std::string subject = ToUtf8(directory);
    if (!withEntries.contains(directory)) {
      if (isKept) continue;
      diagnostics.AddWarning(subject, "is empty: every update creates the folder, then removes it",
                             "Put a file into it if the game needs it.");
    } else if (inRoot && isKept && withFiles.contains(directory)) {
      diagnostics.AddWarning(
          subject,
          "is a folder that the clean-up keeps: files that a later version no longer has stay on "
          "players' disks, and each update replaces what players changed in listed files",
          "Publish only files there for which this is acceptable.");
    } else if (inRoot && !isKept && !sdk::kBuildConfig.keepsNonEmptyDirectories) {
      diagnostics.AddWarning(
          subject,
          "cannot be removed by the clean-up of this build of the Launcher, which ends every "
          "update abnormally before its version is recorded",
          "Ship walk-on\\Launcher.exe, which keeps non-empty directories, and publish with the "
          "tool beside it.");
    }
  }
}

}  // namespace ve::publish
