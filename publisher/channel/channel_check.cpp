#include "publisher/channel/channel_check.h"

#include "core/windows.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <variant>
#include <vector>

#include "core/directory_walk.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/build/name_rules.h"
#include "publisher/channel/executable.h"
#include "publisher/channel/manifest_check.h"
#include "publisher/channel/parsed_files.h"
#include "publisher/channel/payload_check.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/temporary_file.h"
#include "publisher/files/whole_file.h"
#include "publisher/report/version_text.h"
#include "updater/download_messages.h"

namespace ve::publish {
namespace {

constexpr const char* kNoGameUpdate = "Players get no game update, and keep what they have.";
constexpr const char* kUpdateFails = "Players who accept the update see \"Update failed.\".";
constexpr const char* kNoSelfUpdate = "Players' Launchers do not update themselves.";

/// Calls `visit` with every entry of a folder: its path below the folder, with "/".
void WalkFolder(
    const std::wstring& folder,
    const std::function<file::WalkAction(const std::wstring& name, bool isDirectory)>& visit) {
  if (!file::Exists(folder)) return;
  file::WalkDirectory(folder, [&](const file::DirectoryEntry& entry) {
    std::wstring name(entry.path.substr(folder.size() + 1));
    std::replace(name.begin(), name.end(), L'\\', L'/');
    return visit(name, entry.IsDirectory());
  });
}

class ChannelCheck {
 public:
  ChannelCheck(const ChannelOptions& options, std::wstring_view channel, Console& console,
               Diagnostics& diagnostics)
      : options_(options),
        channel_(channel),
        tree_(options.tree, channel),
        console_(console),
        diagnostics_(diagnostics) {}

  void Run() {
    report_ = {{"channel", ToUtf8(channel_)}, {"place", tree_.LocationOf(L"")}};
    console_.Print(Format("{}: {}", ToUtf8(channel_), tree_.LocationOf(L"")));
    CheckVersion();
    CheckGame();
    CheckLauncher();
    console_.Report()["channels"].push_back(std::move(report_));
  }

 private:
  void AddError(std::wstring_view name, std::string message, std::string hint) {
    diagnostics_.AddError(tree_.LocationOf(name), std::move(message), std::move(hint));
  }

  /// The error's message, word for word as a player's log has it.
  void AddError(std::wstring_view name, const ParseError& error, const char* effect) {
    AddError(name, error.message, Format("The Launcher's reader reports this. {}", effect));
  }

  /// The file; or none, and then the message that a player's log has.
  std::optional<std::string> Fetch(std::wstring_view name, std::string_view failure,
                                   const char* effect) {
    DownloadResult download = tree_.Fetch(name, diagnostics_);
    if (download.Succeeded()) return std::move(download.Body());
    AddError(name, Format(failure, ToUtf8(download.Error())), effect);
    return {};
  }

  void CheckVersion() {
    const auto bytes = Fetch(kVersionName, sdk::kVersionDownloadFailed, kNoGameUpdate);
    if (!bytes) return;
    const auto parsed = ParseVersionFile(*bytes);
    if (const auto* error = std::get_if<ParseError>(&parsed)) {
      return AddError(kVersionName, *error, kNoGameUpdate);
    }
    const auto& version = std::get<VersionFile>(parsed);
    if (bytes->size() < version.recordSize) {
      AddError(kVersionName, "the file ends before its version does",
               "Launchers read what is missing as 0.0.0.0. Publish again.");
    }
    WarnOfRest(kVersionName, version.recordSize, bytes->size());
    report_["version"] = VersionText(version.version);
    console_.Print(Format("  game {}", VersionText(version.version)));
  }

  void WarnOfRest(std::wstring_view name, std::size_t recordSize, std::size_t size) {
    if (size <= recordSize) return;
    diagnostics_.AddWarning(tree_.LocationOf(name),
                            Format("{} bytes follow the record", size - recordSize),
                            "Launchers do not read them; the file may be damaged.");
  }

