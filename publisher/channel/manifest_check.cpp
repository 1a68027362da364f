#include "publisher/channel/manifest_check.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "core/format.h"
#include "core/unicode.h"
#include "launcher/updater_driver.h"
#include "publisher/build/name_rules.h"

namespace ve::publish {
namespace {

std::wstring_view ParentOf(std::wstring_view name) {
  const std::size_t end = name.rfind(L'/');
  return end == std::wstring_view::npos ? std::wstring_view() : name.substr(0, end);
}

bool IsLowercaseHexadecimal(std::string_view digest) {
  return std::all_of(digest.begin(), digest.end(),
                     [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); });
}

std::string DuplicateMessage(const std::wstring& first, const std::wstring& second) {
  return first == second ? "is listed twice"
                         : Format("differs from {} only in case", ToUtf8(first));
}

/// One pass over a manifest.
class ManifestCheck {
 public:
  ManifestCheck(const sdk::GameUpdateManifest& manifest, std::wstring_view launcher,
                Diagnostics& diagnostics)
      : manifest_(manifest), launcher_(launcher), diagnostics_(diagnostics) {}

  void Run() {
    for (const std::string_view name : manifest_.directories) CheckDirectory(sdk::WidenName(name));
    for (const sdk::FileEntry& entry : manifest_.files) CheckFile(entry);
    for (const auto& [key, use] : unlisted_) {
      AddError(use.first, Format("is not listed, but {} of the files are in it", use.second),
               "Every update that fetches one of them ends abnormally. List the directory.");
    }
    if (!files_.contains(FoldCase(kGameProgram))) {
      AddError(L"bin/Velmorant Player.exe", "is not listed",
               "It is the game that the Launcher starts, and every update deletes what is not "
               "listed. Publish the folder that contains bin.");
    }
  }

 private:
  void AddError(std::wstring_view name, std::string message, std::string hint) {
    diagnostics_.AddError(ToUtf8(name), std::move(message), std::move(hint));
  }

  void CheckDirectory(const std::wstring& name) {
    if (!CheckName(name, NameKind::kDirectory, launcher_, diagnostics_)) return;
    // Each directory is created in the spelling of its line, below its parent as that is on disk.
    const std::wstring_view parent = ParentOf(name);
    const auto parentOnDisk = onDisk_.find(FoldCase(parent));
    std::wstring spelling = name;
    if (parentOnDisk != onDisk_.end()) {
      spelling = parentOnDisk->second + name.substr(parent.size());
    } else if (!parent.empty()) {
      AddError(name, Format("its parent directory {} is not listed before it", ToUtf8(parent)),
               "Every update fails before a file is fetched. List parents before their children.");
    }
    const auto [known, isNew] = onDisk_.try_emplace(FoldCase(name), spelling);
    if (isNew) return;
    diagnostics_.AddWarning(ToUtf8(name), DuplicateMessage(known->second, spelling),
                            "On Windows both are one directory. List it once.");
  }

  void CheckFile(const sdk::FileEntry& entry) {
    if (!CheckName(entry.name, NameKind::kFile, launcher_, diagnostics_)) return;
    const std::wstring key = FoldCase(entry.name);
    const auto [known, isNew] = files_.try_emplace(key, entry.name);
    if (!isNew) {
      AddError(entry.name, DuplicateMessage(known->second, entry.name),
               "One replaces the other with every update. List it once.");
    }
    if (onDisk_.contains(key)) {
      AddError(entry.name, "is listed as a directory and as a file",
               "Every update ends abnormally there. Rename one of them.");
    }
    CheckParent(entry.name);
    if (!IsLowercaseHexadecimal(entry.digest)) {
      AddError(
          entry.name,
          Format("has the digest {}, which is not in lowercase hexadecimal digits", entry.digest),
          "It never counts as current and is downloaded by every update. Publish again.");
    }
    if (entry.size > std::numeric_limits<std::uint32_t>::max()) {
      AddError(entry.name, Format("has {} bytes", entry.size),
               "The Launcher downloads files below 4 GiB only. Split it.");
    }
  }

  void CheckParent(std::wstring_view name) {
    const std::wstring_view parent = ParentOf(name);
    if (parent.empty()) return;
    const auto onDisk = onDisk_.find(FoldCase(parent));
    if (onDisk == onDisk_.end()) {
      ++unlisted_.try_emplace(FoldCase(parent), parent, 0).first->second.second;
    } else if (onDisk->second != parent) {
      AddError(name, Format("spells the directory {} differently", ToUtf8(onDisk->second)),
               "The clean-up deletes the file right after it was installed. Spell both alike.");
    }
  }

  const sdk::GameUpdateManifest& manifest_;
  std::wstring_view launcher_;
  Diagnostics& diagnostics_;
  // By the folded name:
  std::unordered_map<std::wstring, std::wstring>
      onDisk_;                                            // Directories, as players' disks have it.
  std::unordered_map<std::wstring, std::wstring> files_;  // Files, as first listed.
  // Directories without a line: one spelling, and the number of files directly in them.
  std::map<std::wstring, std::pair<std::wstring, std::size_t>> unlisted_;
};

/// Adds findings about names to those about the manifest.
void AddAll(const Diagnostics& found, const std::string& location, Diagnostics& diagnostics) {
  for (const auto& [name, message, hint] : found.errors) {
    diagnostics.AddError(location, Format("{}: {}", name, message), hint);
  }
  for (const auto& [name, message, hint] : found.warnings) {
    diagnostics.AddWarning(location, Format("{}: {}", name, message), hint);
  }
}

}  // namespace

void CheckListedNames(const sdk::GameUpdateManifest& manifest, const std::string& location,
                      std::wstring_view launcher, Diagnostics& diagnostics) {
  Diagnostics found;
  for (const std::string_view name : manifest.directories) {
    CheckName(sdk::WidenName(name), NameKind::kDirectory, launcher, found);
  }
  for (const sdk::FileEntry& entry : manifest.files) {
    CheckName(entry.name, NameKind::kFile, launcher, found);
  }
  AddAll(found, location, diagnostics);
}

void CheckManifest(const sdk::GameUpdateManifest& manifest, const std::string& location,
                   std::wstring_view launcher, Diagnostics& diagnostics) {
  Diagnostics found;
  ManifestCheck(manifest, launcher, found).Run();
  AddAll(found, location, diagnostics);
}

}  // namespace ve::publish
