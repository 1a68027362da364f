#include "publisher/build/build_folder.h"

#include "core/windows.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <system_error>
#include <unordered_set>

#include "core/directory_walk.h"
#include "core/format.h"
#include "core/unicode.h"
#include "launcher/updater_driver.h"
#include "publisher/build/name_rules.h"
#include "publisher/files/paths.h"
#include "updater/build_config.h"
#include "updater/cleanup_rules.h"

namespace ve::publish {
namespace {

// Where the Launcher's digest, which counts in 32 bits, and the length of an answer end.
constexpr std::uint64_t kLargestFile = std::numeric_limits<std::uint32_t>::max();

std::wstring WithSlashes(std::wstring_view path) {
  std::wstring name(path);
  std::replace(name.begin(), name.end(), L'\\', L'/');
  return name;
}

struct SizeAndTime {
  std::uint64_t size;
  std::int64_t written;
};

std::uint64_t Joined(DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; }

std::optional<SizeAndTime> QuerySizeAndTime(const std::wstring& path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) == FALSE) return {};
  const std::uint64_t written =
      Joined(data.ftLastWriteTime.dwHighDateTime, data.ftLastWriteTime.dwLowDateTime);
  return SizeAndTime{Joined(data.nFileSizeHigh, data.nFileSizeLow),
                     static_cast<std::int64_t>(written)};
}

/// Takes the entries of a walk in, one after the other.
class Reader {
 public:
  Reader(const std::wstring& source, std::wstring_view launcher, Diagnostics& diagnostics)
      : source_(source), launcher_(launcher), diagnostics_(diagnostics) {}

  file::WalkAction Take(const file::DirectoryEntry& entry) {
    const std::wstring name = WithSlashes(entry.path.substr(source_.size() + 1));
    CheckEntry(name, entry);
    if (entry.IsDirectory()) {
      build_.directories.push_back(name);
      return IsForbiddenFolder(name) ? file::WalkAction::kSkip : file::WalkAction::kRecurse;
    }
    TakeFile(name, std::wstring(entry.path));
    return file::WalkAction::kRecurse;
  }

  [[nodiscard]] BuildFolder Build() {
    std::sort(build_.directories.begin(), build_.directories.end());
    std::sort(build_.files.begin(), build_.files.end(),
              [](const BuildFile& a, const BuildFile& b) { return a.name < b.name; });
    return std::move(build_);
  }

 private:
  void CheckEntry(const std::wstring& name, const file::DirectoryEntry& entry) {
    const std::string subject = ToUtf8(name);
    CheckName(name, entry.IsDirectory() ? NameKind::kDirectory : NameKind::kFile, launcher_,
              diagnostics_);
    const auto [other, isNew] = namesByKey_.emplace(FoldCase(name), name);
    if (!isNew) {
      diagnostics_.AddError(subject,
                            Format("Windows takes it for the same as {}", ToUtf8(other->second)),
                            "Rename one of them.");
    }
    if ((entry.attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
      diagnostics_.AddError(subject, "it is a link, and the Launcher installs files only",
                            "Put what it leads to in its place.");
    }
    if ((entry.attributes & (FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM)) != 0) {
      diagnostics_.AddWarning(subject,
                              "it is hidden or a system file; players get it like any other",
                              "Leave it out of the build unless that is meant.");
    }
  }

  void TakeFile(const std::wstring& name, const std::wstring& path) {
    const std::optional<SizeAndTime> found = QuerySizeAndTime(path);
    if (!found) {
      diagnostics_.AddError(ToUtf8(name), "it cannot be read",
                            "Let nobody change the build meanwhile.");
      return;
    }
    if (found->size == 0) {
      diagnostics_.AddError(ToUtf8(name), "the Launcher takes no empty files",
                            "Put something into it, or leave it out of the build.");
    }
    if (found->size > kLargestFile) {
      diagnostics_.AddError(ToUtf8(name), "the Launcher takes no files of 4 GiB and more",
                            "Split it into smaller ones.");
    }
    build_.files.push_back({name, found->size, found->written, {}});
  }

  const std::wstring& source_;
  std::wstring_view launcher_;
  Diagnostics& diagnostics_;
  BuildFolder build_;
  std::map<std::wstring, std::wstring> namesByKey_;
};

void CheckContents(const std::wstring& source, const BuildFolder& build, Diagnostics& diagnostics) {
  if (build.files.empty()) {
    diagnostics.AddError(DisplayPath(source),
                         "there is no file in it, and the Launcher takes no update without",
                         "Name the folder of a build.");
  }
  if (build.directories.empty()) {
    diagnostics.AddError(DisplayPath(source),
                         "there is no folder in it, and the Launcher takes no update without",
                         "Make one, for instance an empty folder Saved.");
  }
}

void WarnOfMissingGame(const BuildFolder& build, Diagnostics& diagnostics) {
  const std::wstring game = FoldCase(kGameProgram);
  const bool isThere = std::any_of(build.files.begin(), build.files.end(),
                                   [&](const BuildFile& f) { return FoldCase(f.name) == game; });
  if (isThere || build.files.empty()) return;
  diagnostics.AddWarning(
      ToUtf8(WithSlashes(kGameProgram)),
      "the build has no such file, which is the game that the Launcher starts",
      "Name the folder that holds bin, or publish the game's program in there too.");
}

void WarnOfLongestPath(const BuildFolder& build, Diagnostics& diagnostics) {
  const auto longest = std::max_element(
      build.files.begin(), build.files.end(),
      [](const BuildFile& a, const BuildFile& b) { return a.name.size() < b.name.size(); });
  if (longest == build.files.end()) return;
  const std::size_t room = MaxGameFolderLength(longest->name);
  if (room >= kTypicalGameFolderLength) return;
  diagnostics.AddWarning(
      ToUtf8(longest->name),
      Format("with this name, the longest, the path of a player's game folder may have no "
             "more than {} characters",
             room),
      "Shorten it.");
}

/// Whether an entry below the folder follows it in the sorted list.
template <class Iterator, class NameOf>
bool HasEntryBelow(Iterator begin, Iterator end, const std::wstring& folder, NameOf nameOf) {
  const std::wstring prefix = folder + L'/';
  const Iterator first = std::lower_bound(
      begin, end, prefix,
      [&nameOf](const auto& entry, const std::wstring& wanted) { return nameOf(entry) < wanted; });
  return first != end && nameOf(*first).starts_with(prefix);
}

bool HoldsFiles(const BuildFolder& build, const std::wstring& folder) {
  return HasEntryBelow(build.files.begin(), build.files.end(), folder,
                       [](const BuildFile& file) -> const std::wstring& { return file.name; });
}

bool HoldsAnything(const BuildFolder& build, const std::wstring& folder) {
  return HoldsFiles(build, folder) ||
         HasEntryBelow(build.directories.begin(), build.directories.end(), folder,
                       [](const std::wstring& name) -> const std::wstring& { return name; });
}

}  // namespace

