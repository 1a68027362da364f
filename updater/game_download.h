// The download stage of the game update: finds out, file by file, where the listed version is, and
// downloads what is missing into the staging folder.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "updater/game_manifest.h"

namespace ve::sdk {

/// Where files are downloaded to before they are applied. The next update uses what an interrupted
/// one left there.
inline constexpr std::wstring_view kStagingFolder = L"Intermediate\\Update\\";

/// A staged file and the listed name that it is to be installed as, a view into the file's entry.
struct StagedFile {
  std::wstring_view name;
  std::wstring stagingPath;
};

/// What the download stage hands to the applying stage. The names are views into the manifest's
/// entries, which must outlive it.
struct StagedUpdate {
  std::vector<StagedFile> copies;               ///< In download order.
  std::unordered_set<std::wstring_view> names;  ///< Of all listed files.
};

/// Makes the staging folder and the listed directories in it. Makes only the last component of
/// each, so a parent must be listed before its children. Throws filesystem errors.
void MakeStagingFolders(const GameUpdateManifest& manifest);

/// Brings every listed file that is not current into the staging folder, adds it to `staged`, and
/// adds 1 to `processed` for each listed file. Does not check what it downloads: the next update
/// finds a bad file, because it does not match. Throws `UpdaterException` at the first failed
/// download, without a retry, and what `FileMatchesEntry` and `file::SaveFile` throw.
void StageFiles(std::wstring_view updatesUrl, const GameUpdateManifest& manifest,
                StagedUpdate& staged, std::atomic<std::uint32_t>& processed);

// Building blocks, also used by publish.exe.

/// Where the listed version of a file is.
enum class FileSource {
  kInstalled,  ///< Installed already.
  kStaged,     ///< Complete in the staging folder.
  kServer,
};

/// The path of a listed file in the staging folder.
[[nodiscard]] std::wstring StagingPath(std::wstring_view name);

/// The path of a listed directory in the staging folder.
[[nodiscard]] std::wstring StagingDirectory(std::string_view directory);

/// Where to take a listed file from. `isInstalled`: whether the installed file is current. If not,
/// reads the staged file if it has the right size. Throws what `FileMatchesEntry` throws.
[[nodiscard]] FileSource FindSource(bool isInstalled, const FileEntry& entry,
                                    std::wstring_view stagingPath);

}  // namespace ve::sdk
