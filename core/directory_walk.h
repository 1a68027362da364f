// Walking and removing directory trees.
//
// The standard library's iterator is not used: the one of mingw follows junctions and links to
// directories, so that a walk that deletes would leave the tree it was given; it also queries every
// entry again. Here such links are entries like files, never entered.
#pragma once

#include "core/windows.h"

#include <functional>
#include <string>
#include <string_view>

namespace ve::file {

/// One entry met on a walk.
struct DirectoryEntry {
  std::wstring_view path;  ///< The walk's root, a separator, the way below it. Valid in the visit.
  DWORD attributes;        ///< FILE_ATTRIBUTE_*.
  DWORD reparseTag;        ///< IO_REPARSE_TAG_*, if it is a reparse point.

  [[nodiscard]] bool IsDirectory() const noexcept {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  }
  /// A link or junction to somewhere else. Other reparse points, such as the placeholders of cloud
  /// storage, are ordinary entries; a tag that is not told (Wine) may be anything.
  [[nodiscard]] bool IsLink() const noexcept {
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           (reparseTag == IO_REPARSE_TAG_RESERVED_ZERO || IsReparseTagNameSurrogate(reparseTag));
  }
  /// A directory that is part of the tree.
  [[nodiscard]] bool ShouldRecurse() const noexcept { return IsDirectory() && !IsLink(); }
};

enum class WalkAction { kRecurse, kSkip };

/// Visits every entry below `root`, a directory before its contents, in the file system's order.
/// What a visit returns for a directory says whether its contents are visited. Throws a filesystem
/// error ("directory_entry::status") if a directory cannot be read.
void WalkDirectory(std::wstring_view root,
                   const std::function<WalkAction(const DirectoryEntry&)>& visit);

/// Whether the directory holds any entry. Throws a filesystem error ("directory_entry::status") if
/// it cannot be read.
[[nodiscard]] bool HoldsEntries(std::wstring_view path);

/// Removes a directory with everything in it; of a link or junction only the link. Nothing at the
/// path is no error. Throws filesystem errors; what is removed by then stays removed.
void RemoveTree(std::wstring_view path);

}  // namespace ve::file
