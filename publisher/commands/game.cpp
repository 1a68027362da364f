#include <optional>
#include <string>
#include <vector>

#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/build/build_folder.h"
#include "publisher/build/name_rules.h"
#include "publisher/channel/changes.h"
#include "publisher/channel/channel_files.h"
#include "publisher/channel/channel_swap.h"
#include "publisher/channel/payload.h"
#include "publisher/channel/versions.h"
#include "publisher/commands/command.h"
#include "publisher/commands/publication.h"
#include "publisher/files/paths.h"

namespace ve::publish {
namespace {

struct Options : PublicationOptions {
  std::string source;
  std::string launcher = "Launcher.exe";
  std::vector<std::string> ignore;
  bool ifChanged = false;
};

void CheckPlaces(const std::wstring& source, const std::wstring& server, Diagnostics& diagnostics) {
  const std::wstring first = FoldCase(source) + L'/';
  const std::wstring second = FoldCase(server) + L'/';
  if (!first.starts_with(second) && !second.starts_with(first)) return;
  diagnostics.AddError(DisplayPath(source), "the build and the server's folder overlap",
                       "Publish from a folder outside the server's.");
}

/// With the build checked, and the lock held unless this is a dry run.
void PublishBuild(const Options& options, const std::wstring& source, const BuildRules& rules,
                  BuildFolder& build, Console& console, Diagnostics& diagnostics) {
  const ChannelFolders folders = TargetOf(options);
  std::string liveText;
  const bool hasAll =
      FindPublished(source, folders.live, ReadLiveManifest(folders, liveText), build, console);
  if (hasAll && GameManifest(build) == liveText) {
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
  if (options.dryRun) {
    DigestOthers(source, build, console);
  } else {
    next.emplace(folders);
    PlacePayload(source, folders.live, build, folders.next, console);
  }
  console.EndProgress();
  CheckUnchanged(source, rules, build, diagnostics);
  if (diagnostics.HasErrors()) return;
  PublishNextState(options, *version, build, GameManifest(build), console, diagnostics);
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
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

}  // namespace

void AddGameCommand(CLI::App& program, Command& chosen) {
  const auto [command, options] = AddCommand(
      program, chosen, "game", "Publish a build of the game as a new version.",
      "--source D:\\Builds\\Velmorant --version 1.4.0.2 --channel release --server D:\\Server",
      Run);
  command->add_option("--source", options->source, "The folder of the build.")->required();
  AddChannel(*command, options->channel)->required();
  AddPublicationOptions(*command, *options);
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
                    "Publish a version that is not higher than the one on the server, or a build "
                    "without the game's program.");
}

}  // namespace ve::publish
