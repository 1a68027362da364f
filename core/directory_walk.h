// Walking and removing directory trees.
//
// The standard library's iterator is not used: mingw's follows junctions and links to directories,
// so a walk that deletes would leave the tree. Here a link is an entry like a file and is never
// walked into.
#pragma once

#include "core/windows.h"

#include <functional>
#include <string>
#include <string_view>

namespace ve::file {

/// An entry that a walk meets.
struct DirectoryEntry {
  std::wstring_view path;  ///< The walk's root, "\", the path below it. Valid during the visit.
  DWORD attributes;        ///< FILE_ATTRIBUTE_*.
  DWORD reparseTag;        ///< IO_REPARSE_TAG_*, if it is a reparse point.

  [[nodiscard]] bool IsDirectory() const noexcept {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  }
  /// Whether this is a link or junction to somewhere else. Other reparse points, such as the
  /// placeholders of cloud storage, are ordinary entries. A reparse point without a tag counts as a
  /// link.
  [[nodiscard]] bool IsLink() const noexcept {
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
           (reparseTag == IO_REPARSE_TAG_RESERVED_ZERO || IsReparseTagNameSurrogate(reparseTag));
  }
  /// Whether this is a directory of the tree, not a link out of it.
  [[nodiscard]] bool ShouldRecurse() const noexcept { return IsDirectory() && !IsLink(); }
};

enum class WalkAction { kRecurse, kSkip };

/// Visits every entry below `root`, a directory before its contents, in the file system's order.
/// `visit` returns for a directory whether to visit its contents, too. Throws a filesystem error
/// ("directory_entry::status") if a directory cannot be read.
void WalkDirectory(std::wstring_view root,
                   const std::function<WalkAction(const DirectoryEntry&)>& visit);

/// Whether the directory holds any entry. Throws a filesystem error ("directory_entry::status") if
/// it cannot be read.
[[nodiscard]] bool HoldsEntries(std::wstring_view path);

/// Removes a directory with everything in it; of a link or junction only the link. Nothing at the
/// path is no error. Throws filesystem errors; what is removed by then stays removed.
void RemoveTree(std::wstring_view path);

}  // namespace ve::file
