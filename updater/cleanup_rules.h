// What the clean-up after an update keeps.
#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

namespace ve::sdk {

/// Decides, entry by entry, what of the game folder stays. All comparisons of names are
/// case-sensitive, although the file system is not: a file listed in another spelling than its own
/// on disk is not kept.
class CleanupRules {
 public:
  /// `listedNames` (with "/") and `ownExecutable` must outlive the rules.
  CleanupRules(const std::unordered_set<std::wstring>& listedNames, std::wstring_view ownExecutable)
      : listedNames_(listedNames), ownExecutable_(ownExecutable) {}

  /// Whether the file or directory at this path stays. `relativePath` is below the game root, with
  /// "\". Directories are judged like files, so one that is neither preserved nor happens to have a
  /// listed file's name does not stay.
  [[nodiscard]] bool Keeps(std::wstring_view relativePath);

 private:
  const std::unordered_set<std::wstring>& listedNames_;
  std::wstring_view ownExecutable_;
  std::wstring key_;  // Scratch, to compare without an allocation for every entry.
};

}  // namespace ve::sdk
