#include "core/windows.h"

#include <memory>
#include <optional>
#include <utility>

#include "archive/updater_settings.h"
#include "core/directory_walk.h"
#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/build/name_rules.h"
#include "publisher/channel/channel_swap.h"
#include "publisher/channel/executable.h"
#include "publisher/commands/command.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/temporary_file.h"
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

/// The files to publish, with their content.
struct Parts {
  std::wstring executableName;
  std::string executable;
  std::string settings;
};

/// The content, or none and a refusal.
std::optional<std::string> ReadInput(const std::string& option, const std::string& path,
                                     Diagnostics& diagnostics) {
  const std::wstring absolute = ExtendedLengthPath(path);
  const DWORD attributes = GetFileAttributesW(absolute.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    diagnostics.AddError(DisplayPath(absolute), "there is no such file",
                         Format("Name an existing file with {}.", option));
    return {};
  }
  return ReadWholeFile(absolute);
}

void CheckExecutableName(const std::wstring& name, Diagnostics& diagnostics) {
  const std::string subject = ToUtf8(name);
  CheckCharacters(name, subject, diagnostics);
  const std::wstring key = FoldCase(name);
  for (const std::wstring_view taken :
       {kUpdaterManifestName, kUpdaterSettingsName, kLauncherRecordName}) {
    if (key == FoldCase(taken.substr(kUpdaterFolder.size() + 1))) {
      diagnostics.AddError(subject, "is the name of another file beside it on the server",
                           "Give the executable the name that it has on players' disks.");
    }
  }
}

void CheckExecutable(const std::string& path, const std::string& content,
                     Diagnostics& diagnostics) {
  const std::wstring absolute = ExtendedLengthPath(path);
  if (!IsExecutable(content)) {
    diagnostics.AddError(DisplayPath(absolute), "it is no Windows program",
                         "Name the Launcher's file.");
    return;
  }
  const std::optional<std::uint32_t> version = ExecutableVersion(absolute);
  if (version == sdk::kBuildConfig.version) return;
  const std::string found =
      version ? Format("its version is {}", *version) : std::string("it has no version resource");
  diagnostics.AddError(
      DisplayPath(absolute),
      Format("{}, and this tool publishes version {}", found, sdk::kBuildConfig.version),
      "Publish with the tool that was built together with this Launcher.");
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
        Format("Make one for {} with publish settings.", options.channel));
  } catch (const VERuntimeError& error) {
    diagnostics.AddError(subject, Format("the Launcher refuses it: {}", error.what()),
                         "Make one with publish settings.");
  }
}

/// A file of the tree as it is now; none if there is none.
std::optional<std::string> Published(const std::wstring& folder, std::wstring_view name) {
  const std::wstring path = JoinPath(folder, name);
  if (!file::Exists(path)) return {};
  return ReadWholeFile(path);
}

std::optional<std::uint32_t> PublishedVersion(const std::wstring& folder) {
  std::optional<std::string> manifest = Published(folder, kUpdaterManifestName);
  if (!manifest) return {};
  try {
    return sdk::ReadUpdaterManifest(*manifest, 0);
  } catch (const VERuntimeError&) {
    return {};  // It is replaced, whatever is wrong with it.
  }
}

std::wstring ExecutablePlace(const Parts& parts) {
  return Format(L"{}/{}", kUpdaterFolder, parts.executableName);
}

void WarnOfVersion(const std::wstring& folder, const Parts& parts, Diagnostics& diagnostics) {
  const std::optional<std::uint32_t> version = PublishedVersion(folder);
  if (!version) return;
  if (*version > sdk::kBuildConfig.version) {
    diagnostics.AddWarning(
        ToUtf8(parts.executableName),
        Format("the server had version {}: players who have that keep it, and their "
               "Launcher logs an error at every start",
               *version),
        "Publish a higher version soon.");
  }
  const std::optional<std::string> executable = Published(folder, ExecutablePlace(parts));
  if (*version == sdk::kBuildConfig.version && executable && *executable != parts.executable) {
    diagnostics.AddWarning(
        ToUtf8(parts.executableName),
        Format("the server had another file with the same version {}: players who have "
               "that version do not get this one",
               *version),
        "Build it with a higher version unless that is meant.");
  }
}

