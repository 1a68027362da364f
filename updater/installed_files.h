// The check of what is installed. A player waits for it in every update, so it reads ahead: the
// files of the next four entries are digested side by side.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>

#include "core/md5_lanes.h"
#include "updater/game_manifest.h"

namespace ve::sdk {

/// Answers for the entries of a manifest, one after the other, whether the installed file is
/// current: the same answers at the same time as `FileMatchesEntry` for each.
class InstalledFiles {
 public:
  /// `entries` must outlive this.
  explicit InstalledFiles(std::span<const FileEntry> entries) : entries_(entries) {}

  /// `FileMatchesEntry` of the next entry's file, with its exceptions. Call it once for each entry.
  [[nodiscard]] bool NextIsCurrent();

  /// Forgets what was read ahead. Call it before anything is written: a listed name may lead to any
  /// file, also to one in the staging folder.
  void Forget() noexcept { answered_ = next_; }

 private:
  void ReadAhead();

  std::span<const FileEntry> entries_;
  std::size_t next_ = 0;      // The entry that is asked for next.
  std::size_t begin_ = 0;     // The entries from here ...
  std::size_t answered_ = 0;  // ... to before this one were read ahead.
  // Their answers. None where `FileMatchesEntry` has to answer.
  std::array<std::optional<bool>, kMd5Lanes> answers_;
  // Their contents while they are digested, one behind the other. Kept for the next entries,
  // because new memory costs time.
  std::unique_ptr<std::byte[]> memory_;
  std::size_t memorySize_ = 0;
};

}  // namespace ve::sdk
