#include <algorithm>
#include <memory>
#include <optional>

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
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {
namespace {

struct Options {
  std::string source;
  std::string version;
  std::string channel;
  std::string server;
  std::string launcher = "Launcher.exe";
  std::vector<std::string> ignore;
  std::string uploadLists;
  bool force = false;
  bool dryRun = false;
  bool ifChanged = false;
};

/// A run, from the options.
struct Plan {
  const Options& options;
  std::wstring source;
  std::wstring server;
  ChannelFolders folders;
  BuildRules rules;
};

bool IsSameOrBelow(const std::wstring& path, const std::wstring& folder) {
  return (FoldCase(path) + L'/').starts_with(FoldCase(folder) + L'/');
}

void CheckPlaces(const Plan& plan, Diagnostics& diagnostics) {
  if (!IsSameOrBelow(plan.source, plan.server) && !IsSameOrBelow(plan.server, plan.source)) return;
  diagnostics.AddError(DisplayPath(plan.source),
                       "the build and the server's folder contain each other",
                       "Publish from a folder outside the server's.");
}

bool IsUnchanged(const BuildFolder& build, const sdk::GameUpdateManifest& live) {
  const bool hasSameFiles = build.files.size() == live.files.size() &&
                            std::all_of(build.files.begin(), build.files.end(),
                                        [](const BuildFile& f) { return f.isPublished; });
  return hasSameFiles && std::equal(build.directories.begin(), build.directories.end(),
                                    live.directories.begin(), live.directories.end(),
                                    [](const std::wstring& directory, std::string_view listed) {
                                      return directory == sdk::WidenName(listed);
                                    });
}

/// Builds the channel's next state beside the live one. Returns its manifest.
std::string MakeNextState(const Plan& plan, const sdk::VersionNumber& version, BuildFolder& build,
                          const ProgressCallback& progress, CopyStats& placed) {
  const ChannelFolders& folders = plan.folders;
  file::MakeDirectory(folders.next);
  placed = PlacePayload(plan.source, folders.live, build, folders.next, progress);
  std::string manifest = GameManifest(build);
  WriteFileAtomically(JoinPath(folders.next, kManifestName), manifest);
  WriteFileAtomically(JoinPath(folders.next, kVersionName), VersionArchive(version));
  PlaceLauncher(folders.live, folders.next);
  return manifest;
}

void ReportBuild(const Plan& plan, const BuildFolder& build, const CopyStats& placed,
                 Console& console) {
  const Options& options = plan.options;
  console.Print(Format("{} {} to {} in {}", options.dryRun ? "Would publish" : "Published",
                       options.version, options.channel, DisplayPath(plan.server)));
  console.Print(Format("  {} files, {}, in {} folders", build.files.size(),
                       FormatByteSize(build.Bytes()), build.directories.size()));
  console.Print(Format("  {} copied ({}), {} unchanged", placed.copiedFiles,
                       FormatByteSize(placed.copiedBytes), placed.linkedFiles));
  if (!build.ignored.empty()) console.Print(Format("  {} ignored", build.ignored.size()));
  Json& report = console.Report();
  report["files"] = build.files.size();
  report["bytes"] = build.Bytes();
  report["directories"] = build.directories.size();
  report["copiedFiles"] = placed.copiedFiles;
  report["copiedBytes"] = placed.copiedBytes;
  report["linkedFiles"] = placed.linkedFiles;
  report["ignored"] = Json::array();
  for (const std::wstring& name : build.ignored) report["ignored"].push_back(ToUtf8(name));
}

/// What a publish would copy.
CopyStats CountCopies(const BuildFolder& build) {
  CopyStats stats;
  for (const BuildFile& file : build.files) {
    ++(file.isPublished ? stats.linkedFiles : stats.copiedFiles);
    stats.copiedBytes += file.isPublished ? 0 : file.size;
  }
  return stats;
}

/// With the build checked, and the lock held unless this is a dry run.
void Publish(const Plan& plan, BuildFolder& build, Console& console, Diagnostics& diagnostics) {
  const ChannelFolders& folders = plan.folders;
  const auto progress = [&console](const Progress& step) { console.ShowProgress(step); };
  std::string liveText;
  const sdk::GameUpdateManifest live = ReadLiveManifest(folders, liveText);
  FindPublished(plan.source, folders.live, live, build, progress);
  if (IsUnchanged(build, live)) {
    if (plan.options.ifChanged) {
      return console.Print("Not published: the server has exactly this build already.");
    }
    diagnostics.AddWarning(DisplayPath(plan.source), "the server has exactly this build already",
                           "Players are offered an update that downloads nothing. --if-changed "
                           "publishes changed builds only.");
  }
  const auto version =
      CheckNewVersion(plan.options.version, folders, plan.options.force, console, diagnostics);
  if (diagnostics.HasErrors()) return;
  std::optional<NextState> next;
  CopyStats placed = CountCopies(build);
  std::string manifest;
  if (plan.options.dryRun) {
    DigestOthers(plan.source, build, progress);
    manifest = GameManifest(build);
  } else {
    next.emplace(folders);
    manifest = MakeNextState(plan, *version, build, progress, placed);
  }
  console.EndProgress();
  CheckUnchanged(plan.source, plan.rules, build, diagnostics);
  if (diagnostics.HasErrors()) return;
  const Changes changes = CompareManifests(live, sdk::ReadGameUpdateManifest(manifest));
  if (!plan.options.dryRun) {
    if (!plan.options.uploadLists.empty()) {
      WriteUploadLists(ExtendedLengthPath(plan.options.uploadLists), ToWide(plan.options.channel),
                       changes);
    }
    SwapIn(folders, diagnostics);
    console.Report()["published"] = true;
  }
  ReportBuild(plan, build, placed, console);
  ReportChanges(changes, console);
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  const std::wstring server = ExtendedLengthPath(options.server);
  Plan plan{options, ExtendedLengthPath(options.source), server,
            FoldersOf(server, ToWide(options.channel)), BuildRules{ToWide(options.launcher)}};
  for (const std::string& pattern : options.ignore) plan.rules.ignore.push_back(ToWide(pattern));
  console.Report().update({{"version", options.version},
                           {"channel", options.channel},
                           {"server", DisplayPath(plan.server)},
                           {"dryRun", options.dryRun},
                           {"published", false}});
  // An interrupted run is repaired even if this one fails.
  std::optional<ChannelLock> lock;
  if (!options.dryRun && file::Exists(plan.folders.updates)) lock.emplace(plan.folders);

  // Before the build is read. `Publish` checks again, under the lock, and adds the warnings.
  Diagnostics early;
  static_cast<void>(CheckNewVersion(options.version, plan.folders, options.force, console, early));
  if (!options.ifChanged) diagnostics.errors = std::move(early.errors);
  CheckPlaces(plan, diagnostics);
  BuildFolder build = ReadBuildFolder(plan.source, plan.rules, diagnostics);
  CheckGameProgram(plan.source, build, options.force, diagnostics);
  WarnOfCleanUp(build, plan.rules.launcher, diagnostics);
  if (diagnostics.HasErrors()) return;

  if (!options.dryRun && !lock) lock.emplace(plan.folders);
  Publish(plan, build, console, diagnostics);
}

}  // namespace

void AddGameCommand(CLI::App& program, Command& chosen) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(
      program, chosen, "game", "Publish a build of the game as a new version.",
      "--source D:\\Builds\\Velmorant --version 1.4.0.2 --channel release --server D:\\Server",
      [options](Console& console, Diagnostics& diagnostics) {
        Run(*options, console, diagnostics);
      });
  command->add_option("--source", options->source, "The folder of the build.")->required();
  command
      ->add_option("--version", options->version,
                   "Four numbers, the most significant first; above the one on the server.")
      ->required();
  AddChannel(*command, options->channel)->required();
  AddServer(*command, options->server)->required();
  command->add_option("--launcher", options->launcher, "The name of the Launcher's file.")
      ->capture_default_str();
  command
      ->add_option("--ignore", options->ignore,
                   "Leave out the files and folders whose names match, with * and ?; repeatable. "
                   "Always left out: .DS_Store, Thumbs.db, desktop.ini.")
      ->take_all();
  command->add_option("--upload-lists", options->uploadLists,
                      "A folder for the lists of what to upload, delete and purge elsewhere.");
  command->add_flag("--dry-run", options->dryRun, "Check everything and write nothing.");
  command->add_flag("--if-changed", options->ifChanged,
                    "Do nothing if the server has exactly this build already.");
  command->add_flag("--force", options->force,
                    "Publish a version that is not above the one on the server, or a build without "
                    "the game's program.");
}

}  // namespace ve::publish
