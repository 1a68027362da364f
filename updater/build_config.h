// What differs between the builds of the Launcher.
#pragma once

#include <cstdint>

namespace ve::sdk {

struct BuildConfig {
  /// The program's version. The program reads it from nowhere else, not even from its version
  /// resource.
  std::uint32_t version;

  /// What the clean-up does with a directory that it cannot remove because it is not empty: keep it
  /// and recurse into it, or throw, which ends the update. With false, no update of a game that
  /// lives in "bin\" can finish.
  bool keepsNonEmptyDirectories;
};

/// The configuration of this program. Not part of the library: each program links one of the
/// libraries build_strict, build_keep_dirs and build_next (updater/CMakeLists.txt), which define
/// it.
extern const BuildConfig kBuildConfig;

}  // namespace ve::sdk
