// The two commands that publish the game: `game` from a build, `promote` from another channel.
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/build/build_folder.h"
#include "publisher/build/name_rules.h"
#include "publisher/channel/changes.h"
#include "publisher/channel/channel_swap.h"
#include "publisher/channel/manifest_writer.h"
#include "publisher/channel/new_version.h"
#include "publisher/channel/payload.h"
#include "publisher/channel/upload_lists.h"
#include "publisher/commands/command.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {
namespace {

constexpr const char* kPublishAgain = "Publish the game to that channel again.";

/// Of both commands.
struct Options {
  std::string version;
  std::string channel;
  std::string server;
  std::string uploadLists;
  bool force = false;
  bool dryRun = false;
};

struct GameOptions : Options {
  std::string source;
  std::string launcher = "Launcher.exe";
  std::vector<std::string> ignore;
  bool ifChanged = false;
};

struct PromoteOptions : Options {
  std::string from;
};

ChannelFolders TargetOf(const Options& options) {
  return FoldersOf(ExtendedLengthPath(options.server), ToWide(options.channel));
}

/// Completes the next state, which has the payload already, and swaps it in. A dry run only reports
/// that.
void Finish(const Options& options, const sdk::VersionNumber& version, const BuildFolder& build,
            const std::string& manifest, const CopyStats& placed, Console& console,
            Diagnostics& diagnostics) {
  const ChannelFolders folders = TargetOf(options);
  std::string liveText;
  std::string text = manifest;
  const Changes changes =
      CompareManifests(ReadLiveManifest(folders, liveText), sdk::ReadGameUpdateManifest(text));
  Json& report = console.Report();
  if (!options.dryRun) {
    WriteFileAtomically(JoinPath(folders.next, kManifestName), manifest);
    WriteFileAtomically(JoinPath(folders.next, kVersionName), GameVersionFile(version));
    PlaceLauncher(folders.live, folders.next);
    if (!options.uploadLists.empty()) {
      WriteUploadLists(ExtendedLengthPath(options.uploadLists), ToWide(options.channel), changes);
    }
    SwapIn(folders, diagnostics);
    report["published"] = true;
  }
  console.Print(Format("{} {} to {} in {}", options.dryRun ? "Would publish" : "Published",
                       options.version, options.channel, report["server"].get<std::string>()));
  console.Print(Format("  {} files, {}, in {} folders", build.files.size(),
                       FormatByteSize(build.Bytes()), build.directories.size()));
  console.Print(Format("  {} copied ({}), {} linked", placed.copiedFiles,
                       FormatByteSize(placed.copiedBytes), placed.linkedFiles));
  report.update({{"files", build.files.size()},
                 {"bytes", build.Bytes()},
                 {"directories", build.directories.size()},
                 {"copiedFiles", placed.copiedFiles},
                 {"copiedBytes", placed.copiedBytes},
                 {"linkedFiles", placed.linkedFiles}});
  ReportChanges(changes, console);
}

void CheckPlaces(const std::wstring& source, const std::wstring& server, Diagnostics& diagnostics) {
  const std::wstring first = FoldCase(source) + L'/';
  const std::wstring second = FoldCase(server) + L'/';
  if (!first.starts_with(second) && !second.starts_with(first)) return;
  diagnostics.AddError(DisplayPath(source), "the build and the server's folder contain each other",
                       "Publish from a folder outside the server's.");
}

/// Without copying.
CopyStats CountCopies(const BuildFolder& build) {
  CopyStats stats;
  for (const BuildFile& file : build.files) {
    ++(file.isPublished ? stats.linkedFiles : stats.copiedFiles);
    stats.copiedBytes += file.isPublished ? 0 : file.size;
  }
  return stats;
}

/// With the build checked, and the lock held unless this is a dry run.
void PublishBuild(const GameOptions& options, const std::wstring& source, const BuildRules& rules,
                  BuildFolder& build, Console& console, Diagnostics& diagnostics) {
  const ChannelFolders folders = TargetOf(options);
  const auto progress = [&console](const Progress& step) { console.ShowProgress(step); };
  std::string liveText;
  FindPublished(source, folders.live, ReadLiveManifest(folders, liveText), build, progress);
  const bool hasNewFiles = std::any_of(build.files.begin(), build.files.end(),
                                       [](const BuildFile& file) { return !file.isPublished; });
  if (!hasNewFiles && GameManifest(build) == liveText) {
    if (options.ifChanged) {
      return console.Print("Not published: the server has exactly this build already.");
    }
    diagnostics.AddWarning(DisplayPath(source), "the server has exactly this build already",
                           "Players are offered an update that downloads nothing. --if-changed "
                           "publishes changed builds only.");
  }
  const auto version =
      CheckNewVersion(options.version, folders, options.force, console, diagnostics);
  if (diagnostics.HasErrors()) return;
  std::optional<NextState> next;
  CopyStats placed = CountCopies(build);
  if (options.dryRun) {
    DigestOthers(source, build, progress);
  } else {
    next.emplace(folders);
    placed = PlacePayload(source, folders.live, build, folders.next, progress);
  }
  console.EndProgress();
  CheckUnchanged(source, rules, build, diagnostics);
  if (diagnostics.HasErrors()) return;
  Finish(options, *version, build, GameManifest(build), placed, console, diagnostics);
}

void RunGame(const GameOptions& options, Console& console, Diagnostics& diagnostics) {
  const std::wstring source = ExtendedLengthPath(options.source);
  const std::wstring server = ExtendedLengthPath(options.server);
  const ChannelFolders folders = TargetOf(options);
  BuildRules rules{ToWide(options.launcher)};
  for (const std::string& pattern : options.ignore) rules.ignore.push_back(ToWide(pattern));
  Json& report = console.Report();
  report.update({{"version", options.version},
                 {"channel", options.channel},
                 {"server", DisplayPath(server)},
                 {"dryRun", options.dryRun},
                 {"published", false}});
  // An interrupted run is repaired even if this one fails.
  std::optional<ChannelLock> lock;
  if (!options.dryRun && file::Exists(folders.updates)) lock.emplace(folders);

  // Before the build is read. `PublishBuild` checks again, under the lock, and adds the warnings.
  Diagnostics early;
  static_cast<void>(CheckNewVersion(options.version, folders, options.force, console, early));
  if (!options.ifChanged) diagnostics.errors = std::move(early.errors);
  CheckPlaces(source, server, diagnostics);
  BuildFolder build = ReadBuildFolder(source, rules, diagnostics);
  CheckGameProgram(source, build, options.force, diagnostics);
  WarnOfCleanUp(build, rules.launcher, diagnostics);
  if (diagnostics.HasErrors()) return;

  if (!options.dryRun && !lock) lock.emplace(folders);
  report["ignored"] = Json::array();
  for (const std::wstring& name : build.ignored) report["ignored"].push_back(ToUtf8(name));
  PublishBuild(options, source, rules, build, console, diagnostics);
  if (!build.ignored.empty()) console.Print(Format("  {} ignored", build.ignored.size()));
}

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
void Promote(const PromoteOptions& options, const ChannelFolders& from, const ChannelFolders& to,
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
  const auto progress = [&console](const Progress& step) { console.ShowProgress(step); };
  const NextState next(to);
  const CopyStats placed = PlacePayload(from.live, from.live, build, to.next, progress);
  console.EndProgress();
  Finish(options, *version, build, content, placed, console, diagnostics);
}

void RunPromote(const PromoteOptions& options, Console& console, Diagnostics& diagnostics) {
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

/// The options of both commands but that of the channel.
void AddOptions(CLI::App& command, Options& options) {
  command
      .add_option("--version", options.version,
                  "Four numbers, the most significant first; above the one on the server.")
      ->required();
  AddServer(command, options.server)->required();
  command.add_option("--upload-lists", options.uploadLists,
                     "A folder for the lists of what to upload, delete and purge elsewhere.");
}

}  // namespace

void AddGameCommand(CLI::App& program, Command& chosen) {
  const auto [command, options] = AddCommand(
      program, chosen, "game", "Publish a build of the game as a new version.",
      "--source D:\\Builds\\Velmorant --version 1.4.0.2 --channel release --server D:\\Server",
      RunGame);
  command->add_option("--source", options->source, "The folder of the build.")->required();
  AddChannel(*command, options->channel)->required();
  AddOptions(*command, *options);
  command->add_option("--launcher", options->launcher, "The name of the Launcher's file.")
      ->capture_default_str();
  command
      ->add_option("--ignore", options->ignore,
                   "Leave out the files and folders whose names match, with * and ?; repeatable. "
                   "Always left out: .DS_Store, Thumbs.db, desktop.ini.")
      ->take_all();
  command->add_flag("--dry-run", options->dryRun, "Check everything and write nothing.");
  command->add_flag("--if-changed", options->ifChanged,
                    "Do nothing if the server has exactly this build already.");
  command->add_flag("--force", options->force,
                    "Publish a version that is not above the one on the server, or a build without "
                    "the game's program.");
}

void AddPromoteCommand(CLI::App& program, Command& chosen) {
  const auto [command, options] = AddCommand(
      program, chosen, "promote", "Publish what one channel has to another, without copying it.",
      "--from beta --to release --version 1.4.0.2 --server D:\\Server", RunPromote);
  AddChannel(*command, options->from, "--from", "The channel that has the game.")->required();
  AddChannel(*command, options->channel, "--to", "The channel that gets it.")->required();
  AddOptions(*command, *options);
  command->add_flag("--force", options->force,
                    "Publish a version that is not above the one that --to has.");
}

}  // namespace ve::publish
