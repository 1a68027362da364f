#include "publisher/channel/manifest_check.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <map>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/format.h"
#include "core/unicode.h"
#include "launcher/updater_driver.h"
#include "publisher/build/digests.h"
#include "publisher/build/name_rules.h"
#include "publisher/build/parallel.h"
#include "publisher/files/paths.h"
#include "updater/download_messages.h"

namespace ve::publish {
namespace {

std::wstring_view ParentOf(std::wstring_view name) {
  const std::size_t end = name.rfind(L'/');
  return end == std::wstring_view::npos ? std::wstring_view() : name.substr(0, end);
}

std::string DuplicateMessage(const std::wstring& first, const std::wstring& second) {
  return first == second ? "is listed twice"
                         : Format("differs from {} only in case", ToUtf8(first));
}

/// One pass over a manifest.
class ManifestCheck {
 public:
  ManifestCheck(const std::string& location, std::wstring_view launcher, Diagnostics& diagnostics)
      : location_(location), launcher_(launcher), diagnostics_(diagnostics) {}

  void Run(const sdk::GameUpdateManifest& manifest) {
    for (const std::string_view name : manifest.directories) CheckDirectory(sdk::WidenName(name));
    for (const sdk::FileEntry& entry : manifest.files) CheckFile(entry);
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
  void AddError(std::wstring_view name, std::string_view message, std::string hint) {
    diagnostics_.AddError(Subject(name), std::string(message), std::move(hint));
  }

  [[nodiscard]] std::string Subject(std::wstring_view name) const {
    return Format("{}: {}", location_, ToUtf8(name));
  }

  bool CheckListedName(std::wstring_view name, NameKind kind) {
    return CheckName(name, kind, launcher_, Subject(name), diagnostics_);
  }

  void CheckDirectory(const std::wstring& name) {
    if (!CheckListedName(name, NameKind::kDirectory)) return;
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
    diagnostics_.AddWarning(Subject(name), DuplicateMessage(known->second, spelling),
                            "On Windows both are one directory. List it once.");
  }

  void CheckFile(const sdk::FileEntry& entry) {
    if (!CheckListedName(entry.name, NameKind::kFile)) return;
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
    if (entry.digest.find_first_not_of("0123456789abcdef") != std::string_view::npos) {
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

  const std::string& location_;
  std::wstring_view launcher_;
  Diagnostics& diagnostics_;
  // By the folded name: directories as players' disks have them, and files as first listed.
  std::unordered_map<std::wstring, std::wstring> onDisk_;
  std::unordered_map<std::wstring, std::wstring> files_;
  // Directories without a line: one spelling, and the number of files directly in them.
  std::map<std::wstring, std::pair<std::wstring, std::size_t>> unlisted_;
};

/// Compares what was read of a listed file.
void CheckContent(const PublishedTree& tree, const sdk::FileEntry& entry,
                  const FileContent& content, Diagnostics& diagnostics) {
  const std::string location = tree.LocationOf(entry.name);
  if (!content.error.empty()) {
    const std::string error = ToUtf8(content.error);
    return diagnostics.AddError(
        location,
        tree.IsServed() ? Format(sdk::kFileDownloadFailed, location, error)
                        : Format("is listed, but {}", error),
        "Every update that needs the file ends abnormally, without a log entry. Publish again.");
  }
  std::string message;
  if (content.size != entry.size) {
    message = Format("has {} bytes instead of the {} listed", content.size, entry.size);
  } else if (FoldCase(ToWide(content.md5)) != FoldCase(sdk::WidenName(entry.digest))) {
    message = Format("has the digest {} instead of the listed {}", content.md5, entry.digest);
  }
  if (message.empty()) return CheckContentLength(content, location, diagnostics);
  diagnostics.AddError(
      location, std::move(message),
      "Players would install it as it is, and fetch it again with every update. Publish again.");
}

}  // namespace

void CheckManifest(const sdk::GameUpdateManifest& manifest, const std::string& location,
                   std::wstring_view launcher, Diagnostics& diagnostics) {
  ManifestCheck(location, launcher, diagnostics).Run(manifest);
}

void CheckPayload(const PublishedTree& tree, const sdk::GameUpdateManifest& manifest,
                  Console& console, Diagnostics& diagnostics) {
  std::vector<FileToDigest> files;
  std::uint64_t bytes = 0;
  for (const sdk::FileEntry& entry : manifest.files) {
    files.push_back({JoinPath(tree.Folder(), entry.name)});
    bytes += entry.size;
  }
  Counter filesDone = 0;
  Counter bytesDone = 0;
  std::vector<Diagnostics> found(files.size());
  const auto check = [&](std::size_t index, const FileContent& content) {
    CheckContent(tree, manifest.files[index], content, found[index]);
    ++filesDone;
  };
  const auto watch = [&] {
    console.ShowProgress({"Checking", filesDone, files.size(), bytesDone, bytes});
  };
  if (tree.IsServed()) {
    const auto fetch = [&](std::size_t index, std::size_t) {
      const sdk::FileEntry& entry = manifest.files[index];
      check(index, tree.Read(entry.name, Keep::kDigest));
      bytesDone += entry.size;
    };
    ForEachInParallel(files.size(), kParallelRequests, fetch, watch);
  } else {
    const auto take = [&](std::size_t index, const FileDigest& digest) {
      const std::wstring error = digest.error ? ToWide(digest.error->message) : std::wstring();
      check(index, {error, {}, digest.md5, digest.size, digest.size});
    };
    DigestFiles(files, bytesDone, take, watch);
  }
  console.EndProgress();
  for (Diagnostics& ofFile : found) {
    std::ranges::move(ofFile.errors, std::back_inserter(diagnostics.errors));
  }
}

}  // namespace ve::publish
