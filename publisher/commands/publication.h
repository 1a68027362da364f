// What `game` and `promote` share: the publication of a channel's next state.
#pragma once

#include <string>

#include "publisher/build/build_folder.h"
#include "publisher/channel/channel_swap.h"
#include "publisher/commands/command.h"
#include "updater/game_version.h"

namespace ve::publish {

struct PublicationOptions {
  std::string version;
  std::string channel;
  std::string server;
  std::string uploadLists;
  bool force = false;
  bool dryRun = false;
};

/// Adds what both commands have but the channel, whose option has two names.
void AddPublicationOptions(CLI::App& command, PublicationOptions& options);

/// The folders of the channel that is published to.
[[nodiscard]] ChannelFolders TargetOf(const PublicationOptions& options);

/// Completes the next state, which has its payload already, swaps it in, and reports what that
/// changes. A dry run only reports. Throws `PublishError` or a filesystem error; the live state is
/// the old one then.
void PublishNextState(const PublicationOptions& options, const sdk::VersionNumber& version,
                      const BuildFolder& build, const std::string& manifest, Console& console,
                      Diagnostics& diagnostics);

}  // namespace ve::publish
