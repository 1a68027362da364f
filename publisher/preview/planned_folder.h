// The game folder as an update leaves it: what is installed, and what the update adds and removes.
// The disk itself is only read.
//
// Paths are relative to the game root, the current directory. Names are compared without regard to
// case; an entry keeps the spelling that it has on disk. What the Launcher would fail on throws
// `PublishError`, and so does a path that leads out of the folder.
#pragma once

#include "core/windows.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/directory_walk.h"
#include "core/extended_length_path.h"
#include "core/handle.h"
#include "core/unicode.h"
#include "publisher/build/name_rules.h"
#include "publisher/files/paths.h"
#include "publisher/files/windows_errors.h"
#include "updater/build_config.h"
#include "updater/cleanup_rules.h"

namespace ve::publish {

struct PlannedEntry {
  std::wstring path;  ///< With "/" between the parts, as spelled on disk.
  DWORD attributes;
  bool isOnDisk;  ///< Now, and not replaced by the update.

  [[nodiscard]] bool IsDirectory() const { return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
};

class PlannedFolder {
 public:
  /// `launcher` is the path of the running program, which can be neither replaced nor removed.
  explicit PlannedFolder(std::wstring_view launcher) {
    if (!root_.ends_with(L'\\')) root_ += L'\\';
    file::WalkDirectory(root_, [this](const file::DirectoryEntry& entry) {
      const std::wstring path = RelativePath(entry.path);
      entries_[Key(path)] = {path, entry.attributes, true};
      return file::WalkAction::kRecurse;
    });
    launcher_ = Find(launcher);
  }

  /// The entry at the path; null if there is none.
  [[nodiscard]] const PlannedEntry* Find(std::wstring_view path) const {
    const auto found = entries_.find(Key(RelativePath(path)));
    return found == entries_.end() ? nullptr : &found->second;
  }

  // As the functions of core/files.h.
  void MakeDirectory(std::wstring_view path) { Put(path, FILE_ATTRIBUTE_DIRECTORY); }
  void WriteFile(std::wstring_view path) { Put(path, FILE_ATTRIBUTE_ARCHIVE); }
  void Remove(std::wstring_view path) {
    const auto entry = entries_.find(Key(RelativePath(path)));
    if (entry == entries_.end()) return;
    if (HoldsEntries(entry)) {
      Throw(entry->second.path, "cannot be removed: the directory is not empty",
            "Ship the Launcher that keeps non-empty directories.");
    }
    CheckAccess(entry->second, DELETE);
    entries_.erase(entry);
  }

  /// Removes what the Launcher's clean-up removes, in its order, and adds the names to `removed`.
  void CleanUp(const sdk::CleanupRules& rules, std::vector<std::string>& removed) {
    for (auto next = entries_.cbegin(); next != entries_.cend();) {
      const auto entry = next++;
      std::wstring path = entry->second.path;
      std::replace(path.begin(), path.end(), L'/', L'\\');
      if (rules.Keeps(path)) continue;
      if (sdk::kBuildConfig.keepsNonEmptyDirectories && HoldsEntries(entry)) continue;
      std::string name = ToUtf8(entry->second.path);
      Remove(path);
      removed.push_back(std::move(name));
    }
  }

 private:
  using Entries = std::map<std::wstring, PlannedEntry>;  // In the order of a walk, see `Key`.

  /// Orders names as NTFS does, in upper case, and by L'\1' a directory right before its contents.
  [[nodiscard]] static std::wstring Key(std::wstring_view path) {
    std::wstring key = FoldCase(path);
    std::replace(key.begin(), key.end(), L'/', L'\1');
    return key;
  }

  [[noreturn]] static void Throw(std::wstring_view path, const char* message, const char* hint) {
    throw PublishError({ToUtf8(path), message, hint});
  }

  [[nodiscard]] std::wstring RelativePath(std::wstring_view path) const {
    std::wstring relative = file::ExtendedLengthPath(path);
    if (!relative.starts_with(root_)) Throw(path, "leads out of the game folder", "Remove it.");
    relative.erase(0, root_.size());
    std::replace(relative.begin(), relative.end(), L'\\', L'/');
    return relative;
  }

  [[nodiscard]] bool HoldsEntries(Entries::const_iterator directory) const {
    const auto next = std::next(directory);
    return next != entries_.end() && next->first.starts_with(directory->first + L'\1');
  }

  /// Throws if Windows does not let the entry be replaced (GENERIC_WRITE) or removed (DELETE).
  void CheckAccess(const PlannedEntry& entry, DWORD access) const {
    if (&entry == launcher_) {
      Throw(entry.path, "the running Launcher cannot be replaced or removed",
            "Do not list it, and start it from the game's root by its exact name.");
    }
    const bool removes = access == DELETE;
    const char* const operation = removes ? "removed" : "replaced";
    constexpr DWORD kHidden = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    if ((entry.attributes & (removes ? FILE_ATTRIBUTE_READONLY : kHidden)) != 0) {
      ThrowWindowsError(operation, entry.path, ERROR_ACCESS_DENIED);
    }
    if (!entry.isOnDisk) return;
    const UniqueFileHandle opened(
        CreateFileW(JoinPath(root_, entry.path).c_str(), access,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    if (!opened) ThrowWindowsError(operation, entry.path, GetLastError());
  }

  void Put(std::wstring_view path, DWORD kind) {
    std::wstring spelling = RelativePath(path);
    std::wstring key = Key(spelling);
    if (const PlannedEntry* const existing = Find(path)) {
      if (existing->IsDirectory() != (kind == FILE_ATTRIBUTE_DIRECTORY)) {
        Throw(existing->path, "a file is in the place of a directory, or the reverse",
              "Rename it.");
      }
      if (existing->IsDirectory()) return;
      CheckAccess(*existing, GENERIC_WRITE);
      spelling = existing->path;
    } else if (const std::size_t slash = spelling.rfind(L'/'); slash != std::wstring::npos) {
      const auto parent = entries_.find(key.substr(0, slash));
      if (parent == entries_.end() || !parent->second.IsDirectory()) {
        Throw(spelling, "the directory above it is missing or is a file",
              "List every directory, parents before their children.");
      }
      spelling.replace(0, slash, parent->second.path);
    }
    entries_[std::move(key)] = {std::move(spelling), kind, false};
  }

  std::wstring root_ = file::ExtendedLengthPath(L".");  // With its last backslash.
  Entries entries_;
  const PlannedEntry* launcher_ = nullptr;
};

}  // namespace ve::publish
