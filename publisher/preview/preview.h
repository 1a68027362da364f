// Previews one run of the Launcher in an installation: what it would ask of the server, show,
// write and remove, and how it would end. Nothing is changed.
//
// It is the build of updater/ beside it that is previewed, by that build's own decisions; only the
// order of their effects, which are imagined here, is this file's.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "publisher/channel/published_tree.h"
#include "publisher/preview/imagined_disk.h"
#include "publisher/report/diagnostics.h"
#include "updater/game_version.h"

namespace ve::publish {

struct PreviewOptions {
  TreeOptions tree;
  std::wstring launcher;         ///< As it is started: a path below the installation.
  std::uint32_t ownVersion = 0;  ///< What the Launcher takes itself for.
  bool fetch = false;  ///< Also download the game's files, to see whether they can be had.
};

enum class SelfUpdate {
  kNotReached,
  kCurrent,
  kReplaced,          ///< The executable; the run ends with a restart.
  kSettingsReplaced,  ///< The run ends with a restart.
  kFailed,            ///< Logged; the run goes on.
};

[[nodiscard]] constexpr bool Restarts(SelfUpdate outcome) noexcept {
  return outcome == SelfUpdate::kReplaced || outcome == SelfUpdate::kSettingsReplaced;
}

enum class GameUpdate {
  kNotReached,
  kNotOffered,
  kCheckFailed,    ///< Logged; the game starts without a dialog.
  kUpdateRefused,  ///< Failed before the first file: a dialog, logged; the game starts.
  kEnded,          ///< Failed after that: the program ends abnormally.
  kUpdated,
};

struct Fetched {
  std::wstring name;
  std::uint64_t size = 0;
};

/// One run, in the order in which it happens. The player presses OK whenever asked.
struct PreviewPlan {
  std::vector<std::string> requests;  ///< URLs.
  std::vector<std::string> dialogs;   ///< Their captions.
  std::vector<std::string> log;       ///< Entries, without their time stamps.

  std::string url;  ///< Of the installed settings; empty if they were refused.
  std::string channel;
  std::string updatesUrl;

  bool staleExecutableRemoved = false;
  SelfUpdate selfUpdate = SelfUpdate::kNotReached;
  std::optional<std::uint32_t> offeredLauncher;

  GameUpdate gameUpdate = GameUpdate::kNotReached;
  std::optional<sdk::VersionNumber> installedVersion;
  std::optional<sdk::VersionNumber> offeredVersion;
  std::vector<std::wstring> stagingDirectories;  ///< Made, like `directories`.
  std::vector<std::wstring> current;
  std::vector<std::wstring> reused;
  std::vector<Fetched> downloaded;
  std::vector<std::wstring> directories;
  std::vector<std::wstring> copied;
  std::vector<std::wstring> removed;  ///< By the clean-up.
  bool stagingRemoved = false;
  bool versionWritten = false;
  std::string stop;  ///< Where and with what the program ends abnormally; empty if it does not.

  bool gameStarted = false;
  int exitCode = 0;
  DiskChanges changes;
};

/// Called while the game's files are looked at: how many of them, and of their bytes, are done.
using PreviewProgress = std::function<void(std::uint64_t filesDone, std::uint64_t files,
                                           std::uint64_t bytesDone, std::uint64_t bytes)>;

/// Previews a run in the current directory, and warns of what makes the plan doubtful and of
/// what players would not like.
[[nodiscard]] PreviewPlan PlanUpdate(const PreviewOptions& options, Diagnostics& diagnostics,
                                     const PreviewProgress& progress);

}  // namespace ve::publish
