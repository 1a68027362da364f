// What the clean-up after an update keeps.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

namespace ve::sdk {

/// Decides which entries of the game folder the clean-up keeps. All names are compared with case,
/// although the file system ignores it: a file on disk in another spelling than the listed one is
/// not kept.
class CleanupRules {
 public:
  /// `listedNames` (with "/") and `ownExecutable` must outlive the rules.
  CleanupRules(const std::unordered_set<std::wstring_view>& listedNames,
               std::wstring_view ownExecutable)
      : listedNames_(listedNames), ownExecutable_(ownExecutable) {}

  /// Whether to keep the file or directory at `relativePath`, which is below the game root, with
  /// "\" as separator. Kept are "Output.txt" in the root, what has the extension "rar", the running
  /// executable, everything whose first component is a preserved name, and the listed files. The
  /// rules are the same for directories, so one that only holds listed files is not kept.
  [[nodiscard]] bool Keeps(std::wstring_view relativePath) const;

 private:
  const std::unordered_set<std::wstring_view>& listedNames_;
  std::wstring_view ownExecutable_;
};

}  // namespace ve::sdk
