#include "publisher/commands/publication.h"

#include <cstdint>

#include "core/format.h"
#include "core/unicode.h"
#include "publisher/channel/changes.h"
#include "publisher/channel/channel_files.h"
#include "publisher/channel/payload.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"

namespace ve::publish {

void AddPublicationOptions(CLI::App& command, PublicationOptions& options) {
  command
      .add_option("--version", options.version,
                  "Four numbers, the most significant first; higher than the one on the server.")
      ->required();
  AddServer(command, options.server)->required();
  command.add_option("--upload-lists", options.uploadLists,
                     "A folder for lists of what to upload, delete and purge on a host.");
}

ChannelFolders TargetOf(const PublicationOptions& options) {
  return FoldersOf(ExtendedLengthPath(options.server), ToWide(options.channel));
}

void PublishNextState(const PublicationOptions& options, const sdk::VersionNumber& version,
                      const BuildFolder& build, const std::string& manifest, Console& console,
                      Diagnostics& diagnostics) {
  const ChannelFolders folders = TargetOf(options);
  std::string liveText;
  std::string text = manifest;
  const Changes changes =
      CompareManifests(ReadLiveManifest(folders, liveText), sdk::ReadGameUpdateManifest(text));
  Json& report = console.Report();
  if (!options.dryRun) {
    WriteFileAtomically(JoinPath(folders.next, kManifestName), manifest);
    WriteFileAtomically(JoinPath(folders.next, kVersionName), VersionArchive(version));
    PlaceLauncher(folders.live, folders.next);
    if (!options.uploadLists.empty()) {
      WriteUploadLists(ExtendedLengthPath(options.uploadLists), ToWide(options.channel), changes);
    }
    SwapIn(folders, diagnostics);
    report["published"] = true;
  }
  console.Print(Format("{} {} to {} in {}", options.dryRun ? "Would publish" : "Published",
                       options.version, options.channel, report["server"].get<std::string>()));
  std::size_t copied = 0;
  std::uint64_t bytes = 0;
  std::uint64_t copiedBytes = 0;
  for (const BuildFile& file : build.files) {
    copied += file.isPublished ? 0 : 1;
    bytes += file.size;
    copiedBytes += file.isPublished ? 0 : file.size;
  }
  const std::size_t linked = build.files.size() - copied;
  console.Print(Format("  {} files, {}, in {} folders", build.files.size(), FormatByteSize(bytes),
                       build.directories.size()));
  console.Print(Format("  {} copied ({}), {} already on the server", copied,
                       FormatByteSize(copiedBytes), linked));
  report.update({{"files", build.files.size()},
                 {"bytes", bytes},
                 {"directories", build.directories.size()},
                 {"copiedFiles", copied},
                 {"copiedBytes", copiedBytes},
                 {"linkedFiles", linked}});
  ReportChanges(changes, console);
}

}  // namespace ve::publish
