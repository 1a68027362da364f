#include "publisher/channel/channel_check.h"

#include <cstdint>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "archive/updater_settings.h"
#include "core/directory_walk.h"
#include "core/errors.h"
#include "core/format.h"
#include "core/unicode.h"
#include "publisher/build/name_rules.h"
#include "publisher/channel/channel_files.h"
#include "publisher/channel/launcher_executable.h"
#include "publisher/channel/manifest_check.h"
#include "publisher/channel/versions.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/whole_file.h"
#include "updater/download_messages.h"
#include "updater/updater_manifest.h"

namespace ve::publish {
namespace {

constexpr const char* kNoGameUpdate = "Players get no game update, and keep what they have.";
constexpr const char* kUpdateFails = "Players who accept the update see \"Update failed.\".";
constexpr const char* kNoSelfUpdate = "Players' Launchers do not update themselves.";

std::wstring InUpdaterFolder(std::wstring_view file) {
  return Format(L"{}/{}", kUpdaterFolder, file);
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

  std::optional<std::string> Run() {
    const FileContent version = tree_.Read(kVersionName, Keep::kBody);
    const FileContent updater = tree_.Read(kUpdaterManifestName, Keep::kBody);
    if (options_.mayBeAbsent && !version.error.empty() && !updater.error.empty()) {
      return Format("{}: {}, {}: {}", ToUtf8(kVersionName), ToUtf8(version.error),
                    ToUtf8(kUpdaterManifestName), ToUtf8(updater.error));
    }
    report_ = {{"channel", ToUtf8(channel_)}, {"location", tree_.LocationOf(L"")}};
    console_.Print(Format("{}: {}", ToUtf8(channel_), tree_.LocationOf(L"")));
    ReadRecord();
    launcher_ = LauncherName();
    CheckVersion(version);
    CheckGame();
    const std::optional<std::uint32_t> offered = CheckUpdaterManifest(updater);
    CheckSettings();
    CheckExecutable(offered);
    console_.Report()["channels"].push_back(std::move(report_));
    return {};
  }

 private:
  void AddError(std::wstring_view name, std::string message, std::string hint) {
    diagnostics_.AddError(tree_.LocationOf(name), std::move(message), std::move(hint));
  }

  /// What the Launcher's reader makes of a content. None after adding the message that a player's
  /// log has, if the file was not received or the reader rejects it.
  template <class Read>
  auto Accept(std::wstring_view name, const FileContent& content, std::string_view failure,
              std::string_view effect, const Read& read) -> std::optional<decltype(read())> {
    if (!content.error.empty()) {
      AddError(name, Format(failure, ToUtf8(content.error)), std::string(effect));
      return {};
    }
    CheckContentLength(content, tree_.LocationOf(name), diagnostics_);
    try {
      return read();
    } catch (const VERuntimeError& error) {
      AddError(name, error.what(), Format("The Launcher's reader reports this. {}", effect));
      return {};
    }
  }

  void ReadRecord() {
    const FileContent content = tree_.Read(kLauncherRecordName, Keep::kBody);
    if (content.error.empty()) {
      record_ = ParseLauncherRecord(content.body);
      if (!record_) AddError(kLauncherRecordName, "is damaged", "Publish the Launcher again.");
    } else if (!options_.executable) {
      diagnostics_.AddWarning(
          tree_.LocationOf(kLauncherRecordName),
          Format("cannot be read ({}), so the Launcher's content is not checked",
                 ToUtf8(content.error)),
          "Publish the Launcher again, which writes the file, or name the Launcher with --exe.");
    }
  }

  [[nodiscard]] std::wstring LauncherName() const {
    if (!options_.launcher.empty()) return ToWide(options_.launcher);
    if (record_) return ToWide(record_->executable);
    return L"Launcher.exe";
  }

  void CheckVersion(const FileContent& content) {
    const auto version = Accept(kVersionName, content, sdk::kVersionDownloadFailed, kNoGameUpdate,
                                [&] { return sdk::ReadOfferedVersion(content.body); });
    if (!version) return;
    CheckRecordSize(content.body, VersionArchive(*version, ModeOf(content.body)),
                    tree_.LocationOf(kVersionName), diagnostics_);
    report_["version"] = VersionText(*version);
    console_.Print(Format("  game {}", VersionText(*version)));
  }

  void CheckGame() {
    FileContent content = tree_.Read(kManifestName, Keep::kBody);
    const auto manifest = Accept(kManifestName, content, sdk::kManifestDownloadFailed, kUpdateFails,
                                 [&] { return sdk::ReadGameUpdateManifest(content.body); });
    if (!manifest) return;
    std::uint64_t bytes = 0;
    for (const sdk::FileEntry& entry : manifest->files) bytes += entry.size;
    report_["directories"] = manifest->directories.size();
    report_["files"] = manifest->files.size();
    report_["bytes"] = bytes;
    console_.Print(Format("  {} files in {} folders, {}", manifest->files.size(),
                          manifest->directories.size(), FormatByteSize(bytes)));
    CheckManifest(*manifest, tree_.LocationOf(kManifestName), launcher_, diagnostics_);
    CheckPayload(tree_, *manifest, console_, diagnostics_);
    if (!tree_.IsServed()) CheckUnlisted(*manifest);
  }

  /// Checks that the folder contains nothing else, and everything in the listed spelling.
  void CheckUnlisted(const sdk::GameUpdateManifest& manifest) {
    std::unordered_map<std::wstring, std::wstring> files;  // The spelling, by the folded name.
    std::unordered_set<std::wstring> directories{FoldCase(kUpdaterFolder)};
    const std::wstring executable = InUpdaterFolder(launcher_);
    for (const std::wstring_view name :
         {kVersionName, kManifestName, kUpdaterManifestName, kUpdaterSettingsName,
          kLauncherRecordName, std::wstring_view(executable)}) {
      files.emplace(FoldCase(name), name);
    }
    for (const std::string_view directory : manifest.directories) {
      directories.insert(FoldCase(sdk::WidenName(directory)));
    }
    for (const sdk::FileEntry& entry : manifest.files) {
      const std::wstring key = FoldCase(entry.name);
      files.emplace(key, WithSlashes(entry.name));
      for (auto end = key.find(L'/'); end != std::wstring::npos; end = key.find(L'/', end + 1)) {
        directories.insert(key.substr(0, end));
      }
    }
    file::WalkDirectory(tree_.Folder(), [&](const file::DirectoryEntry& entry) {
      const std::wstring name = WithSlashes(entry.path.substr(tree_.Folder().size() + 1));
      const std::wstring key = FoldCase(name);
      if (entry.IsDirectory() && directories.contains(key)) return file::WalkAction::kRecurse;
      const auto listed = files.find(key);
      if (entry.IsDirectory() || listed == files.end()) {
        AddError(name, "is not listed", "Players do not get it. Remove it, or publish again.");
      } else if (listed->second != name) {
        AddError(name, Format("is listed as {}", ToUtf8(listed->second)),
                 "Servers that distinguish case do not find it. Spell both alike.");
      }
      return file::WalkAction::kSkip;
    });
  }

  std::optional<std::uint32_t> CheckUpdaterManifest(FileContent content) {
    const auto offered =
        Accept(kUpdaterManifestName, content, sdk::kUpdaterManifestDownloadFailed, kNoSelfUpdate,
               [&] { return sdk::ReadUpdaterManifest(content.body, 0); });
    if (offered) {
      report_["launcher"]["version"] = *offered;
      console_.Print(Format("  Launcher {}", *offered));
    }
    return offered;
  }

  void CheckSettings() {
    const std::string location = tree_.LocationOf(kUpdaterSettingsName);
    const FileContent content = tree_.Read(kUpdaterSettingsName, Keep::kBody);
    const auto settings = Accept(kUpdaterSettingsName, content, sdk::kSettingsDownloadFailed,
                                 "Launchers of the offered version update nothing, on every start.",
                                 [&] { return sdk::ReadUpdaterSettings(content.body); });
    if (!settings) return;
    CheckRecordSize(content.body,
                    SettingsArchive(settings->url, settings->channel, ModeOf(content.body)),
                    location, diagnostics_);
    const std::string url = ToUtf8(settings->url);
    const std::string channel = ToUtf8(settings->channel);
    WarnOfBaseUrl(url, location, diagnostics_);
    report_["launcher"]["url"] = url;
    report_["launcher"]["channel"] = channel;
    console_.Print(Format("  settings: URL {}, channel {}", url, channel));
    if (settings->channel != channel_) {
      diagnostics_.AddWarning(location, Format("names the channel {}", channel),
                              "It moves the players of this channel there.");
    }
    if (tree_.IsServed() && url != options_.configuredUrl) {
      diagnostics_.AddWarning(location, Format("names the URL {}", url),
                              "It moves the players of this URL there.");
    }
  }

  void CheckExecutable(std::optional<std::uint32_t> offered) {
    const std::wstring name = InUpdaterFolder(launcher_);
    report_["launcher"]["executable"] = ToUtf8(launcher_);
    const FileContent content = tree_.Read(name, Keep::kBody);
    const std::string failure = Format(sdk::kExecutableDownloadFailed, ToUtf8(launcher_), "{}");
    if (!Accept(name, content, failure, kNoSelfUpdate, [] { return true; })) return;
    if (record_) Compare(name, content, {record_->md5, record_->size, {}}, "what was published");
    if (options_.executable) Compare(name, content, *options_.executable, "the file of --exe");
    const TemporaryFile copy(content.body);
    const std::optional<ProgramVersion> version = ReadProgramVersion(copy.Path());
    if (!version) {
      AddError(name, "has no version resource",
               "It is not a Launcher, or it is damaged. Publish the Launcher again.");
    } else if (offered && version->number != *offered) {
      AddError(name,
               Format("is version {}, but updater.manifest offers {}", version->number, *offered),
               version->number < *offered ? "Launchers would replace themselves on every start."
                                          : "Launchers of the offered version never fetch it.");
    }
  }

  void Compare(const std::wstring& name, const FileContent& content, const FileDigest& expected,
               std::string_view what) {
    if (content.size == expected.size && content.md5 == expected.md5) return;
    AddError(name,
             Format("is not {}: its digest is {} instead of {}", what, content.md5, expected.md5),
             "Launchers would replace themselves with it. Publish the Launcher again.");
  }

  const ChannelOptions& options_;
  std::wstring channel_;
  PublishedTree tree_;
  Console& console_;
  Diagnostics& diagnostics_;
  std::optional<LauncherRecord> record_;
  std::wstring launcher_;
  Json report_;
};

}  // namespace

std::optional<std::string> CheckChannel(const ChannelOptions& options, std::wstring_view channel,
                                        Console& console, Diagnostics& diagnostics) {
  return ChannelCheck(options, channel, console, diagnostics).Run();
}

}  // namespace ve::publish
