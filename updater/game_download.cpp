#include "updater/game_download.h"

#include <utility>

#include "core/file_matches_entry.h"
#include "core/files.h"
#include "core/format.h"
#include "updater/download_messages.h"
#include "updater/installed_files.h"

namespace ve::sdk {

std::wstring StagingPath(std::wstring_view name) { return Format(L"{}{}", kStagingFolder, name); }

std::wstring StagingDirectory(std::string_view directory) {
  // The folder ends with a backslash, so the path has two in a row, which Windows takes for one.
  return Format(L"{}\\{}", kStagingFolder, WidenName(directory));
}

FileSource FindSource(bool isInstalled, const FileEntry& entry, std::wstring_view stagingPath) {
  if (isInstalled) return FileSource::kInstalled;
  if (FileMatchesEntry(stagingPath, entry.size, entry.digest)) return FileSource::kStaged;
  return FileSource::kServer;
}

void MakeStagingFolders(const GameUpdateManifest& manifest) {
  file::EnsureDirectories(kStagingFolder);
  for (const std::string_view directory : manifest.directories) {
    file::MakeDirectory(StagingDirectory(directory));
  }
}

void StageFiles(std::wstring_view updatesUrl, const GameUpdateManifest& manifest,
                StagedUpdate& staged, std::atomic<std::uint32_t>& processed) {
  InstalledFiles installed(manifest.files);
  for (const FileEntry& entry : manifest.files) {
    std::wstring stagingPath = StagingPath(entry.name);
    const FileSource source = FindSource(installed.NextIsCurrent(), entry, stagingPath);
    if (source == FileSource::kServer) {
      const std::wstring url = Format(L"{}{}", updatesUrl, entry.name);
      file::SaveFile(stagingPath, DownloadOrThrow(url, kFileDownloadFailed, url));
    }
    if (source != FileSource::kInstalled) {
      staged.copies.push_back({entry.name, std::move(stagingPath)});
    }
    ++processed;
    staged.names.insert(entry.name);
  }
}

}  // namespace ve::sdk
