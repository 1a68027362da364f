#include <optional>
#include <utility>

#include "archive/updater_settings.h"
#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "core/md5.h"
#include "core/unicode.h"
#include "publisher/build/name_rules.h"
#include "publisher/channel/channel_swap.h"
#include "publisher/channel/launcher_executable.h"
#include "publisher/commands/command.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"
#include "updater/build_config.h"
#include "updater/updater_manifest.h"

namespace ve::publish {
namespace {

struct Options {
  std::string executable;
  std::string settings;
  std::string channel;
  std::string server;
};

/// The files to publish.
struct Parts {
  std::string executable;
  std::string settings;
  std::string url;  ///< In the settings.
  LauncherRecord record;
};

void CheckExecutable(const std::wstring& path, Parts& parts, Diagnostics& diagnostics) {
  parts.executable = ReadWholeFile(path);
  const std::string subject = DisplayPath(path);
  const char* const hint = "Publish with the tool that was built together with this Launcher.";
  const sdk::BuildConfig& own = sdk::kBuildConfig;
  const std::optional<ProgramVersion> version = ReadProgramVersion(path);
  if (!version) {
    return diagnostics.AddError(subject, "not a Windows executable with a version resource",
                                "Pass the Launcher's file.");
  }
  const auto [number, keeps] = *version;
  if (number != own.version) {
    diagnostics.AddError(
        subject,
        Format("its version is {}, and this tool publishes version {}", number, own.version), hint);
  }
  if (keeps != own.keepsNonEmptyDirectories) {
    diagnostics.AddWarning(
        subject,
        Format("its clean-up {} non-empty directories, and that of this tool's build {} them",
               keeps ? "keeps" : "stops at", keeps ? "stops at" : "keeps"),
        hint);
  }
  parts.record = {parts.record.executable, parts.executable.size(), Md5Hex(parts.executable),
                  number, IsSigned(parts.executable)};
}

void CheckSettings(const Options& options, Parts& parts, Diagnostics& diagnostics) {
  const std::wstring path = ExtendedLengthPath(options.settings);
  parts.settings = ReadWholeFile(path);
  try {
    const sdk::UpdaterSettings settings = sdk::ReadUpdaterSettings(parts.settings);
    parts.url = ToUtf8(settings.url);
    if (settings.channel == ToWide(options.channel)) return;
    diagnostics.AddError(
        DisplayPath(path),
        Format("its channel is {}, and the Launcher would take its updates from there",
               ToUtf8(settings.channel)),
        "Make one for this channel with publish settings.");
  } catch (const VERuntimeError& error) {
    diagnostics.AddError(DisplayPath(path), Format("the Launcher rejects it: {}", error.what()),
                         "Make one with publish settings.");
  }
}

/// A file of the tree as it is now; empty if there is none.
std::string Published(const std::wstring& folder, std::wstring_view name) {
  const std::wstring path = JoinPath(folder, name);
  return file::Exists(path) ? ReadWholeFile(path) : std::string();
}

void WarnOfExecutable(const std::wstring& folder, const LauncherRecord& record,
                      Diagnostics& diagnostics) {
  const auto before = ParseLauncherRecord(Published(folder, kLauncherRecordName));
  if (!before) return;
  const auto warn = [&](std::string message, const char* hint) {
    diagnostics.AddWarning(record.executable, std::move(message), hint);
  };
  if (before->version > record.version) {
    warn(Format("the server had version {}: players who have that keep it, and their "
                "Launcher logs an error at every start",
                before->version),
         "Publish a higher version soon.");
  }
  if (before->version == record.version && before->md5 != record.md5) {
    warn(Format("the server had another file with the same version {}: players who have "
                "that version do not get this one",
                record.version),
         "Build it with a higher version, unless this is intended.");
  }
  if (before->isSigned && !record.isSigned) {
    warn("has no Authenticode signature, but the one on the server had",
         "Windows and virus scanners may warn players of it. Sign it, then publish it with a "
         "higher version.");
  }
}

/// The library's own writer takes short paths only and checks nothing: it writes to a temporary
/// file, and what it wrote is read back as the Launcher reads it.
std::string UpdaterManifest() {
  const TemporaryFile file("");
  sdk::WriteUpdaterManifest(file.Path(), sdk::kBuildConfig.version);
  std::string content = ReadWholeFile(file.Path());
  std::string text = content;
  if (sdk::ReadUpdaterManifest(text, 0) != sdk::kBuildConfig.version) {
    throw VERuntimeError("the updater manifest does not read back as it was written");
  }
  return content;
}

void Publish(const Options& options, const Parts& parts, Diagnostics& diagnostics) {
  const ChannelFolders folders =
      FoldersOf(ExtendedLengthPath(options.server), ToWide(options.channel));
  const ChannelLock lock(folders);
  WarnOfExecutable(folders.live, parts.record, diagnostics);
  const std::string before = Published(folders.live, kUpdaterSettingsName);
  if (!before.empty() && before != parts.settings) {
    diagnostics.AddWarning(
        options.settings,
        Format("the server had other settings: every player's Launcher takes these over, restarts "
               "once, and from then on asks {}",
               parts.url),
        "If this is not intended, publish the previous settings again.");
  }

  const std::string manifest = UpdaterManifest();
  const std::wstring updater = JoinPath(folders.live, kUpdaterFolder);
  file::MakeDirectories(updater);
  WriteFileAtomically(JoinPath(updater, ToWide(parts.record.executable)), parts.executable);
  WriteFileAtomically(JoinPath(folders.live, kUpdaterSettingsName), parts.settings);
  WriteFileAtomically(JoinPath(folders.live, kLauncherRecordName),
                      LauncherRecordText(parts.record));
  // Last: it offers the rest to Launchers.
  WriteFileAtomically(JoinPath(folders.live, kUpdaterManifestName), manifest);
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  const std::wstring path = ExtendedLengthPath(options.executable);
  const std::wstring name = path.substr(path.find_last_of(L'\\') + 1);
  const std::string server = DisplayPath(ExtendedLengthPath(options.server));
  Parts parts;
  parts.record.executable = ToUtf8(name);
  console.Report().update({{"version", sdk::kBuildConfig.version},
                           {"executable", parts.record.executable},
                           {"channel", options.channel},
                           {"server", server},
                           {"published", false}});
  CheckCharacters(name, parts.record.executable, diagnostics);
  CheckExecutable(path, parts, diagnostics);
  CheckSettings(options, parts, diagnostics);
  if (diagnostics.HasErrors()) return;
  Publish(options, parts, diagnostics);
  console.Report()["published"] = true;
  console.Print(Format("Published version {} of the Launcher, {}, to {} in {}",
                       sdk::kBuildConfig.version, parts.record.executable, options.channel,
                       server));
}

}  // namespace

void AddLauncherCommand(CLI::App& program, Command& chosen) {
  const auto [command, options] = AddCommand(
      program, chosen, "launcher", "Publish the Launcher with its settings archive.",
      "--exe Launcher.exe --settings UpdaterData.vpak --channel release --server D:\\Server", Run);
  command
      ->add_option("--exe", options->executable,
                   "The Launcher's file, under the name that it has on players' disks.")
      ->required();
  command->add_option("--settings", options->settings, "The settings archive to go with it.")
      ->required();
  AddChannel(*command, options->channel)->required();
  AddServer(*command, options->server)->required();
}

}  // namespace ve::publish
