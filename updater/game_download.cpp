#include "updater/game_download.h"

#include <utility>

#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "updater/download_messages.h"

namespace ve::sdk {

std::wstring StagingPath(std::wstring_view name) { return Format(L"{}{}", kStagingFolder, name); }

std::wstring StagingDirectory(std::string_view directory) {
  // The folder ends with a backslash, so there are two; the file system takes them for one.
  return Format(L"{}\\{}", kStagingFolder, WidenName(directory));
}

FileSource FindSource(const FileEntry& entry, std::wstring_view stagingPath,
                      const FileMatch& matches) {
  if (matches(entry.name, entry.size, entry.digest)) return FileSource::kInstalled;
  if (matches(stagingPath, entry.size, entry.digest)) return FileSource::kStaged;
  return FileSource::kServer;
}

std::string DownloadGameFile(const std::wstring& fileUrl, const Downloader& download) {
  DownloadResult result = download(fileUrl);
  if (!result.Succeeded()) {
    ThrowUpdaterException(kFileDownloadFailed, fileUrl, result.Error());
  }
  return std::move(result.Body());
}

void MakeStagingFolders(const GameUpdateManifest& manifest) {
  file::EnsureDirectories(kStagingFolder);
  for (const std::string_view directory : manifest.directories) {
    file::MakeDirectory(StagingDirectory(directory));
  }
}

StagedUpdate StageFiles(std::wstring_view updatesUrl, const GameUpdateManifest& manifest,
                        std::atomic<std::uint32_t>& processed) {
  StagedUpdate staged;
  staged.names.reserve(manifest.fileLines.size());
  for (const std::string_view line : manifest.fileLines) {
    FileEntry entry = EntryOf(line);
    std::wstring stagingPath = StagingPath(entry.name);
    const FileSource source = FindSource(entry, stagingPath);
    if (source == FileSource::kServer) {
      file::SaveFile(stagingPath, DownloadGameFile(Format(L"{}{}", updatesUrl, entry.name)));
    }
    if (source != FileSource::kInstalled) {
      staged.copies.push_back({entry.name, std::move(stagingPath)});
    }
    ++processed;
    staged.names.insert(std::move(entry.name));
  }
  return staged;
}

}  // namespace ve::sdk
