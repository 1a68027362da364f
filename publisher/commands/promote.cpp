#include <memory>

#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
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
  std::string from;
  std::string to;
  std::string version;
  std::string server;
  std::string uploadLists;
  bool force = false;
};

constexpr const char* kPublishAgain = "Publish the game to that channel again.";

void CheckComplete(const std::wstring& folder, const sdk::GameUpdateManifest& manifest,
                   Diagnostics& diagnostics) {
  for (const sdk::FileEntry& entry : manifest.files) {
    const std::wstring path = JoinPath(folder, entry.name);
    if (IsFileOfSize(path, entry.size)) continue;
    diagnostics.AddError(DisplayPath(path),
                         Format("not a file of {} bytes, as the manifest lists it", entry.size),
                         kPublishAgain);
  }
}

CopyStats PlaceFiles(const std::wstring& from, const sdk::GameUpdateManifest& manifest,
                     const std::wstring& next, Console& console) {
  for (const std::string_view directory : manifest.directories) {
    file::MakeDirectories(JoinPath(next, sdk::WidenName(directory)));
  }
  CopyStats placed;
  std::uint64_t files = 0;
  for (const sdk::FileEntry& entry : manifest.files) {
    console.ShowProgress({"Linking", files++, manifest.files.size()});
    if (LinkOrCopy(JoinPath(from, entry.name), JoinPath(next, entry.name))) {
      ++placed.linkedFiles;
    } else {
      ++placed.copiedFiles;
      placed.copiedBytes += entry.size;
    }
  }
  console.EndProgress();
  return placed;
}

/// With both channels locked.
void Promote(const Options& options, const ChannelFolders& from, const ChannelFolders& to,
             Console& console, Diagnostics& diagnostics) {
  const auto version = CheckNewVersion(options.version, to, options.force, console, diagnostics);
  const std::wstring manifestPath = JoinPath(from.live, kManifestName);
  const std::string content = ReadWholeFile(manifestPath);
  std::string text = content;  // Stays as long as the manifest, which has views into it.
  sdk::GameUpdateManifest manifest;
  try {
    manifest = sdk::ReadGameUpdateManifest(text);
  } catch (const VERuntimeError& error) {
    return diagnostics.AddError(DisplayPath(manifestPath),
                                Format("the Launcher rejects it: {}", error.what()), kPublishAgain);
  }
  CheckComplete(from.live, manifest, diagnostics);
  if (diagnostics.HasErrors()) return;

  std::string liveText;
  const Changes changes = CompareManifests(ReadLiveManifest(to, liveText), manifest);
  const NextState next(to);
  file::MakeDirectory(to.next);
  const CopyStats placed = PlaceFiles(from.live, manifest, to.next, console);
  WriteFileAtomically(JoinPath(to.next, kManifestName), content);
  WriteFileAtomically(JoinPath(to.next, kVersionName), VersionArchive(*version));
  PlaceLauncher(to.live, to.next);
  if (!options.uploadLists.empty()) {
    WriteUploadLists(ExtendedLengthPath(options.uploadLists), ToWide(options.to), changes);
  }
  SwapIn(to, diagnostics);

  console.Print(Format("Promoted {} to {} as {}", options.from, options.to, options.version));
  console.Print(Format("  {} files: {} linked, {} copied ({})", manifest.files.size(),
                       placed.linkedFiles, placed.copiedFiles, FormatByteSize(placed.copiedBytes)));
  console.Report().update({{"published", true},
                           {"files", manifest.files.size()},
                           {"directories", manifest.directories.size()},
                           {"copiedFiles", placed.copiedFiles},
                           {"copiedBytes", placed.copiedBytes},
                           {"linkedFiles", placed.linkedFiles}});
  ReportChanges(changes, console);
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  const std::wstring server = ExtendedLengthPath(options.server);
  const ChannelFolders from = FoldersOf(server, ToWide(options.from));
  const ChannelFolders to = FoldersOf(server, ToWide(options.to));
  console.Report().update({{"version", options.version},
                           {"from", options.from},
                           {"to", options.to},
                           {"server", DisplayPath(server)},
                           {"published", false}});
  if (options.from == options.to) {
    return diagnostics.AddError(options.to, "is given as both --from and --to",
                                "Pass two channels.");
  }
  if (!file::Exists(PublishedFolder(from))) {
    return diagnostics.AddError(DisplayPath(from.live), "nothing is published to this channel",
                                "Check --from and --server.");
  }
  // In the order of the names: two runs in opposite directions do not wait for each other.
  const bool isFromFirst = options.from < options.to;
  const ChannelLock first(isFromFirst ? from : to);
  const ChannelLock second(isFromFirst ? to : from);
  Promote(options, from, to, console, diagnostics);
}

}  // namespace

void AddPromoteCommand(CLI::App& program, Command& chosen) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(program, chosen, "promote",
                                 "Publish what one channel has to another, without copying it.",
                                 "--from beta --to release --version 1.4.0.2 --server D:\\Server",
                                 [options](Console& console, Diagnostics& diagnostics) {
                                   Run(*options, console, diagnostics);
                                 });
  command->add_option("--from", options->from, "The release channel that has the game.")
      ->check(CLI::IsMember(ChannelNames()))
      ->required();
  command->add_option("--to", options->to, "The release channel that gets it.")
      ->check(CLI::IsMember(ChannelNames()))
      ->required();
  command
      ->add_option("--version", options->version,
                   "Four numbers, the most significant first; above the one that --to has.")
      ->required();
  AddServer(*command, options->server)->required();
  command->add_option("--upload-lists", options->uploadLists,
                      "A folder for the lists of what to upload, delete and purge elsewhere.");
  command->add_flag("--force", options->force,
                    "Publish a version that is not above the one that --to has.");
}

}  // namespace ve::publish
