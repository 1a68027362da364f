// Checks everything in one channel of a published tree.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "publisher/build/digests.h"
#include "publisher/channel/published_tree.h"
#include "publisher/report/console.h"
#include "publisher/report/diagnostics.h"

namespace ve::publish {

struct ChannelOptions {
  TreeOptions tree;           ///< After the server's redirection.
  std::string configuredUrl;  ///< Before it; what the players' settings name.
  /// The executable's name. Empty: as recorded when it was published, else the only one in the
  /// folder, else "Launcher.exe".
  std::string launcher;
  std::optional<FileDigest> executable;  ///< What the executable must be.
  bool mayBeAbsent = false;
};

/// Reads a channel as players' Launchers do. Adds what is wrong with it to the diagnostics, and
/// what it contains to the report's "channels". If neither its game version nor its updater
/// manifest can be read and it may be absent, adds nothing and returns the reasons.
[[nodiscard]] std::optional<std::string> CheckChannel(const ChannelOptions& options,
                                                      std::wstring_view channel, Console& console,
                                                      Diagnostics& diagnostics);

}  // namespace ve::publish