void WarnOfSettings(const std::wstring& folder, const Parts& parts, const Options& options,
                    Diagnostics& diagnostics) {
  const std::optional<std::string> before = Published(folder, kUpdaterSettingsName);
  if (!before || *before == parts.settings) return;
  const std::string url = ToUtf8(sdk::ReadUpdaterSettings(parts.settings).url);
  diagnostics.AddWarning(
      options.settings,
      "the server had other settings: every player's Launcher takes these over and "
      "restarts once",
      Format("From then on it asks {}", url));
}

void WarnOfOtherFiles(const std::wstring& folder, const Parts& parts, Diagnostics& diagnostics) {
  const std::wstring updater = JoinPath(folder, kUpdaterFolder);
  if (!file::Exists(updater)) return;
  const std::wstring manifest = JoinPath(folder, kUpdaterManifestName);
  const std::wstring settings = JoinPath(folder, kUpdaterSettingsName);
  const std::wstring executable = JoinPath(folder, ExecutablePlace(parts));
  file::WalkDirectory(updater, [&](const file::DirectoryEntry& entry) {
    const std::wstring key = FoldCase(entry.path);
    const bool isKnown = key == FoldCase(manifest) || key == FoldCase(settings) ||
                         key == FoldCase(executable) || entry.path.ends_with(kBesideSuffix);
    if (!isKnown) {
      diagnostics.AddWarning(
          DisplayPath(entry.path),
          "it is not replaced: a Launcher of this name still gets it as its update",
          "Remove it if no player's Launcher has this name.");
    }
    return file::WalkAction::kRecurse;
  });
}

void WarnOfPublished(const std::wstring& folder, const Parts& parts, const Options& options,
                     Diagnostics& diagnostics) {
  WarnOfVersion(folder, parts, diagnostics);
  WarnOfSettings(folder, parts, options, diagnostics);
  WarnOfOtherFiles(folder, parts, diagnostics);
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

/// In the order that no player's Launcher takes harm from: the manifest, which offers the rest, is
/// last.
void Write(const std::wstring& folder, const Parts& parts) {
  const std::string manifest = UpdaterManifest();
  file::MakeDirectories(JoinPath(folder, kUpdaterFolder));
  WriteFileAtomically(JoinPath(folder, ExecutablePlace(parts)), parts.executable);
  WriteFileAtomically(JoinPath(folder, kUpdaterSettingsName), parts.settings);
  WriteFileAtomically(JoinPath(folder, kUpdaterManifestName), manifest);
}

void Publish(const Options& options, const Parts& parts, Console& console,
             Diagnostics& diagnostics) {
  const ChannelFolders folders =
      FoldersOf(ExtendedLengthPath(options.server), ToWide(options.channel));
  const ChannelLock lock(folders);
  WarnOfPublished(folders.live, parts, options, diagnostics);
  Write(folders.live, parts);
  console.Print(Format("Published version {} of the Launcher, {}, to {} in {}",
                       sdk::kBuildConfig.version, ToUtf8(parts.executableName), options.channel,
                       DisplayPath(ExtendedLengthPath(options.server))));
  console.Report()["published"] = true;
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  const std::wstring path = ExtendedLengthPath(options.executable);
  Parts parts;
  parts.executableName = path.substr(path.find_last_of(L'\\') + 1);
  console.Report().update({{"version", sdk::kBuildConfig.version},
                           {"executable", ToUtf8(parts.executableName)},
                           {"channel", options.channel},
                           {"server", DisplayPath(ExtendedLengthPath(options.server))},
                           {"published", false}});

  CheckExecutableName(parts.executableName, diagnostics);
  if (auto executable = ReadInput("--exe", options.executable, diagnostics)) {
    parts.executable = std::move(*executable);
    CheckExecutable(options.executable, parts.executable, diagnostics);
  }
  if (auto settings = ReadInput("--settings", options.settings, diagnostics)) {
    parts.settings = std::move(*settings);
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
