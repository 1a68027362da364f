// A build of the game, as it is to be published: its directories and files.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "publisher/report/diagnostics.h"

namespace ve::publish {

/// Names are below the build, with "/" between their parts.
struct BuildFile {
  std::wstring name;
  std::uint64_t size = 0;
  std::int64_t written = 0;  ///< When, to tell whether it was changed since.
  std::string digest;        ///< As in manifests; empty until computed.
};

/// Sorted by name, so that parents stand before their children.
struct BuildFolder {
  std::vector<std::wstring> directories;
  std::vector<BuildFile> files;

  [[nodiscard]] std::uint64_t Bytes() const;
};

/// Reads the folder and refuses whatever the Launcher could not take. `launcher` is the name of the
/// Launcher's own file.
[[nodiscard]] BuildFolder ReadBuildFolder(const std::wstring& source, std::wstring_view launcher,
                                          Diagnostics& diagnostics);

/// Refuses the files that were changed or removed since the build was read.
void CheckUnchanged(const std::wstring& source, const BuildFolder& build, Diagnostics& diagnostics);

/// Warns of what the Launcher's clean-up will do to this build on players' disks.
void WarnOfCleanUp(const BuildFolder& build, std::wstring_view launcher, Diagnostics& diagnostics);

}  // namespace ve::publish
