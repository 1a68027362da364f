// The check of what is installed. Players wait for it in every update, so it reads ahead and
// computes the digests of several files side by side.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <span>

#include "updater/game_manifest.h"

namespace ve::sdk {

/// Goes through the entries of a manifest and answers for each whether the installed file is
/// current: the answers and exceptions of `FileMatchesEntry`, at the same entries.
class InstalledFiles {
 public:
  /// `entries` must outlive this.
  explicit InstalledFiles(std::span<const FileEntry> entries) : entries_(entries) {}

  /// Whether the next entry's file is current. Throws what `FileMatchesEntry` throws for it. Call
  /// it at most once for each entry.
  [[nodiscard]] bool NextIsCurrent();

  /// Drops what was read ahead. Call it before every write: a listed name may lead to any file,
  /// also to one in the staging folder.
  void Forget() noexcept { answers_.clear(); }

 private:
  void ReadAhead();

  std::span<const FileEntry> entries_;  // From the next one on.
  std::deque<bool> answers_;            // For the first of them, as many as were read ahead.
  bool current_ = true;                 // The last answer.
  // For the contents, while their digests are computed. Kept while files are current, because new
  // memory costs time.
  std::unique_ptr<std::byte[]> memory_;
};

}  // namespace ve::sdk
