// What a publish changes for players.
#pragma once

#include <string>
#include <vector>

#include "publisher/channel/channel_swap.h"
#include "publisher/report/console.h"
#include "updater/game_manifest.h"

namespace ve::publish {

/// Names of files, with "/", sorted.
struct Changes {
  std::vector<std::wstring> added;
  std::vector<std::wstring> changed;
  std::vector<std::wstring> removed;

  [[nodiscard]] bool IsEmpty() const noexcept {
    return added.empty() && changed.empty() && removed.empty();
  }
};

/// What a channel serves now; nothing if that is not a manifest that the Launcher reads. The entries
/// are views into `text`.
[[nodiscard]] sdk::GameUpdateManifest ReadLiveManifest(const ChannelFolders& folders,
                                                       std::string& text);

/// Compares what two manifests list by name, size and digest.
[[nodiscard]] Changes CompareManifests(const sdk::GameUpdateManifest& before,
                                       const sdk::GameUpdateManifest& after);

/// Prints the numbers and up to ten names of each kind, and adds all to the report as "changes".
void ReportChanges(const Changes& changes, Console& console);

}  // namespace ve::publish