std::uint64_t BuildFolder::Bytes() const {
  std::uint64_t bytes = 0;
  for (const BuildFile& file : files) bytes += file.size;
  return bytes;
}

BuildFolder ReadBuildFolder(const std::wstring& source, std::wstring_view launcher,
                            Diagnostics& diagnostics) {
  const DWORD attributes = GetFileAttributesW(source.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    diagnostics.AddError(DisplayPath(source), "there is no such folder",
                         "Name the folder of a build.");
    return {};
  }
  Reader reader(source, launcher, diagnostics);
  file::WalkDirectory(source,
                      [&reader](const file::DirectoryEntry& entry) { return reader.Take(entry); });
  BuildFolder build = reader.Build();
  CheckContents(source, build, diagnostics);
  WarnOfMissingGame(build, diagnostics);
  WarnOfLongestPath(build, diagnostics);
  return build;
}

void CheckUnchanged(const std::wstring& source, const BuildFolder& build,
                    Diagnostics& diagnostics) {
  for (const BuildFile& file : build.files) {
    const std::optional<SizeAndTime> now = QuerySizeAndTime(JoinPath(source, file.name));
    if (now && now->size == file.size && now->written == file.written) continue;
    diagnostics.AddError(ToUtf8(file.name), "it was changed while the build was published",
                         "Publish again when the build is complete.");
  }
}

void WarnOfCleanUp(const BuildFolder& build, std::wstring_view launcher, Diagnostics& diagnostics) {
  std::unordered_set<std::wstring_view> listed;
  for (const BuildFile& file : build.files) listed.insert(file.name);
  sdk::CleanupRules rules(listed, launcher);

  for (const std::wstring& directory : build.directories) {
    std::wstring path = directory;
    std::replace(path.begin(), path.end(), L'/', L'\\');
    const bool isKept = rules.Keeps(path);
    const bool inRoot = directory.find(L'/') == std::wstring::npos;
    const std::string subject = ToUtf8(directory);
    if (!HoldsAnything(build, directory)) {
      if (isKept) continue;
      diagnostics.AddWarning(subject,
                             "the folder is empty: every update makes it and removes it again",
                             "Put a file into it if the game needs it.");
    } else if (inRoot && isKept && HoldsFiles(build, directory)) {
      diagnostics.AddWarning(
          subject,
          "the folder is the players' own: what a later version no longer has stays on "
          "their disks, and each update replaces what they changed in its files",
          "Publish there only what is meant to behave so.");
    } else if (inRoot && !isKept && !sdk::kBuildConfig.keepsNonEmptyDirectories) {
      diagnostics.AddWarning(
          subject,
          "the clean-up of this build of the Launcher cannot remove the folder, which "
          "ends every update abnormally, before its version is recorded",
          "Ship walk-on\\Launcher.exe, which keeps non-empty directories, and publish with the "
          "tool beside it.");
    }
  }
}

}  // namespace ve::publish
