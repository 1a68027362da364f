// The disk as it would be in the course of a run that is only previewed: a tree in memory that
// begins as the current directory and is then changed, while the disk itself is only read.
//
// Its operations have the names, the effects and the errors of those in core/. Names are compared
// like Windows does, without regard to case: what is written over a file of another spelling keeps
// the old spelling. Directories are walked in the order of NTFS, by name in upper case.
#pragma once

#include "core/windows.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/directory_walk.h"

namespace ve::publish {

/// Tells whether a file that is not on disk yet would have a size and a digest.
using ContentMatch = std::function<bool(std::uint64_t size, std::string_view digest)>;

/// How the disk would differ from what it is now: paths below the current directory, with "\".
struct DiskChanges {
  std::vector<std::wstring> created;
  std::vector<std::wstring> written;  ///< Files that were there before.
  std::vector<std::wstring> removed;
};

class ImaginedDisk {
 public:
  /// Reads the names and attributes of all entries of the current directory. `runningProgram` is
  /// in use while the run lasts, and is neither replaced nor removed. Throws filesystem errors.
  explicit ImaginedDisk(std::wstring_view runningProgram);

  [[nodiscard]] bool Exists(std::wstring_view path) const;
  [[nodiscard]] bool IsDirectory(std::wstring_view path) const;
  /// Whether the file at the path is still the one on disk.
  [[nodiscard]] bool IsAsOnDisk(std::wstring_view path) const;
  /// As `FileMatchesEntry`. Reads the file if it is one that is on disk now.
  [[nodiscard]] bool Matches(std::wstring_view path, std::uint64_t size,
                             std::string_view digest) const;

  // As in core/files.h and core/directory_walk.h.
  void MakeDirectory(std::wstring_view path);
  void EnsureDirectories(std::wstring_view path);
  void SaveFile(std::wstring_view path, ContentMatch content);
  void CopyFileOverwrite(std::wstring_view source, std::wstring_view target);
  [[nodiscard]] DWORD TryRemove(std::wstring_view path);
  void Remove(std::wstring_view path);
  void Rename(std::wstring_view from, std::wstring_view to);
  void WalkDirectory(
      std::wstring_view root,
      const std::function<file::WalkAction(const file::DirectoryEntry&)>& visit) const;
  void RemoveTree(std::wstring_view path);

  /// The directories made, and the entries removed, since the last call, in their order.
  [[nodiscard]] std::vector<std::wstring> TakeMadeDirectories();
  [[nodiscard]] std::vector<std::wstring> TakeRemoved();

  [[nodiscard]] DiskChanges Changes() const;
  /// Links to directories: what lies behind them is not known here.
  [[nodiscard]] const std::vector<std::wstring>& Links() const noexcept { return links_; }

 private:
  struct NameOrder {
    bool operator()(const std::wstring& left, const std::wstring& right) const noexcept;
  };

  struct Entry {
    DWORD attributes = FILE_ATTRIBUTE_ARCHIVE;
    DWORD reparseTag = 0;
    std::wstring diskPath;  // Where it is on disk now; empty if nowhere.
    ContentMatch content;   // Of a file whose content is not the one on disk.
    std::map<std::wstring, std::unique_ptr<Entry>, NameOrder> entries;

    [[nodiscard]] bool IsDirectory() const noexcept {
      return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    }
  };

  /// What a path leads to.
  struct Lookup {
    bool inside = false;  // JoinPath the current directory.
    bool valid = true;    // Of names that a file may have.
    std::wstring path;    // From there, as spelt.
    std::wstring name;
    Entry* parent = nullptr;  // Null if there is no such directory.
    Entry* entry = nullptr;   // Null if there is nothing.
  };

  [[nodiscard]] Lookup Find(std::wstring_view path) const;
  void Add(const file::DirectoryEntry& entry);
  DWORD CreateOne(std::wstring_view path);
  [[nodiscard]] DWORD WhyNotReplaced(const Entry& file) const;
  [[nodiscard]] DWORD WhyNotRemoved(const Entry& entry) const;
  void WalkInto(const Entry& directory, const std::wstring& path,
                const std::function<file::WalkAction(const file::DirectoryEntry&)>& visit) const;

  std::wstring root_;  // The current directory, with its last backslash.
  std::unique_ptr<Entry> tree_;
  const Entry* running_ = nullptr;
  std::vector<std::wstring> links_;
  std::set<std::wstring> before_;  // All paths at the beginning.
  std::vector<std::wstring> made_;
  std::vector<std::wstring> removed_;
};

}  // namespace ve::publish
