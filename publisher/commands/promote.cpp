#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/channel/channel_swap.h"
#include "publisher/channel/payload.h"
#include "publisher/channel/versions.h"
#include "publisher/commands/command.h"
#include "publisher/commands/publication.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"
#include "updater/game_manifest.h"

namespace ve::publish {
namespace {

constexpr const char* kPublishAgain = "Publish the game to that channel again.";

struct Options : PublicationOptions {
  std::string from;
};

/// The game that a channel has, as a build: complete, or errors are added.
BuildFolder ReadChannel(const std::wstring& folder, const sdk::GameUpdateManifest& manifest,
                        Diagnostics& diagnostics) {
  BuildFolder build;
  for (const std::string_view directory : manifest.directories) {
    build.directories.push_back(sdk::WidenName(directory));
  }
  for (const sdk::FileEntry& entry : manifest.files) {
    build.files.push_back({entry.name, entry.size, 0, std::string(entry.digest), true});
    const std::wstring path = JoinPath(folder, entry.name);
    if (IsFileOfSize(path, entry.size)) continue;
    diagnostics.AddError(DisplayPath(path),
                         Format("not a file of {} bytes, as the manifest lists it", entry.size),
                         kPublishAgain);
  }
  return build;
}

/// With both channels locked.
void Promote(const Options& options, const ChannelFolders& from, const ChannelFolders& to,
             Console& console, Diagnostics& diagnostics) {
  const auto version = CheckNewVersion(options.version, to, options.force, console, diagnostics);
  const std::wstring manifestPath = JoinPath(from.live, kManifestName);
  const std::string content = ReadWholeFile(manifestPath);
  BuildFolder build;
  try {
    std::string text = content;
    build = ReadChannel(from.live, sdk::ReadGameUpdateManifest(text), diagnostics);
  } catch (const VERuntimeError& error) {
    diagnostics.AddError(DisplayPath(manifestPath),
                         Format("the Launcher rejects it: {}", error.what()), kPublishAgain);
  }
  if (diagnostics.HasErrors()) return;
  const NextState next(to);
  PlacePayload(from.live, from.live, build, to.next, console);
  console.EndProgress();
  PublishNextState(options, *version, build, content, console, diagnostics);
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  const std::wstring server = ExtendedLengthPath(options.server);
  const ChannelFolders from = FoldersOf(server, ToWide(options.from));
  const ChannelFolders to = TargetOf(options);
  console.Report().update({{"version", options.version},
                           {"from", options.from},
                           {"to", options.channel},
                           {"server", DisplayPath(server)},
                           {"published", false}});
  if (options.from == options.channel) {
    return diagnostics.AddError(options.from, "is given as both --from and --to",
                                "Pass two channels.");
  }
  if (!file::Exists(PublishedFolder(from))) {
    return diagnostics.AddError(DisplayPath(from.live), "nothing is published to this channel",
                                "Check --from and --server.");
  }
  // In the order of the names: two runs in opposite directions do not wait for each other.
  const bool isFromFirst = options.from < options.channel;
  const ChannelLock first(isFromFirst ? from : to);
  const ChannelLock second(isFromFirst ? to : from);
  Promote(options, from, to, console, diagnostics);
}

}  // namespace

void AddPromoteCommand(CLI::App& program, Command& chosen) {
  const auto [command, options] =
      AddCommand(program, chosen, "promote", "Publish the game of one channel to another channel.",
                 "--from beta --to release --version 1.4.0.2 --server D:\\Server", Run);
  AddChannel(*command, options->from, "--from", "The channel that has the game.")->required();
  AddChannel(*command, options->channel, "--to", "The channel that gets it.")->required();
  AddPublicationOptions(*command, *options);
  command->add_flag("--force", options->force,
                    "Publish a version that is not higher than the one that --to has.");
}

}  // namespace ve::publish
