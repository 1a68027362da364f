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
/// current: the answers and exceptions of `FileMatchesEntry`, at the same entries. While files are
/// current, the next ones are read early, on the calling thread and into at most 64 MiB: a change
/// that another program makes in between is not seen.
class InstalledFiles {
 public:
  /// `entries` must outlive this.
  explicit InstalledFiles(std::span<const FileEntry> entries) : entries_(entries) {}

  /// Whether the next entry's file is current. Throws what `FileMatchesEntry` throws for it. Call
  /// it at most once for each entry. After `false` any file may be written, also one that a later
  /// entry lists: what was read of it before is forgotten.
  [[nodiscard]] bool NextIsCurrent();

 private:
  static constexpr std::size_t kMaxFiles = 16;

  void ReadAhead();

  std::span<const FileEntry> entries_;  // From the next one on.
  std::deque<bool> answers_;            // For the first of them, as many as were read ahead.
  // How many files in a row were current, at most kMaxFiles. At first most are expected to be.
  std::size_t currentInARow_ = kMaxFiles;
  // For the contents, while their digests are computed. Kept while files are current, because new
  // memory costs time.
  std::unique_ptr<std::byte[]> memory_;
};

}  // namespace ve::sdk
