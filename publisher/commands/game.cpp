#include <exception>
#include <memory>
#include <optional>

#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "core/scope_fail.h"
#include "core/unicode.h"
#include "publisher/build/build_folder.h"
#include "publisher/build/name_rules.h"
#include "publisher/channel/channel_swap.h"
#include "publisher/channel/manifest_writer.h"
#include "publisher/channel/payload.h"
#include "publisher/commands/command.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"
#include "publisher/report/version_text.h"

namespace ve::publish {
namespace {

struct Options {
  std::string source;
  std::string version;
  std::string channel;
  std::string server;
  std::string launcher = "Launcher.exe";
  bool force = false;
};

/// What is to be done, from the options.
struct Plan {
  std::wstring source;
  std::wstring server;
  std::wstring launcher;
  ChannelFolders folders;
  bool force = false;
};

bool IsSameOrBelow(const std::wstring& path, const std::wstring& folder) {
  return (FoldCase(path) + L'/').starts_with(FoldCase(folder) + L'/');
}

void CheckPlaces(const Plan& plan, Diagnostics& diagnostics) {
  if (IsSameOrBelow(plan.source, plan.server) || IsSameOrBelow(plan.server, plan.source)) {
    diagnostics.AddError(DisplayPath(plan.source),
                         "the build and the server's folder lie in one another",
                         "Publish from a folder apart from the server's.");
  }
}

std::optional<sdk::VersionNumber> CheckVersionText(const std::string& text,
                                                   Diagnostics& diagnostics) {
  const std::optional<sdk::VersionNumber> version = ParseVersion(text);
  if (!version) {
    diagnostics.AddError(text, "it is no version", "Write four numbers, such as 1.4.0.2.");
  }
  return version;
}

/// The bytes of the version file on the server; none if there is none.
std::optional<std::string> PublishedVersionFile(const ChannelFolders& folders) {
  const std::wstring path = JoinPath(PublishedFolder(folders), kVersionName);
  if (!file::Exists(path)) return {};
  return ReadWholeFile(path);
}

void CheckAgainstPublished(const sdk::VersionNumber& version,
                           const std::optional<std::string>& published, const Plan& plan,
                           Console& console, Diagnostics& diagnostics) {
  if (!published) return;
  try {
    const sdk::VersionNumber present = sdk::ReadOfferedVersion(*published);
    console.Report()["previousVersion"] = VersionText(present);
    if (version > present) return;
    const std::string message = Format(
        "the server has {} already, and players who have that are "
        "not offered a lower one or the same again",
        VersionText(present));
    if (plan.force) {
      diagnostics.AddWarning(VersionText(version), message,
                             "Only players with an older version get it.");
    } else {
      diagnostics.AddError(VersionText(version), message,
                           "Publish a higher version, or use --force.");
    }
  } catch (const VERuntimeError& error) {
    if (plan.force) return;
    diagnostics.AddError(DisplayPath(JoinPath(PublishedFolder(plan.folders), kVersionName)),
                         Format("the version on the server cannot be read: {}", error.what()),
                         "Use --force to publish in its place.");
  }
}

/// Builds the channel's next state beside the live one.
CopyStats MakeNextState(const Plan& plan, const sdk::VersionNumber& version, BuildFolder& build,
                        Console& console) {
  const auto progress = [&console](const Progress& step) { console.ShowProgress(step); };
  const ChannelFolders& folders = plan.folders;
  const std::vector<bool> isPublished = DigestBuild(plan.source, folders.live, build, progress);
  console.EndProgress();
  const std::string manifest = GameManifest(build);
  file::MakeDirectory(folders.next);
  const CopyStats placed =
      PlacePayload(plan.source, folders.live, build, isPublished, folders.next, progress);
  console.EndProgress();
  WriteFileAtomically(JoinPath(folders.next, kManifestName), manifest);
  WriteFileAtomically(JoinPath(folders.next, kVersionName), GameVersionFile(version));
  PlaceLauncher(folders.live, folders.next);
  return placed;
}

/// Best effort: the next run does it otherwise.
void RemoveUnfinished(const ChannelFolders& folders) noexcept {
  try {
    Repair(folders);
  } catch (const std::exception&) {
    // What failed before is what matters.
  }
}

void Tell(const Options& options, const BuildFolder& build, const CopyStats& placed,
          Console& console) {
  console.Print(
      Format("Published {} to {} in {}", options.version, options.channel, options.server));
  console.Print(Format("  {} files, {}, in {} folders", build.files.size(),
                       FormatByteSize(build.Bytes()), build.directories.size()));
  console.Print(Format("  {} copied ({}), {} unchanged", placed.copiedFiles,
                       FormatByteSize(placed.copiedBytes), placed.linkedFiles));
  Json& report = console.Report();
  report["files"] = build.files.size();
  report["bytes"] = build.Bytes();
  report["directories"] = build.directories.size();
  report["copiedFiles"] = placed.copiedFiles;
  report["copiedBytes"] = placed.copiedBytes;
  report["linkedFiles"] = placed.linkedFiles;
  report["published"] = true;
}

void Publish(const Options& options, const Plan& plan, const sdk::VersionNumber& version,
             const std::optional<std::string>& publishedVersion, BuildFolder& build,
             Console& console, Diagnostics& diagnostics) {
  if (PublishedVersionFile(plan.folders) != publishedVersion) {
    diagnostics.AddError(options.channel, "another run has published to this channel meanwhile",
                         "Look at what it has published, then publish again.");
    return;
  }
  const ScopeFail cleanUp([&plan] { RemoveUnfinished(plan.folders); });
  const CopyStats placed = MakeNextState(plan, version, build, console);
  CheckUnchanged(plan.source, build, diagnostics);
  if (diagnostics.HasErrors()) {
    RemoveUnfinished(plan.folders);
    return;
  }
  if (!SwapIn(plan.folders)) {
    diagnostics.AddWarning(
        DisplayPath(plan.folders.updates),
        "the new version is served, but the folder of the one before could not be removed",
        "The next run that publishes to this channel removes it.");
  }
  Tell(options, build, placed, console);
}

void CheckAndPublish(const Options& options, const Plan& plan, Console& console,
                     Diagnostics& diagnostics) {
  // Whatever comes of this run: what an interrupted one has left is repaired.
  std::optional<ChannelLock> lock;
  if (file::Exists(plan.folders.updates)) lock.emplace(plan.folders);

  CheckPlaces(plan, diagnostics);
  const std::optional<sdk::VersionNumber> version = CheckVersionText(options.version, diagnostics);
  const std::optional<std::string> publishedVersion = PublishedVersionFile(plan.folders);
  if (version) CheckAgainstPublished(*version, publishedVersion, plan, console, diagnostics);
  BuildFolder build = ReadBuildFolder(plan.source, plan.launcher, diagnostics);
  WarnOfCleanUp(build, plan.launcher, diagnostics);
  if (diagnostics.HasErrors()) return;

  if (!lock) lock.emplace(plan.folders);
  Publish(options, plan, *version, publishedVersion, build, console, diagnostics);
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  const std::wstring server = ExtendedLengthPath(options.server);
  const Plan plan{ExtendedLengthPath(options.source), server, ToWide(options.launcher),
                  FoldersOf(server, ToWide(options.channel)), options.force};
  console.Report().update({{"version", options.version},
                           {"channel", options.channel},
                           {"server", DisplayPath(plan.server)},
                           {"published", false}});
  CheckAndPublish(options, plan, console, diagnostics);
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
  command->add_flag("--force", options->force,
                    "Publish a version that is not above the one on the server.");
}

}  // namespace ve::publish
