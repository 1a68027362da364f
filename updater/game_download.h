// The download stage of the game update: choosing, file by file, where the new version comes from,
// and fetching what is missing into the staging folder.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "core/md5.h"
#include "net/download.h"
#include "updater/game_manifest.h"

namespace ve::sdk {

/// Where files are fetched to before they are applied. What an interrupted update left there is
/// used by the next one.
inline constexpr std::wstring_view kStagingFolder = L"Intermediate\\Update\\";

/// Where the listed version of a file is found.
enum class FileSource {
  kInstalled,  ///< In the game already.
  kStaged,     ///< In the staging folder, complete.
  kServer,
};

/// The staging folder's copy of a listed file.
[[nodiscard]] std::wstring StagingPath(std::wstring_view name);

/// The staging folder's own folder for a listed directory.
[[nodiscard]] std::wstring StagingDirectory(std::string_view directory);

/// Tells whether the file at a path has a size and a digest, as `FileMatchesEntry` does.
using FileMatch =
    std::function<bool(std::wstring_view path, std::uint64_t size, std::string_view digest)>;

/// Where to take a listed file from. Reads every candidate of the right size whole.
[[nodiscard]] FileSource FindSource(const FileEntry& entry, std::wstring_view stagingPath,
                                    const FileMatch& matches = FileMatchesEntry);

/// The content of a listed file. Throws `UpdaterException`.
[[nodiscard]] std::string DownloadGameFile(const std::wstring& fileUrl,
                                           const Downloader& download = Download);

/// A staged file and the listed name that it is to be installed as.
struct StagedFile {
  std::wstring name;
  std::wstring stagingPath;
};

/// What the download stage hands to the applying stage.
struct StagedUpdate {
  std::vector<StagedFile> copies;
  std::unordered_set<std::wstring> names;  ///< Of all listed files.
};

/// Makes the staging folder and the listed directories in it, each of which must come after its
/// parent. Throws filesystem errors.
void MakeStagingFolders(const GameUpdateManifest& manifest);

/// Brings every listed file that is not current into the staging folder, counting each file in
/// `processed`. What is downloaded is not checked: a bad file is found by the next run, whose
/// staged copy does not match. The first failed download throws `UpdaterException`; there is no
/// retry.
[[nodiscard]] StagedUpdate StageFiles(std::wstring_view updatesUrl,
                                      const GameUpdateManifest& manifest,
                                      std::atomic<std::uint32_t>& processed);

}  // namespace ve::sdk