  void CheckGame() {
    const auto content = Fetch(kManifestName, sdk::kManifestDownloadFailed, kUpdateFails);
    if (!content) return;
    std::string text;
    const auto parsed = ParseGameManifest(*content, text);
    if (const auto* error = std::get_if<ParseError>(&parsed)) {
      return AddError(kManifestName, *error, kUpdateFails);
    }
    const auto& manifest = std::get<sdk::GameUpdateManifest>(parsed);
    std::uint64_t bytes = 0;
    for (const sdk::FileEntry& entry : manifest.files) bytes += entry.size;
    report_["directories"] = manifest.directories.size();
    report_["files"] = manifest.files.size();
    report_["bytes"] = bytes;
    console_.Print(Format("  {} files in {} directories, {}", manifest.files.size(),
                          manifest.directories.size(), FormatByteSize(bytes)));
    CheckManifest(manifest, tree_.LocationOf(kManifestName), ToWide(options_.launcher),
                  diagnostics_);
    CheckPayload(tree_, manifest, console_, diagnostics_);
    if (!tree_.IsServed()) CheckUnlisted(manifest);
  }

  /// Nothing lies in the folder but what is listed, and that in the listed spelling.
  void CheckUnlisted(const sdk::GameUpdateManifest& manifest) {
    std::unordered_map<std::wstring, std::wstring> files;
    std::unordered_set<std::wstring> directories;
    for (const std::wstring_view name : {kVersionName, kManifestName}) {
      files.emplace(FoldCase(name), name);
    }
    for (const std::string_view directory : manifest.directories) {
      directories.insert(FoldCase(sdk::WidenName(directory)));
    }
    for (const sdk::FileEntry& entry : manifest.files) {
      files.emplace(FoldCase(entry.name), entry.name);
      for (std::size_t end = entry.name.find(L'/'); end != std::wstring::npos;
           end = entry.name.find(L'/', end + 1)) {
        directories.insert(FoldCase(std::wstring_view(entry.name).substr(0, end)));
      }
    }
    WalkFolder(tree_.Folder(), [&](const std::wstring& name, bool isDirectory) {
      if (FoldCase(name) == FoldCase(kUpdaterFolder)) return file::WalkAction::kSkip;
      if (isDirectory && directories.contains(FoldCase(name))) return file::WalkAction::kRecurse;
      CheckEntry(name, isDirectory, files);
      return file::WalkAction::kSkip;
    });
  }

  void CheckEntry(const std::wstring& name, bool isDirectory,
                  const std::unordered_map<std::wstring, std::wstring>& files) {
    const auto listed = files.find(FoldCase(name));
    if (isDirectory || listed == files.end()) {
      return AddError(name, "lies in the tree, but is not listed",
                      "No player gets it. Remove it, or publish again.");
    }
    std::wstring spelling = listed->second;
    std::replace(spelling.begin(), spelling.end(), L'\\', L'/');
    if (spelling == name) return;
    AddError(name, Format("is listed as '{}'", ToUtf8(listed->second)),
             "Servers that tell case apart do not find it. Spell both alike.");
  }

  void CheckLauncher() {
    const std::optional<std::uint32_t> offered = CheckUpdaterManifest();
    CheckSettings();
    if (tree_.IsServed()) {
      CheckServedExecutable(offered);
    } else {
      CheckExecutableInFolder(offered);
    }
  }

  std::optional<std::uint32_t> CheckUpdaterManifest() {
    const auto content =
        Fetch(kUpdaterManifestName, sdk::kUpdaterManifestDownloadFailed, kNoSelfUpdate);
    if (!content) return {};
    const auto parsed = ParseUpdaterManifest(*content);
    if (const auto* error = std::get_if<ParseError>(&parsed)) {
      AddError(kUpdaterManifestName, *error, kNoSelfUpdate);
      return {};
    }
    const std::uint32_t offered = std::get<std::uint32_t>(parsed);
    report_["launcher"]["version"] = offered;
    console_.Print(Format("  Launcher {}", offered));
    return offered;
  }

