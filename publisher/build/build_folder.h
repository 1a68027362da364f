// A build of the game, as it is to be published: its directories and files.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "publisher/report/diagnostics.h"

namespace ve::publish {

/// Names are relative to the build, with "/" between their parts.
struct BuildFile {
  std::wstring name;
  std::uint64_t size = 0;
  std::int64_t written = 0;  ///< The last write, in the file system's ticks.
  std::string digest{};      ///< As in manifests; empty until computed.
  bool isPublished = false;  ///< Whether the channel has this content by this name, to link to.
};

/// Sorted by name, so parents come before their children.
struct BuildFolder {
  std::vector<std::wstring> directories;
  std::vector<BuildFile> files;
  std::vector<std::wstring> ignored{};
};

/// Which entries a build may have.
struct BuildRules {
  std::wstring launcher;  ///< The name of the Launcher's own file.
  /// Entries to leave out, with * and ?. A pattern without "/" is compared with the last part of
  /// the name. Left out by default is what file managers leave behind.
  std::vector<std::wstring> ignore{L".DS_Store", L"Thumbs.db", L"desktop.ini"};
};

/// Reads the folder. Adds an error for everything that the Launcher rejects, and warnings.
[[nodiscard]] BuildFolder ReadBuildFolder(const std::wstring& source, const BuildRules& rules,
                                          Diagnostics& diagnostics);

/// Adds an error, with `force` a warning, unless the build contains the game that is started.
void CheckGameProgram(const std::wstring& source, const BuildFolder& build, bool force,
                      Diagnostics& diagnostics);

/// Reads the folder again, and adds an error for every entry that was added, changed or removed
/// since `build` was read.
void CheckUnchanged(const std::wstring& source, const BuildRules& rules, const BuildFolder& build,
                    Diagnostics& diagnostics);

/// Warns of what the Launcher's clean-up does to this build on players' disks.
void WarnOfCleanUp(const BuildFolder& build, std::wstring_view launcher, Diagnostics& diagnostics);

}  // namespace ve::publish
