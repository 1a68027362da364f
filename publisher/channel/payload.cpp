#include "publisher/channel/payload.h"

#include "core/windows.h"

#include <algorithm>
#include <cstddef>
#include <unordered_map>
#include <vector>

#include "core/directory_walk.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/build/digests.h"
#include "publisher/build/name_rules.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/report/console.h"

namespace ve::publish {
namespace {

bool Link(const std::wstring& existing, const std::wstring& path) {
  return CreateHardLinkW(path.c_str(), existing.c_str(), nullptr) != FALSE;
}

/// Sets the file's digest to what was read. `root` is the final path of the build.
void TakeDigest(BuildFile& file, const FileDigest& read, const std::wstring& root) {
  if (read.error) throw PublishError(*read.error);
  const std::string name = ToUtf8(file.name);
  if (!read.finalPath.empty() && FoldCase(read.finalPath) != FoldCase(JoinPath(root, file.name))) {
    throw PublishError({name, Format("is a link to {}", DisplayPath(read.finalPath)),
                        "Replace it with its target."});
  }
  if (read.size != file.size || (!file.digest.empty() && read.md5 != file.digest)) {
    throw PublishError({name, "was changed while the build was published",
                        "Publish again when the build is complete."});
  }
  file.digest = read.md5;
}

/// Reads the files to take their digests. Copies each into `next`, if that is not empty.
void ReadFiles(const std::wstring& source, const std::vector<BuildFile*>& files,
               const std::wstring& next, Console& console) {
  const std::wstring root = FinalPath(source);
  std::vector<FileToDigest> toRead;
  std::uint64_t bytes = 0;
  for (const BuildFile* const file : files) {
    toRead.push_back({JoinPath(source, file->name)});
    if (!next.empty()) toRead.back().copy = JoinPath(next, file->name);
    bytes += file->size;
  }
  Counter filesDone = 0;
  Counter bytesDone = 0;
  const auto take = [&](std::size_t index, const FileDigest& digest) {
    TakeDigest(*files[index], digest, root);
    ++filesDone;
  };
  DigestFiles(toRead, bytesDone, take, [&] {
    console.ShowProgress(
        {next.empty() ? "Reading" : "Copying", filesDone, files.size(), bytesDone, bytes});
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

bool FindPublished(const std::wstring& source, const std::wstring& published,
                   const sdk::GameUpdateManifest& live, BuildFolder& build, Console& console) {
  std::unordered_map<std::wstring_view, const sdk::FileEntry*> listed;
  for (const sdk::FileEntry& entry : live.files) listed.emplace(entry.name, &entry);
  std::vector<BuildFile*> files;
  for (BuildFile& file : build.files) {
    const auto entry = listed.find(file.name);
    if (entry != listed.end() && entry->second->size == file.size &&
        IsFileOfSize(JoinPath(published, file.name), file.size)) {
      files.push_back(&file);
    }
  }
  ReadFiles(source, files, {}, console);
  for (BuildFile* const file : files) {
    file->isPublished = file->digest == listed.at(file->name)->digest;
  }
  return std::ranges::all_of(build.files, &BuildFile::isPublished);
}

void DigestOthers(const std::wstring& source, BuildFolder& build, Console& console) {
  std::vector<BuildFile*> files;
  for (BuildFile& file : build.files) {
    if (file.digest.empty()) files.push_back(&file);
  }
  ReadFiles(source, files, {}, console);
}

void PlacePayload(const std::wstring& source, const std::wstring& published, BuildFolder& build,
                  const std::wstring& next, Console& console) {
  std::uint64_t bytesToCopy = 0;
  for (const BuildFile& file : build.files) bytesToCopy += file.isPublished ? 0 : file.size;
  file::MakeDirectory(next);
  RequireRoom(next, bytesToCopy);
  for (const std::wstring& directory : build.directories) {
    file::MakeDirectories(JoinPath(next, directory));
  }
  std::vector<BuildFile*> others;
  std::uint64_t linked = 0;
  for (BuildFile& file : build.files) {
    file.isPublished =
        file.isPublished && Link(JoinPath(published, file.name), JoinPath(next, file.name));
    if (!file.isPublished) others.push_back(&file);
    console.ShowProgress({"Linking", ++linked, build.files.size(), 0, 0});
  }
  ReadFiles(source, others, next, console);
}

bool IsFileOfSize(const std::wstring& path, std::uint64_t size) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  return GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) != FALSE &&
         (data.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0 &&
         (std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow) == size;
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
    } else if (FileToDigest file{std::wstring(entry.path), target}; !Link(file.path, target)) {
      DigestFile(file);
    }
    return file::WalkAction::kRecurse;
  });
}

}  // namespace ve::publish
