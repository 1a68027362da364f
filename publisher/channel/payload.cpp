#include "publisher/channel/payload.h"

#include "core/windows.h"

#include <cstddef>

#include "core/directory_walk.h"
#include "core/files.h"
#include "publisher/build/digests.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {
namespace {

bool IsFileOfSize(const std::wstring& path, std::uint64_t size) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return false;
  return (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) == 0 &&
         file::FileSize(path) == size;
}

/// A second name for the same content; where the file system has no such thing, a copy.
bool LinkOrCopy(const std::wstring& existing, const std::wstring& path) {
  if (CreateHardLinkW(path.c_str(), existing.c_str(), nullptr) != FALSE) return true;
  CopyWholeFile(existing, path);
  return false;
}

/// The files to be read: those of the build, then those published that may be the same.
struct Reading {
  std::vector<std::wstring> paths;
  std::vector<std::size_t> candidates;  ///< The build's files that the latter stand for.
  std::uint64_t bytes = 0;
};

Reading FilesToRead(const std::wstring& source, const std::wstring& published,
                    const BuildFolder& build) {
  Reading reading;
  for (const BuildFile& file : build.files) {
    reading.paths.push_back(JoinPath(source, file.name));
    reading.bytes += file.size;
  }
  for (std::size_t index = 0; index < build.files.size(); ++index) {
    const BuildFile& file = build.files[index];
    std::wstring path = JoinPath(published, file.name);
    if (!IsFileOfSize(path, file.size)) continue;
    reading.paths.push_back(std::move(path));
    reading.candidates.push_back(index);
    reading.bytes += file.size;
  }
  return reading;
}

void PlaceFile(const std::wstring& source, const std::wstring& published, const BuildFile& file,
               bool isPublished, const std::wstring& next, CopyStats& placed) {
  const std::wstring path = JoinPath(next, file.name);
  if (isPublished && LinkOrCopy(JoinPath(published, file.name), path)) {
    ++placed.linkedFiles;
    return;
  }
  if (!isPublished) CopyWholeFile(JoinPath(source, file.name), path);
  ++placed.copiedFiles;
  placed.copiedBytes += file.size;
}

}  // namespace

std::vector<bool> DigestBuild(const std::wstring& source, const std::wstring& published,
                              BuildFolder& build, const ProgressCallback& progress) {
  const Reading reading = FilesToRead(source, published, build);
  const std::vector<FileDigest> digests =
      FileDigests(reading.paths, [&](std::uint64_t files, std::uint64_t bytes) {
        progress({"Reading", files, reading.paths.size(), bytes, reading.bytes});
      });
  const std::size_t own = build.files.size();
  for (std::size_t index = 0; index < own; ++index) build.files[index].digest = digests[index].md5;
  std::vector<bool> isPublished(own, false);
  for (std::size_t index = 0; index < reading.candidates.size(); ++index) {
    const std::size_t candidate = reading.candidates[index];
    isPublished[candidate] = digests[own + index].md5 == digests[candidate].md5;
  }
  return isPublished;
}

CopyStats PlacePayload(const std::wstring& source, const std::wstring& published,
                       const BuildFolder& build, const std::vector<bool>& isPublished,
                       const std::wstring& next, const ProgressCallback& progress) {
  for (const std::wstring& directory : build.directories) {
    file::MakeDirectory(JoinPath(next, directory));
  }
  CopyStats placed;
  const std::uint64_t bytes = build.Bytes();
  std::uint64_t bytesDone = 0;
  for (std::size_t index = 0; index < build.files.size(); ++index) {
    progress({"Copying", index, build.files.size(), bytesDone, bytes});
    const BuildFile& file = build.files[index];
    PlaceFile(source, published, file, isPublished[index], next, placed);
    bytesDone += file.size;
  }
  return placed;
}

void PlaceLauncher(const std::wstring& published, const std::wstring& next) {
  const std::wstring from = JoinPath(published, kUpdaterFolder);
  if (!file::Exists(from)) return;
  const std::wstring to = JoinPath(next, kUpdaterFolder);
  file::MakeDirectory(to);
  file::WalkDirectory(from, [&](const file::DirectoryEntry& entry) {
    const std::wstring target = JoinPath(to, entry.path.substr(from.size() + 1));
    if (entry.IsDirectory()) {
      file::MakeDirectory(target);
    } else {
      LinkOrCopy(std::wstring(entry.path), target);
    }
    return file::WalkAction::kRecurse;
  });
}

}  // namespace ve::publish
