#include "updater/game_download.h"

#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "core/md5.h"
#include "net/download.h"
#include "updater/download_failures.h"

namespace ve::sdk {
namespace {

void FetchFile(const std::wstring& fileUrl, std::wstring_view stagingPath) {
  DownloadResult download = Download(fileUrl);
  if (!download.Succeeded()) {
    ThrowUpdaterException(kFileDownloadFailed, fileUrl, download.Error());
  }
  file::SaveFile(stagingPath, download.Body());
}

}  // namespace

std::wstring StagingPath(std::wstring_view name) { return Format(L"{}{}", kStagingFolder, name); }

FileSource FindSource(const FileEntry& entry, std::wstring_view stagingPath) {
  if (FileMatchesEntry(entry.name, entry.size, entry.digest)) return FileSource::kInstalled;
  if (FileMatchesEntry(stagingPath, entry.size, entry.digest)) return FileSource::kStaged;
  return FileSource::kServer;
}

void MakeStagingFolders(const GameUpdateManifest& manifest) {
  file::EnsureDirectories(kStagingFolder);
  for (const std::string_view directory : manifest.directories) {
    // The folder ends with a backslash, so there are two; the file system takes them for one.
    file::MakeDirectory(Format(L"{}\\{}", kStagingFolder, WidenName(directory)));
  }
}

StagedUpdate StageFiles(std::wstring_view updatesUrl, const GameUpdateManifest& manifest,
                        std::atomic<std::uint32_t>& processed) {
  StagedUpdate staged;
  staged.names.reserve(manifest.files.size());
  for (const FileEntry& entry : manifest.files) {
    std::wstring stagingPath = StagingPath(entry.name);
    const FileSource source = FindSource(entry, stagingPath);
    if (source == FileSource::kServer) {
      FetchFile(Format(L"{}{}", updatesUrl, entry.name), stagingPath);
    }
    if (source != FileSource::kInstalled) {
      staged.copies.push_back({entry.name, std::move(stagingPath)});
    }
    ++processed;
    staged.names.insert(entry.name);
  }
  return staged;
}

}  // namespace ve::sdk
