#include "publisher/manifest_check.h"

#include <algorithm>
#include <cstdint>
#include <cwctype>
#include <limits>
#include <map>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "core/format.h"
#include "core/unicode.h"
#include "publisher/server_layout.h"
#include "updater/game_download.h"

namespace ve::publish {
namespace {

constexpr std::size_t kLongestPath = 255;  // What the Launcher uses of a path.

std::wstring_view ParentOf(std::wstring_view name) {
  const std::size_t end = name.find_last_of(L"/\\");
  return end == std::wstring_view::npos ? std::wstring_view() : name.substr(0, end);
}

bool IsOwnName(const std::wstring& folded) {
  return folded == FoldedName(kVersionName) || folded == FoldedName(kManifestName) ||
         folded.starts_with(FoldedName(Format(L"{}/", kUpdaterFolder)));
}

bool IsLowercaseHexadecimal(std::string_view digest) {
  return std::all_of(digest.begin(), digest.end(),
                     [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

/// One pass over a manifest.
class ManifestCheck {
 public:
  ManifestCheck(const sdk::GameUpdateManifest& manifest, const std::string& place,
                Findings& findings)
      : manifest_(manifest), place_(place), findings_(findings) {}

  void Run() {
    for (const std::string_view directory : manifest_.directories) {
      listed_.insert(FoldedName(sdk::WidenName(directory)));
    }
    for (const std::string_view directory : manifest_.directories) {
      CheckDirectory(sdk::WidenName(directory));
    }
    for (const std::string_view line : manifest_.fileLines) CheckFile(sdk::EntryOf(line));
    TellUnlistedDirectories();
  }

 private:
  void Refuse(std::string rule, std::string remedy) {
    findings_.Refuse(place_, std::move(rule), std::move(remedy));
  }

  void CheckDirectory(const std::wstring& name) {
    CheckPath(name);
    const std::wstring_view parent = ParentOf(name);
    if (!parent.empty() && !onDisk_.contains(FoldedName(parent))) {
      Refuse(listed_.contains(FoldedName(parent))
                 ? Format("the directory '{}' is listed before its parent '{}'", ToUtf8(name),
                          ToUtf8(parent))
                 : Format("the directory '{}' is listed without its parent '{}'", ToUtf8(name),
                          ToUtf8(parent)),
             "Every update fails before a file is fetched. List parents before their children.");
    }
    const auto [known, isNew] = onDisk_.try_emplace(FoldedName(name), SpellingOnDisk(name));
    if (!isNew) {
      findings_.Warn(place_,
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
    const auto known = onDisk_.find(FoldedName(parent));
    if (known == onDisk_.end()) return name;
    return Format(L"{}/{}", known->second, std::wstring_view(name).substr(parent.size() + 1));
  }

  void CheckFile(const sdk::FileEntry& entry) {
    CheckPath(entry.name);
    CheckSpelling(entry);
    CheckName(entry);
    if (!IsLowercaseHexadecimal(entry.digest)) {
      Refuse(Format("'{}' has the digest '{}', which is not in lowercase hexadecimal digits",
                    ToUtf8(entry.name), entry.digest),
             "It never counts as current and is downloaded by every update. Publish again.");
    }
    if (entry.size > std::numeric_limits<std::uint32_t>::max()) {
      Refuse(Format("'{}' has {} bytes", ToUtf8(entry.name), entry.size),
             "The Launcher downloads files below 4 GiB only. Split it.");
    }
  }

  void CheckSpelling(const sdk::FileEntry& entry) {
    const std::wstring folded = FoldedName(entry.name);
    const auto [known, isNew] = files_.try_emplace(folded, entry.name);
    if (!isNew) {
      Refuse(known->second == entry.name ? Format("'{}' is listed twice", ToUtf8(entry.name))
                                         : Format("'{}' and '{}' differ only in case",
                                                  ToUtf8(known->second), ToUtf8(entry.name)),
             "One replaces the other with every update. List it once.");
    }
    if (listed_.contains(folded)) {
      Refuse(Format("'{}' is listed as a directory and as a file", ToUtf8(entry.name)),
             "Every update ends abnormally there. Rename one of them.");
    }
    const std::wstring_view directory = ParentOf(entry.name);
    if (directory.empty()) return;
    const auto onDisk = onDisk_.find(FoldedName(directory));
    if (onDisk == onDisk_.end()) {
      auto& [first, count] = unlistedDirectories_[FoldedName(directory)];
      if (count++ == 0) first = entry.name;
    } else if (!std::equal(directory.begin(), directory.end(), onDisk->second.begin(),
                           onDisk->second.end(), [](wchar_t left, wchar_t right) {
                             return left == right || (left == L'\\' && right == L'/');
                           })) {
      Refuse(Format("'{}' spells the directory '{}' differently", ToUtf8(entry.name),
                    ToUtf8(onDisk->second)),
             "The clean-up deletes it right after it was installed. Spell both alike.");
    }
  }

  void CheckName(const sdk::FileEntry& entry) {
    if (entry.name.find(L'\\') != std::wstring::npos) {
      Refuse(Format("'{}' is written with a backslash", ToUtf8(entry.name)),
             "The clean-up deletes it right after it was installed. Write '/'.");
    }
    if (FoldedName(entry.name).starts_with(FoldedName(sdk::kStagingFolder))) {
      Refuse(Format("'{}' lies in the staging folder", ToUtf8(entry.name)),
             "It is deleted at the end of every update. Move it elsewhere.");
    }
    if (IsOwnName(FoldedName(entry.name))) {
      Refuse(Format("'{}' stands where the server has files of its own", ToUtf8(entry.name)),
             "One of them hides the other. Rename it.");
    }
  }

  void CheckPath(std::wstring_view name) {
    if (!std::all_of(name.begin(), name.end(), [](wchar_t unit) { return unit < 0x80; })) {
      Refuse(Format("'{}' holds characters beyond ASCII", ToUtf8(name)),
             "The Launcher does not decode them, and asks for another name. Rename it.");
    }
    if (sdk::StagingPath(name).size() > kLongestPath) {
      Refuse(Format("'{}' is longer than {} characters", ToUtf8(name),
                    kLongestPath - sdk::kStagingFolder.size()),
             "With the staging folder in front the Launcher cannot write it. Shorten it.");
    }
  }

  void TellUnlistedDirectories() {
    for (const auto& [folded, use] : unlistedDirectories_) {
      const auto& [first, count] = use;
      Refuse(Format("the directory '{}' is not listed, but {} of the files are in it",
                    ToUtf8(ParentOf(first)), count),
             "Every update that fetches one of them ends abnormally. List the directory.");
    }
  }

  const sdk::GameUpdateManifest& manifest_;
  const std::string& place_;
  Findings& findings_;
  std::unordered_set<std::wstring> listed_;                // Folded.
  std::unordered_map<std::wstring, std::wstring> onDisk_;  // Folded; as the player's disk has it.
  std::unordered_map<std::wstring, std::wstring> files_;   // Folded; as listed first.
  // Folded; the first file in it, and how many there are.
  std::map<std::wstring, std::pair<std::wstring, std::size_t>> unlistedDirectories_;
};

}  // namespace

void CheckManifest(const sdk::GameUpdateManifest& manifest, const std::string& place,
                   Findings& findings) {
  ManifestCheck(manifest, place, findings).Run();
}

std::wstring FoldedName(std::wstring_view name) {
  std::wstring folded(name);
  std::transform(folded.begin(), folded.end(), folded.begin(), [](wchar_t unit) {
    return unit == L'\\' ? L'/' : static_cast<wchar_t>(std::towupper(unit));
  });
  return folded;
}

}  // namespace ve::publish
