#include "publisher/preview/preview.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <memory>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "archive/updater_settings.h"
#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "core/log.h"
#include "core/unicode.h"
#include "launcher/updater_driver.h"
#include "publisher/channel/manifest_check.h"
#include "publisher/files/server_layout.h"
#include "publisher/preview/preview_server.h"
#include "updater/cleanup_rules.h"
#include "updater/failure_log.h"
#include "updater/game_apply.h"
#include "updater/game_download.h"
#include "updater/game_manifest.h"
#include "updater/game_update.h"
#include "updater/self_update.h"

namespace ve::publish {
namespace {

// What abort() ends a program with in the C runtime that the Launcher is built with.
constexpr int kAbnormalEnd = 3;

/// A content that no listed file has: the log, the settings.
bool MatchesNothing(std::uint64_t, std::string_view) { return false; }

std::wstring_view NamePart(std::wstring_view path) {
  return path.substr(path.find_last_of(L"\\/") + 1);
}

class SimulatedRun {
 public:
  SimulatedRun(const PreviewOptions& options, Diagnostics& diagnostics,
               const PreviewProgress& progress)
      : options_(options),
        diagnostics_(diagnostics),
        progress_(progress),
        executable_(NamePart(options.launcher)),
        disk_(options.launcher),
        download_([this](std::wstring_view url) { return server_->Fetch(url); }) {}

  PreviewPlan Tell() {
    for (const std::wstring& link : disk_.Links()) {
      diagnostics_.AddWarning(ToUtf8(link),
                              "a link to a directory: what lies behind it was not looked at",
                              "Preview an installation without links.");
    }
    if (RunsOnToTheGame()) StartGame();
    if (server_) plan_.requests = server_->TakeRequests();
    plan_.changes = disk_.Changes();
    return std::move(plan_);
  }

 private:
  /// False if the run ends before the game is started.
  bool RunsOnToTheGame() {
    if (!ReadSettings()) return true;
    if (RestartsItself()) return false;
    return UpdatesGame();
  }

  bool ReadSettings() {
    try {
      settings_ = file::LoadFile(sdk::kSettingsFile);
      const sdk::UpdaterSettings settings = sdk::ReadUpdaterSettings(settings_);
      plan_.url = ToUtf8(settings.url);
      plan_.channel = ToUtf8(settings.channel);
      server_ = std::make_unique<PreviewServer>(options_.tree, options_.fetch, settings.url,
                                                settings.channel, diagnostics_);
      plan_.updatesUrl = ToUtf8(server_->UpdatesUrl());
      return true;
    } catch (const std::exception& error) {
      Log(kSettingsLogPrefix, error.what());
      return false;
    }
  }

  // --- The Launcher's own update ---

  bool RestartsItself() {
    RemoveStaleExecutable();
    const std::wstring updaterUrl = sdk::UpdaterUrl(server_->UpdatesUrl());
    try {
      plan_.selfUpdate = UpdateSelf(updaterUrl);
    } catch (const std::exception& error) {
      plan_.selfUpdate = SelfUpdate::kFailed;
      Log(sdk::SelfUpdateLogPrefix(updaterUrl), error.what());
    }
    if (!Restarts(plan_.selfUpdate)) return false;
    Show(sdk::kRestartCaption);
    return true;
  }

  void RemoveStaleExecutable() {
    try {
      disk_.Remove(sdk::kParkedExecutable);
    } catch (const std::exception&) {
      // It stays, as it does for the Launcher.
    }
    plan_.staleExecutableRemoved = !disk_.TakeRemoved().empty();
  }

  SelfUpdate UpdateSelf(std::wstring_view updaterUrl) {
    const std::uint32_t offered =
        sdk::FetchOfferedLauncher(updaterUrl, options_.ownVersion, download_);
    plan_.offeredLauncher = offered;
    if (offered > options_.ownVersion) {
      ReplaceExecutable(updaterUrl);
      return SelfUpdate::kReplaced;
    }
    if (sdk::FetchSettings(updaterUrl, download_) == settings_) return SelfUpdate::kCurrent;
    disk_.SaveFile(sdk::kSettingsFile, MatchesNothing);
    return SelfUpdate::kSettingsReplaced;
  }

  void ReplaceExecutable(std::wstring_view updaterUrl) {
    static_cast<void>(sdk::FetchNewBuild(updaterUrl, executable_, download_));
    try {
      disk_.Rename(executable_, sdk::kParkedExecutable);
      disk_.SaveFile(executable_, MatchesNothing);
    } catch (...) {
      Show(sdk::kSelfUpdateFailedCaption);
      // The rollback, whose own failure takes the place of the first one.
      if (disk_.Exists(sdk::kParkedExecutable)) {
        disk_.Rename(sdk::kParkedExecutable, executable_);
      }
      throw;
    }
  }

  // --- The game's update ---

