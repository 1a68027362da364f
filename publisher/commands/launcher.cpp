#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <utility>

#include "archive/updater_settings.h"
#include "core/directory_walk.h"
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
  LauncherRecord record;
};

/// The content; none and an error if the file cannot be read.
std::optional<std::string> ReadInput(const std::string& path, Diagnostics& diagnostics) {
  try {
    return ReadWholeFile(ExtendedLengthPath(path));
  } catch (const PublishError& error) {
    diagnostics.errors.push_back(error.GetDiagnostic());
    return {};
  }
}

/// Whether a name beside the executable is that of another file of the Launcher's update.
bool IsTaken(std::wstring_view name) {
  constexpr std::array kNames{kUpdaterManifestName, kUpdaterSettingsName, kLauncherRecordName};
  return std::any_of(kNames.begin(), kNames.end(), [&](std::wstring_view taken) {
    return FoldCase(taken.substr(kUpdaterFolder.size() + 1)) == FoldCase(name);
  });
}

void CheckExecutableName(const std::wstring& name, Diagnostics& diagnostics) {
  const std::string subject = ToUtf8(name);
  CheckCharacters(name, subject, diagnostics);
  if (!IsTaken(name)) return;
  diagnostics.AddError(subject, "is the name of another file beside it on the server",
                       "Give the executable the name that it has on players' disks.");
}

void CheckExecutable(const std::string& path, Parts& parts, Diagnostics& diagnostics) {
  const std::wstring absolute = ExtendedLengthPath(path);
  const std::string subject = DisplayPath(absolute);
  const char* const hint = "Publish with the tool that was built together with this Launcher.";
  if (!IsExecutable(parts.executable)) {
    return diagnostics.AddError(subject, "not a Windows executable", "Pass the Launcher's file.");
  }
  const std::optional<std::uint32_t> version = ExecutableVersion(absolute);
  if (version != sdk::kBuildConfig.version) {
    diagnostics.AddError(subject,
                         version ? Format("its version is {}, and this tool publishes version {}",
                                          *version, sdk::kBuildConfig.version)
                                 : "has no version resource",
                         hint);
    return;
  }
  const bool keeps = KeepsNonEmptyDirectories(absolute);
  parts.record.size = parts.executable.size();
  parts.record.md5 = Md5Hex(parts.executable);
  parts.record.version = *version;
  parts.record.keepsNonEmptyDirectories = keeps;
  parts.record.isSigned = IsSigned(parts.executable);
  if (keeps == sdk::kBuildConfig.keepsNonEmptyDirectories) return;
  diagnostics.AddWarning(
      subject,
      Format("its clean-up {} non-empty directories, and that of this tool's build {} them",
             keeps ? "keeps" : "stops at", keeps ? "stops at" : "keeps"),
      hint);
}

void CheckSettings(const Options& options, const std::string& content, Diagnostics& diagnostics) {
  const std::string subject = DisplayPath(ExtendedLengthPath(options.settings));
  try {
    const sdk::UpdaterSettings settings = sdk::ReadUpdaterSettings(content);
    if (settings.channel == ToWide(options.channel)) return;
    diagnostics.AddError(
        subject,
        Format("its channel is {}, and the Launcher would take its updates from there",
               ToUtf8(settings.channel)),
        "Make one for this channel with publish settings.");
  } catch (const VERuntimeError& error) {
    diagnostics.AddError(subject, Format("the Launcher rejects it: {}", error.what()),
                         "Make one with publish settings.");
  }
}

/// A file of the tree as it is now; none if there is none.
std::optional<std::string> Published(const std::wstring& folder, std::wstring_view name) {
  const std::wstring path = JoinPath(folder, name);
  if (!file::Exists(path)) return {};
  return ReadWholeFile(path);
}

std::wstring ExecutablePath(const Parts& parts) {
  return Format(L"{}/{}", kUpdaterFolder, ToWide(parts.record.executable));
}

void WarnOfExecutable(const std::wstring& folder, const LauncherRecord& record,
                      Diagnostics& diagnostics) {
  const std::optional<std::string> text = Published(folder, kLauncherRecordName);
  const auto before = text ? ParseLauncherRecord(*text) : std::nullopt;
  if (!before) return;
  if (before->version > record.version) {
    diagnostics.AddWarning(
        record.executable,
        Format("the server had version {}: players who have that keep it, and their "
               "Launcher logs an error at every start",
               before->version),
        "Publish a higher version soon.");
  }
  if (before->version == record.version && before->md5 != record.md5) {
    diagnostics.AddWarning(
        record.executable,
        Format("the server had another file with the same version {}: players who have "
               "that version do not get this one",
               record.version),
        "Build it with a higher version unless that is meant.");
  }
  if (before->isSigned && !record.isSigned) {
    diagnostics.AddWarning(record.executable,
                           "has no Authenticode signature, but the one on the server had",
                           "Windows and virus scanners may warn players of it. Sign it, then "
                           "publish it with a higher version.");
  }
}