  void CheckSettings() {
    const auto bytes =
        Fetch(kUpdaterSettingsName, sdk::kSettingsDownloadFailed,
              "The check for updates of a current Launcher ends there, at every start.");
    if (!bytes) return;
    const auto parsed = ParseSettings(*bytes);
    if (const auto* error = std::get_if<ParseError>(&parsed)) {
      return AddError(kUpdaterSettingsName, *error,
                      "Launchers install the file, and can update nothing from then on.");
    }
    const auto& settings = std::get<SettingsFile>(parsed);
    WarnOfRest(kUpdaterSettingsName, settings.recordSize, bytes->size());
    report_["launcher"]["url"] = settings.url;
    report_["launcher"]["channel"] = settings.channel;
    console_.Print(Format("  settings: URL {}, channel {}", settings.url, settings.channel));
    if (ToWide(settings.channel) != channel_) {
      diagnostics_.AddWarning(tree_.LocationOf(kUpdaterSettingsName),
                              Format("names the channel {}", settings.channel),
                              Format("It moves the players of {} there.", ToUtf8(channel_)));
    }
    if (tree_.IsServed() && settings.url != options_.tree.url) {
      diagnostics_.AddWarning(tree_.LocationOf(kUpdaterSettingsName),
                              Format("names the URL {}", settings.url),
                              Format("It moves the players of {} there.", options_.tree.url));
    }
  }

  void CheckServedExecutable(std::optional<std::uint32_t> offered) {
    const std::wstring name = Format(L"{}/{}", kUpdaterFolder, ToWide(options_.launcher));
    DownloadResult download = tree_.Fetch(name, diagnostics_);
    if (!download.Succeeded()) {
      return AddError(
          name, Format(sdk::kExecutableDownloadFailed, options_.launcher, ToUtf8(download.Error())),
          kNoSelfUpdate);
    }
    const TemporaryFile copy(download.Body());
    CheckExecutable(name, copy.Path(), offered);
  }

  /// The tree does not know the executable's name: it is the one file more.
  void CheckExecutableInFolder(std::optional<std::uint32_t> offered) {
    const std::wstring folder = JoinPath(tree_.Folder(), kUpdaterFolder);
    std::vector<std::wstring> others;
    WalkFolder(folder, [&](const std::wstring& entry, bool /*isDirectory*/) {
      const std::wstring name = Format(L"{}/{}", kUpdaterFolder, entry);
      if (name != kUpdaterManifestName && name != kUpdaterSettingsName &&
          name != kLauncherRecordName) {
        others.push_back(name);
      }
      return file::WalkAction::kSkip;
    });
    if (others.empty()) {
      return AddError(kUpdaterFolder, "holds no executable",
                      "Launchers fetch their new version from here. Publish the Launcher again.");
    }
    if (others.size() > 1) {
      for (const std::wstring& name : others) {
        AddError(name,
                 Format("is one of {} files where only the executable is expected", others.size()),
                 "Remove what is not the Launcher.");
      }
      return;
    }
    CheckExecutable(others.front(), JoinPath(tree_.Folder(), others.front()), offered);
  }

  void CheckExecutable(const std::wstring& name, const std::wstring& path,
                       std::optional<std::uint32_t> offered) {
    report_["launcher"]["executable"] = ToUtf8(name.substr(kUpdaterFolder.size() + 1));
    const std::optional<std::uint32_t> version = ExecutableVersion(path);
    if (!version) {
      return AddError(name, "has no version resource",
                      "It is no Launcher, or damaged. Publish the Launcher again.");
    }
    if (!offered || *version == *offered) return;
    AddError(name, Format("is version {}, but updater.manifest offers {}", *version, *offered),
             *version < *offered ? "Launchers would replace themselves at every start, for ever."
                                 : "Launchers of the offered version never fetch it.");
  }

  const ChannelOptions& options_;
  std::wstring channel_;
  PublishedTree tree_;
  Console& console_;
  Diagnostics& diagnostics_;
  Json report_;
};

}  // namespace

void CheckChannel(const ChannelOptions& options, std::wstring_view channel, Console& console,
                  Diagnostics& diagnostics) {
  ChannelCheck(options, channel, console, diagnostics).Run();
}

}  // namespace ve::publish