  /// False if the program ends abnormally.
  bool UpdatesGame() {
    try {
      UpdateGame();
    } catch (const std::exception& error) {
      plan_.gameUpdate = plan_.gameUpdate == GameUpdate::kNotReached ? GameUpdate::kCheckFailed
                                                                     : GameUpdate::kUpdateRefused;
      Log(sdk::GameUpdateLogPrefix(server_->UpdatesUrl()), error.what());
    }
    return plan_.gameUpdate != GameUpdate::kEnded;
  }

  void UpdateGame() {
    plan_.installedVersion = sdk::ReadInstalledVersion();
    if (!Offers()) {
      plan_.gameUpdate = GameUpdate::kNotOffered;
      return;
    }
    Show(sdk::kUpdateAvailableCaption);
    plan_.gameUpdate = GameUpdate::kUpdateRefused;  // Until it has got further.
    std::string manifestText;
    sdk::GameUpdateManifest manifest;
    try {
      const std::wstring& updatesUrl = server_->UpdatesUrl();
      if (!pendingVersion_) NoteOfferedVersion(sdk::FetchVersionFile(updatesUrl, download_));
      manifestText = sdk::FetchGameManifest(updatesUrl, download_);
      manifest = sdk::ReadGameUpdateManifest(manifestText);
      WarnOfNames(manifest);
      MakeStagingFolders(manifest);
    } catch (...) {
      Show(sdk::kUpdateFailedCaption);
      throw;
    }
    plan_.gameUpdate = AppliesUpdate(manifest) ? GameUpdate::kUpdated : GameUpdate::kEnded;
  }

  /// A run with such a name may go otherwise: it depends on the server what comes for it.
  void WarnOfNames(const sdk::GameUpdateManifest& manifest) {
    Diagnostics found;
    CheckListedNames(manifest, ToUtf8(kManifestName), executable_, found);
    for (std::vector<Diagnostic>* list : {&found.errors, &found.warnings}) {
      std::move(list->begin(), list->end(), std::back_inserter(diagnostics_.warnings));
    }
  }

  bool Offers() {
    return sdk::CheckGameVersion(sdk::VersionUrl(server_->UpdatesUrl()), pendingVersion_,
                                 [this](std::wstring_view url) {
                                   DownloadResult result = server_->Fetch(url);
                                   if (result.Succeeded()) NoteOfferedVersion(result.Body());
                                   return result;
                                 });
  }

  /// For the report only: where no version is installed, the Launcher does not read what it gets.
  void NoteOfferedVersion(std::string_view bytes) {
    try {
      plan_.offeredVersion = sdk::ReadOfferedVersion(bytes);
    } catch (const std::exception& error) {
      diagnostics_.AddWarning("GameVersion.vpak", error.what(), "Publish the game again.");
    }
  }

  void MakeStagingFolders(const sdk::GameUpdateManifest& manifest) {
    try {
      disk_.EnsureDirectories(sdk::kStagingFolder);
      for (const std::string_view directory : manifest.directories) {
        disk_.MakeDirectory(sdk::StagingDirectory(directory));
      }
    } catch (...) {
      plan_.stagingDirectories = disk_.TakeMadeDirectories();
      throw;
    }
    plan_.stagingDirectories = disk_.TakeMadeDirectories();
  }

  /// False if the program ends abnormally. From here on nothing is logged or shown then.
  bool AppliesUpdate(const sdk::GameUpdateManifest& manifest) {
    std::string stage;
    try {
      stage = "while the files are fetched";
      const sdk::StagedUpdate staged = StageFiles(manifest);
      stage = "while directories are made";
      for (const std::string_view directory : manifest.directories) {
        disk_.EnsureDirectories(sdk::WidenName(directory));
      }
      stage = "while files are copied";
      for (const sdk::StagedFile& copy : staged.copies) {
        disk_.CopyFileOverwrite(copy.stagingPath, copy.name);
        plan_.copied.emplace_back(copy.name);
      }
      stage = "in the clean-up";
      CleanUp(staged.names);
      NoteEffects();
      stage = "when the version is written";
      RemoveStagingFolder();
      disk_.SaveFile(sdk::kGameVersionFile, MatchesNothing);
    } catch (const std::exception& error) {
      plan_.stop = Format("{}: {}", stage, error.what());
      plan_.exitCode = kAbnormalEnd;
    }
    NoteEffects();
    if (!plan_.stop.empty()) return false;
    plan_.versionWritten = true;
    Show(sdk::kUpdateSuccessfulCaption);
    return true;
  }

