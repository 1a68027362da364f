#include "publisher/channel/manifest_check.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "core/format.h"
#include "core/unicode.h"
#include "publisher/build/name_rules.h"
#include "publisher/files/server_layout.h"
#include "updater/game_download.h"

namespace ve::publish {
namespace {

std::wstring_view ParentOf(std::wstring_view name) {
  const std::size_t end = name.find_last_of(L"/\\");
  return end == std::wstring_view::npos ? std::wstring_view() : name.substr(0, end);
}

bool IsLowercaseHexadecimal(std::string_view digest) {
  return std::all_of(digest.begin(), digest.end(),
                     [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

/// One pass over a manifest.
class ManifestCheck {
 public:
  ManifestCheck(const sdk::GameUpdateManifest& manifest, const std::string& place,
                Diagnostics& diagnostics)
      : manifest_(manifest), place_(place), diagnostics_(diagnostics) {}

  void Run() {
    for (const std::string_view directory : manifest_.directories) {
      listed_.insert(FoldCase(sdk::WidenName(directory)));
    }
    for (const std::string_view directory : manifest_.directories) {
      CheckDirectory(sdk::WidenName(directory));
    }
    for (const sdk::FileEntry& entry : manifest_.files) CheckFile(entry);
    TellUnlistedDirectories();
  }

 private:
  void AddError(std::string message, std::string hint) {
    diagnostics_.AddError(place_, std::move(message), std::move(hint));
  }

  void CheckDirectory(const std::wstring& name) {
    const std::wstring_view parent = ParentOf(name);
    if (!parent.empty() && !onDisk_.contains(FoldCase(parent))) {
      AddError(listed_.contains(FoldCase(parent))
                   ? Format("the directory '{}' is listed before its parent '{}'", ToUtf8(name),
                            ToUtf8(parent))
                   : Format("the directory '{}' is listed without its parent '{}'", ToUtf8(name),
                            ToUtf8(parent)),
               "Every update fails before a file is fetched. List parents before their children.");
    }
    const auto [known, isNew] = onDisk_.try_emplace(FoldCase(name), SpellingOnDisk(name));
    if (!isNew) {
      diagnostics_.AddWarning(place_,
                              known->second == SpellingOnDisk(name)
                                  ? Format("the directory '{}' is listed twice", ToUtf8(name))
                                  : Format("the directories '{}' and '{}' differ only in case",
                                           ToUtf8(known->second), ToUtf8(name)),
                              "Windows has room for one of them. List it once.");
    }
  }

  /// A directory is created in the spelling of its own line, below its parent as that is there.
  [[nodiscard]] std::wstring SpellingOnDisk(const std::wstring& name) const {
    const std::wstring_view parent = ParentOf(name);
    const auto known = onDisk_.find(FoldCase(parent));
    if (known == onDisk_.end()) return name;
    return Format(L"{}/{}", known->second, std::wstring_view(name).substr(parent.size() + 1));
  }

  void CheckFile(const sdk::FileEntry& entry) {
    CheckSpelling(entry);
    CheckFolder(entry);
    if (!IsLowercaseHexadecimal(entry.digest)) {
      AddError(Format("'{}' has the digest '{}', which is not in lowercase hexadecimal digits",
                      ToUtf8(entry.name), entry.digest),
               "It never counts as current and is downloaded by every update. Publish again.");
    }
    if (entry.size > std::numeric_limits<std::uint32_t>::max()) {
      AddError(Format("'{}' has {} bytes", ToUtf8(entry.name), entry.size),
               "The Launcher downloads files below 4 GiB only. Split it.");
    }
  }

  void CheckSpelling(const sdk::FileEntry& entry) {
    const std::wstring folded = FoldCase(entry.name);
    const auto [known, isNew] = files_.try_emplace(folded, entry.name);
    if (!isNew) {
      AddError(known->second == entry.name ? Format("'{}' is listed twice", ToUtf8(entry.name))
                                           : Format("'{}' and '{}' differ only in case",
                                                    ToUtf8(known->second), ToUtf8(entry.name)),
               "One replaces the other with every update. List it once.");
    }
    if (listed_.contains(folded)) {
      AddError(Format("'{}' is listed as a directory and as a file", ToUtf8(entry.name)),
               "Every update ends abnormally there. Rename one of them.");
    }
    const std::wstring_view directory = ParentOf(entry.name);
    if (directory.empty()) return;
    const auto onDisk = onDisk_.find(FoldCase(directory));
    if (onDisk == onDisk_.end()) {
      auto& [first, count] = unlistedDirectories_[FoldCase(directory)];
      if (count++ == 0) first = entry.name;
    } else if (!std::equal(directory.begin(), directory.end(), onDisk->second.begin(),
                           onDisk->second.end(), [](wchar_t left, wchar_t right) {
                             return left == right || (left == L'\\' && right == L'/');
                           })) {
      AddError(Format("'{}' spells the directory '{}' differently", ToUtf8(entry.name),
                      ToUtf8(onDisk->second)),
               "The clean-up deletes it right after it was installed. Spell both alike.");
    }
  }

  void CheckFolder(const sdk::FileEntry& entry) {
    if (entry.name.find(L'\\') != std::wstring::npos) {
      AddError(Format("'{}' is written with a backslash", ToUtf8(entry.name)),
               "The clean-up deletes it right after it was installed. Write '/'.");
    }
    const std::wstring key = FoldCase(entry.name);
    if (key.starts_with(FoldCase(sdk::kStagingFolder))) {
      AddError(Format("'{}' lies in the staging folder", ToUtf8(entry.name)),
               "It is deleted at the end of every update. Move it elsewhere.");
    }
    if (key.starts_with(FoldCase(Format(L"{}/", kUpdaterFolder)))) {
      AddError(Format("'{}' stands where the server has files of its own", ToUtf8(entry.name)),
               "One of them hides the other. Rename it.");
    }
  }

  void TellUnlistedDirectories() {
    for (const auto& [folded, use] : unlistedDirectories_) {
      const auto& [first, count] = use;
      AddError(Format("the directory '{}' is not listed, but {} of the files are in it",
                      ToUtf8(ParentOf(first)), count),
               "Every update that fetches one of them ends abnormally. List the directory.");
    }
  }

  const sdk::GameUpdateManifest& manifest_;
  const std::string& place_;
  Diagnostics& diagnostics_;
  std::unordered_set<std::wstring> listed_;                // Folded.
  std::unordered_map<std::wstring, std::wstring> onDisk_;  // Folded; as the player's disk has it.
  std::unordered_map<std::wstring, std::wstring> files_;   // Folded; as listed first.
  // Folded; the first file in it, and how many there are.
  std::map<std::wstring, std::pair<std::wstring, std::size_t>> unlistedDirectories_;
};

void CheckListedName(std::wstring_view name, NameKind kind, std::wstring_view launcher,
                     Diagnostics& diagnostics) {
  std::wstring slashed(name);  // A backslash is told apart, with what it leads to.
  std::replace(slashed.begin(), slashed.end(), L'\\', L'/');
  CheckName(slashed, kind, launcher, diagnostics);
}

std::string InManifest(const Diagnostic& diagnostic) {
  return Format("'{}': {}", diagnostic.subject, diagnostic.message);
}

}  // namespace

void CheckListedNames(const sdk::GameUpdateManifest& manifest, const std::string& place,
                      std::wstring_view launcher, Diagnostics& diagnostics) {
  Diagnostics found;
  for (const std::string_view directory : manifest.directories) {
    CheckListedName(sdk::WidenName(directory), NameKind::kDirectory, launcher, found);
  }
  for (const sdk::FileEntry& entry : manifest.files) {
    CheckListedName(entry.name, NameKind::kFile, launcher, found);
  }
  for (const Diagnostic& diagnostic : found.errors) {
    diagnostics.AddError(place, InManifest(diagnostic), diagnostic.hint);
  }
  for (const Diagnostic& diagnostic : found.warnings) {
    diagnostics.AddWarning(place, InManifest(diagnostic), diagnostic.hint);
  }
}

void CheckManifest(const sdk::GameUpdateManifest& manifest, const std::string& place,
                   std::wstring_view launcher, Diagnostics& diagnostics) {
  CheckListedNames(manifest, place, launcher, diagnostics);
  ManifestCheck(manifest, place, diagnostics).Run();
}

}  // namespace ve::publish
