#include "publisher/channel/payload.h"

#include "core/windows.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <unordered_map>
#include <vector>

#include "core/directory_walk.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/build/digests.h"
#include "publisher/build/name_rules.h"
#include "publisher/build/parallel.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/report/console.h"

namespace ve::publish {
namespace {

using Counter = std::atomic<std::uint64_t>;

bool Link(const std::wstring& existing, const std::wstring& path) {
  return CreateHardLinkW(path.c_str(), existing.c_str(), nullptr) != FALSE;
}

using Condition = std::function<bool(const BuildFile& file)>;

/// Calls `work` for each file of the build with this condition on all processors, and shows the
/// progress. `work` adds the bytes that it has read.
void ForEachFile(BuildFolder& build, const Condition& condition, std::string_view name,
                 const ProgressCallback& progress,
                 const std::function<void(BuildFile& file, Counter& bytesDone)>& work) {
  std::vector<BuildFile*> files;
  std::uint64_t bytes = 0;
  for (BuildFile& file : build.files) {
    if (!condition(file)) continue;
    files.push_back(&file);
    bytes += file.size;
  }
  Counter filesDone = 0;
  Counter bytesDone = 0;
  const auto next = [&](std::size_t index) {
    work(*files[index], bytesDone);
    ++filesDone;
  };
  ForEachInParallel(files.size(), 0, next, [&] {
    progress({name, filesDone, files.size(), bytesDone, bytes});
  });
}

/// Sets the file's digest to what was read. `root` is the final path of the
/// build.
void TakeDigest(BuildFile& file, const FileDigest& read, const std::wstring& root) {
  const std::string name = ToUtf8(file.name);
  if (!read.finalPath.empty() && FoldCase(read.finalPath) != FoldCase(JoinPath(root, file.name))) {
    throw PublishError({name, Format("is a link to {}", DisplayPath(read.finalPath)),
                        "Replace it by what it leads to."});
  }
  if (read.size != file.size || (!file.digest.empty() && read.md5 != file.digest)) {
    throw PublishError({name, "was changed while the build was published",
                        "Publish again when the build is complete."});
  }
  file.digest = read.md5;
}

void DigestFiles(const std::wstring& source, BuildFolder& build, const Condition& condition,
                 const ProgressCallback& progress) {
  const std::wstring root = FinalPath(source);
  ForEachFile(build, condition, "Reading", progress, [&](BuildFile& file, Counter& bytesDone) {
    TakeDigest(file, DigestOf(JoinPath(source, file.name), bytesDone), root);
  });
}

void RequireRoom(const std::wstring& folder, std::uint64_t bytes) {
  ULARGE_INTEGER free{};
  const bool isKnown = GetDiskFreeSpaceExW(folder.c_str(), &free, nullptr, nullptr) != FALSE;
  if (!isKnown || free.QuadPart >= bytes) return;
  throw PublishError({DisplayPath(folder),
                      Format("too little free space: {} are needed, {} are free",
                             FormatByteSize(bytes), FormatByteSize(free.QuadPart)),
                      "Free space on that disk, then publish again."});
}

}  // namespace

void FindPublished(const std::wstring& source, const std::wstring& published,
                   const sdk::GameUpdateManifest& live, BuildFolder& build,
                   const ProgressCallback& progress) {
  std::unordered_map<std::wstring_view, const sdk::FileEntry*> listed;
  for (const sdk::FileEntry& entry : live.files) listed.emplace(entry.name, &entry);
  const auto mayBePublished = [&](const BuildFile& file) {
    const auto entry = listed.find(file.name);
    return entry != listed.end() && entry->second->size == file.size &&
           IsFileOfSize(JoinPath(published, file.name), file.size);
  };
  DigestFiles(source, build, mayBePublished, progress);
  for (BuildFile& file : build.files) {
    file.isPublished = !file.digest.empty() && file.digest == listed.at(file.name)->digest;
  }
}

void DigestOthers(const std::wstring& source, BuildFolder& build,
                  const ProgressCallback& progress) {
  const auto isWithoutDigest = [](const BuildFile& file) { return file.digest.empty(); };
  DigestFiles(source, build, isWithoutDigest, progress);
}

CopyStats PlacePayload(const std::wstring& source, const std::wstring& published,
                       BuildFolder& build, const std::wstring& next,
                       const ProgressCallback& progress) {
  std::uint64_t bytesToCopy = 0;
  for (const BuildFile& file : build.files) bytesToCopy += file.isPublished ? 0 : file.size;
  RequireRoom(next, bytesToCopy);
  for (const std::wstring& directory : build.directories) {
    file::MakeDirectory(JoinPath(next, directory));
  }
  std::atomic<std::uint64_t> copiedFiles = 0;
  std::atomic<std::uint64_t> copiedBytes = 0;
  const std::wstring root = FinalPath(source);
  const auto isAny = [](const BuildFile&) { return true; };
  ForEachFile(build, isAny, "Copying", progress, [&](BuildFile& file, Counter& bytesDone) {
    const std::wstring path = JoinPath(next, file.name);
    if (file.isPublished && Link(JoinPath(published, file.name), path)) {
      bytesDone += file.size;
      return;
    }
    TakeDigest(file, CopyWithDigest(JoinPath(source, file.name), path, bytesDone), root);
    ++copiedFiles;
    copiedBytes += file.size;
  });
  return {build.files.size() - copiedFiles, copiedFiles, copiedBytes};
}

bool IsFileOfSize(const std::wstring& path, std::uint64_t size) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return false;
  return (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0 &&
         file::FileSize(path) == size;
}

bool LinkOrCopy(const std::wstring& existing, const std::wstring& path) {
  if (Link(existing, path)) return true;
  Counter bytesDone = 0;
  CopyWithDigest(existing, path, bytesDone);
  return false;
}

void PlaceLauncher(const std::wstring& published, const std::wstring& next) {
  const std::wstring from = JoinPath(published, kUpdaterFolder);
  if (!file::Exists(from)) return;
  const std::wstring to = JoinPath(next, kUpdaterFolder);
  file::MakeDirectory(to);
  file::WalkDirectory(from, [&](const file::DirectoryEntry& entry) {
    const std::wstring target = Format(L"{}{}", to, entry.path.substr(from.size()));
    if (entry.IsDirectory()) {
      file::MakeDirectory(target);
    } else {
      LinkOrCopy(std::wstring(entry.path), target);
    }
    return file::WalkAction::kRecurse;
  });
}

}  // namespace ve::publish