  sdk::StagedUpdate StageFiles(const sdk::GameUpdateManifest& manifest) {
    sdk::StagedUpdate staged;
    std::uint64_t bytes = 0;
    for (const sdk::FileEntry& entry : manifest.files) bytes += entry.size;
    std::uint64_t bytesDone = 0;
    for (const sdk::FileEntry& entry : manifest.files) {
      progress_(staged.names.size(), manifest.files.size(), bytesDone, bytes);
      std::wstring stagingPath = sdk::StagingPath(entry.name);
      const sdk::FileSource source = Source(entry, stagingPath);
      if (source == sdk::FileSource::kServer) FetchFile(entry, stagingPath);
      if (source == sdk::FileSource::kInstalled) {
        plan_.current.emplace_back(entry.name);
      } else {
        staged.copies.push_back({entry.name, std::move(stagingPath)});
      }
      if (source == sdk::FileSource::kStaged) plan_.reused.emplace_back(entry.name);
      staged.names.insert(entry.name);
      bytesDone += entry.size;
    }
    return staged;
  }

  [[nodiscard]] sdk::FileSource Source(const sdk::FileEntry& entry,
                                       std::wstring_view stagingPath) const {
    return sdk::FindSource(
        entry, stagingPath,
        [this](std::wstring_view path, std::uint64_t size, std::string_view digest) {
          return disk_.Matches(path, size, digest);
        });
  }

  void FetchFile(const sdk::FileEntry& entry, std::wstring_view stagingPath) {
    const std::wstring url = Format(L"{}{}", server_->UpdatesUrl(), entry.name);
    Payload payload = server_->FetchPayload(url, entry);
    static_cast<void>(
        sdk::DownloadGameFile(url, [&payload](std::wstring_view) { return payload.result; }));
    if (payload.size != entry.size) {
      diagnostics_.AddWarning(
          ToUtf8(entry.name), "the server's file has another size than the listed one",
          "Players would get it, and get it again with each update: publish again.");
    }
    plan_.downloaded.push_back({entry.name, payload.size});
    disk_.SaveFile(stagingPath, std::move(payload.content));
  }

  void CleanUp(const std::unordered_set<std::wstring_view>& listedNames) {
    const sdk::CleanupRules rules(listedNames, executable_);
    constexpr std::wstring_view kRoot = L".";
    disk_.WalkDirectory(kRoot, [&](const file::DirectoryEntry& entry) {
      return sdk::CleanUpEntry(rules, entry, entry.path.substr(kRoot.size() + 1),
                               [this](std::wstring_view path) { return disk_.TryRemove(path); });
    });
  }

  /// The directories made and the entries removed until now.
  void NoteEffects() {
    for (std::wstring& made : disk_.TakeMadeDirectories()) {
      plan_.directories.push_back(std::move(made));
    }
    for (std::wstring& removed : disk_.TakeRemoved()) {
      plan_.removed.push_back(std::move(removed));
    }
  }

  void RemoveStagingFolder() {
    try {
      disk_.RemoveTree(sdk::kStagingFolder);
    } catch (const std::exception&) {
      // What is left over stays, as it does for the Launcher.
    }
    static_cast<void>(disk_.TakeRemoved());
    plan_.stagingRemoved = !disk_.Exists(sdk::kStagingFolder);
  }

  // --- Everywhere ---

  void Show(const wchar_t* caption) { plan_.dialogs.push_back(ToUtf8(caption)); }

  void Log(std::string_view stage, std::string_view message) {
    try {
      if (!disk_.Exists(kLogFolder)) disk_.MakeDirectory(kLogFolder);
      // In place of the folder a file may stand; the log goes into the root then.
      const std::wstring path = disk_.IsDirectory(kLogFolder)
                                    ? Format(L"{}\\{}", kLogFolder, kLogName)
                                    : std::wstring(kLogName);
      disk_.SaveFile(path, MatchesNothing);
      plan_.log.push_back(sdk::UpdaterFailureText(stage, message));
    } catch (const std::exception&) {
      // A log that cannot be written is nobody's failure.
    }
    static_cast<void>(disk_.TakeMadeDirectories());
  }

  void StartGame() {
    plan_.gameStarted = disk_.Exists(kGameProgram) && !disk_.IsDirectory(kGameProgram);
    if (!plan_.gameStarted || !disk_.IsAsOnDisk(kGameProgram)) return;
    DWORD kind = 0;
    plan_.gameStarted = GetBinaryTypeW(std::wstring(kGameProgram).c_str(), &kind) != FALSE;
  }

  const PreviewOptions& options_;
  Diagnostics& diagnostics_;
  const PreviewProgress& progress_;
  std::wstring executable_;
  ImaginedDisk disk_;
  Downloader download_;
  std::unique_ptr<PreviewServer> server_;
  std::string settings_;
  std::optional<std::string> pendingVersion_;
  PreviewPlan plan_;
};

}  // namespace

PreviewPlan PlanUpdate(const PreviewOptions& options, Diagnostics& diagnostics,
                       const PreviewProgress& progress) {
  return SimulatedRun(options, diagnostics, progress).Tell();
}

}  // namespace ve::publish