void WarnOfSettings(const std::wstring& folder, const Parts& parts, const Options& options,
                    Diagnostics& diagnostics) {
  const std::optional<std::string> before = Published(folder, kUpdaterSettingsName);
  if (!before || *before == parts.settings) return;
  diagnostics.AddWarning(
      options.settings,
      Format("the server had other settings: every player's Launcher takes these over, restarts "
             "once, and from then on asks {}",
             ToUtf8(sdk::ReadUpdaterSettings(parts.settings).url)),
      "Publish the settings of before if that is not meant.");
}

void WarnOfOtherFiles(const std::wstring& folder, const Parts& parts, Diagnostics& diagnostics) {
  const std::wstring updater = JoinPath(folder, kUpdaterFolder);
  if (!file::Exists(updater)) return;
  const std::wstring executable = ToWide(parts.record.executable);
  file::WalkDirectory(updater, [&](const file::DirectoryEntry& entry) {
    const std::wstring_view name = entry.path.substr(updater.size() + 1);
    if (!IsTaken(name) && FoldCase(name) != FoldCase(executable)) {
      diagnostics.AddWarning(DisplayPath(entry.path),
                             "is not replaced: a Launcher of this name still gets it as its update",
                             "Remove it if no player's Launcher has this name.");
    }
    return file::WalkAction::kSkip;
  });
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

/// The manifest, which offers the rest to Launchers, is last.
void Write(const std::wstring& folder, const Parts& parts) {
  const std::string manifest = UpdaterManifest();
  file::MakeDirectories(JoinPath(folder, kUpdaterFolder));
  WriteFileAtomically(JoinPath(folder, ExecutablePath(parts)), parts.executable);
  WriteFileAtomically(JoinPath(folder, kUpdaterSettingsName), parts.settings);
  WriteFileAtomically(JoinPath(folder, kLauncherRecordName), LauncherRecordText(parts.record));
  WriteFileAtomically(JoinPath(folder, kUpdaterManifestName), manifest);
}

void Publish(const Options& options, const Parts& parts, Console& console,
             Diagnostics& diagnostics) {
  const ChannelFolders folders =
      FoldersOf(ExtendedLengthPath(options.server), ToWide(options.channel));
  const ChannelLock lock(folders);
  WarnOfExecutable(folders.live, parts.record, diagnostics);
  WarnOfSettings(folders.live, parts, options, diagnostics);
  WarnOfOtherFiles(folders.live, parts, diagnostics);
  Write(folders.live, parts);
  console.Print(Format("Published version {} of the Launcher, {}, to {} in {}",
                       sdk::kBuildConfig.version, parts.record.executable, options.channel,
                       DisplayPath(ExtendedLengthPath(options.server))));
  console.Report()["published"] = true;
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  const std::wstring path = ExtendedLengthPath(options.executable);
  const std::wstring name = path.substr(path.find_last_of(L'\\') + 1);
  Parts parts;
  parts.record.executable = ToUtf8(name);
  console.Report().update({{"version", sdk::kBuildConfig.version},
                           {"executable", parts.record.executable},
                           {"channel", options.channel},
                           {"server", DisplayPath(ExtendedLengthPath(options.server))},
                           {"published", false}});

  CheckExecutableName(name, diagnostics);
  if (auto content = ReadInput(options.executable, diagnostics)) {
    parts.executable = std::move(*content);
    CheckExecutable(options.executable, parts, diagnostics);
  }
  if (auto content = ReadInput(options.settings, diagnostics)) {
    parts.settings = std::move(*content);
    CheckSettings(options, parts.settings, diagnostics);
  }
  if (diagnostics.HasErrors()) return;
  Publish(options, parts, console, diagnostics);
}

}  // namespace

void AddLauncherCommand(CLI::App& program, Command& chosen) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(
      program, chosen, "launcher", "Publish the Launcher with its settings archive.",
      "--exe Launcher.exe --settings UpdaterData.vpak --channel release --server D:\\Server",
      [options](Console& console, Diagnostics& diagnostics) {
        Run(*options, console, diagnostics);
      });
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
