#include "publisher/preview/preview.h"

#include "core/windows.h"

#include <cstdint>
#include <exception>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "archive/updater_settings.h"
#include "core/file_matches_entry.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "launcher/updater_driver.h"
#include "publisher/build/name_rules.h"
#include "publisher/channel/launcher_executable.h"
#include "publisher/channel/published_tree.h"
#include "publisher/channel/versions.h"
#include "publisher/files/paths.h"
#include "publisher/files/server_layout.h"
#include "publisher/files/windows_errors.h"
#include "publisher/preview/planned_folder.h"
#include "updater/game_download.h"
#include "updater/game_manifest.h"
#include "updater/game_version.h"
#include "updater/self_update.h"
#include "updater/updater_manifest.h"

namespace ve::publish {
namespace {

constexpr const char* kPublish = "Publish it again.";

/// The stages of a run, in their order. A stage throws where the Launcher fails.
class Preview {
 public:
  Preview(const PreviewOptions& options, const TreeOptions& followed, std::uint32_t version,
          Console& console, Diagnostics& found)
      : options_(options),
        followed_(followed),
        ownVersion_(version),
        console_(console),
        diagnostics_(found) {}

  /// Plans the run in the current directory and reports it.
  void Run() {
    Plan();
    console_.EndProgress();
    launcher_["ownVersion"] = ownVersion_;
    game_["removed"] = removed_;
    console_.Report().update(report_);
    PrintForPeople();
  }

 private:
  void PrintForPeople() {
    const auto text = [](const Json& value) {
      return value.is_string() ? value.get<std::string>() : value.is_null() ? "none" : value.dump();
    };
    std::uint64_t bytes = 0;
    for (const Json& file : game_["downloaded"]) bytes += file["size"].get<std::uint64_t>();
    console_.Print(Format("Updates from {}", text(report_["updatesUrl"])));
    console_.Print(Format("Launcher {}: {} (on the server: version {})", ownVersion_,
                          text(launcher_["outcome"]), text(launcher_["offeredVersion"])));
    console_.Print(Format("Game: {} (installed {}, on the server {})", text(game_["outcome"]),
                          text(game_["installedVersion"]), text(game_["offeredVersion"])));
    console_.Print(Format("  {} files current, {} staged, {} to download ({})",
                          game_["current"].size(), game_["staged"].size(),
                          game_["downloaded"].size(), FormatByteSize(bytes)));
    for (const Json& file : game_["downloaded"]) {
      console_.Print(Format("    downloads {} ({})", text(file["name"]),
                            FormatByteSize(file["size"].get<std::uint64_t>())));
    }
    for (const Json& name : game_["removed"]) console_.Print(Format("    removes {}", text(name)));
    console_.Print(report_["gameStarted"] ? "The game is started." : "The game is not started.");
  }

  void Plan() {
    if (Attempt(&Preview::ReadSettings)) {
      if (Attempt(&Preview::UpdateSelf) && launcher_["outcome"] != "current") return;  // Restarts.
      if (!Attempt(&Preview::UpdateGame) && game_["outcome"] == "abnormal end") return;
    }
    report_["gameStarted"] = Attempt(&Preview::StartGame);
  }

  /// Returns whether the stage passes; adds an error, with what it means for the run, if not.
  bool Attempt(void (Preview::*stage)()) {
    try {
      (this->*stage)();
      return true;
    } catch (const std::exception& error) {
      const auto* const own = dynamic_cast<const PublishError*>(&error);
      Diagnostic found{subject_, error.what(), "Replace this file, or the directory in its place."};
      if (own != nullptr) found = own->GetDiagnostic();
      found.message = Format("{}: {}", consequence_, found.message);
      if (game_["outcome"] == "abnormal end") game_["stop"] = found.subject + ": " + found.message;
      diagnostics_.errors.push_back(std::move(found));
      return false;
    }
  }

  [[nodiscard]] FileContent Fetch(std::wstring_view name, Keep keep = Keep::kBody) {
    subject_ = tree_->LocationOf(name);
    FileContent content = tree_->Read(name, keep);
    if (content.error.empty()) return content;
    throw PublishError({subject_, "cannot be downloaded: " + ToUtf8(content.error), kPublish});
  }

  void ReadSettings() {
    consequence_ = "the Launcher updates nothing";
    subject_ = "Updater/UpdaterData.vpak";
    settingsBytes_ = file::LoadFile(sdk::kSettingsFile);
    const sdk::UpdaterSettings settings = sdk::ReadUpdaterSettings(settingsBytes_);
    report_["settings"] = {{"url", ToUtf8(settings.url)}, {"channel", ToUtf8(settings.channel)}};
    tree_.emplace(followed_, settings.channel);
    const std::wstring channelUrl = Format(L"{}{}/", settings.url, ChannelName(settings.channel));
    report_["updatesUrl"] = ToUtf8(tree_->IsServed() ? tree_->UpdatesUrl() : channelUrl);
    if (tree_->IsServed() && ToWide(options_.tree.url) != settings.url) {
      diagnostics_.AddWarning(subject_, "names another URL than --url: " + ToUtf8(settings.url),
                              "Players update from that URL.");
    }
  }

  void UpdateSelf() {
    consequence_ = "the Launcher does not update itself";
    launcher_["outcome"] = "failed";
    std::string manifest = Fetch(kUpdaterManifestName).body;
    const std::uint32_t offered = sdk::ReadUpdaterManifest(manifest, ownVersion_);
    launcher_["offeredVersion"] = offered;
    if (offered > ownVersion_) {
      static_cast<void>(Fetch(Format(L"{}/{}", kUpdaterFolder, executable_)));
      folder_.Remove(sdk::kParkedExecutable);
      launcher_["outcome"] = "replaced";
    } else if (Fetch(kUpdaterSettingsName).body == settingsBytes_) {
      launcher_["outcome"] = "current";
    } else {
      folder_.WriteFile(sdk::kSettingsFile);
      launcher_["outcome"] = "settings replaced";
    }
  }

  void UpdateGame() {
    consequence_ = "the game starts without an update";
    subject_ = "Updater/GameVersion.vpak";
    game_["outcome"] = "check failed";
    const std::optional<sdk::VersionNumber> installed = sdk::ReadInstalledVersion();
    if (installed) game_["installedVersion"] = VersionText(*installed);
    if (!installed) game_["outcome"] = "refused";
    // Without an installed version the Launcher itself would not read this one until its next run.
    const sdk::VersionNumber offered = sdk::ReadOfferedVersion(Fetch(kVersionName).body);
    game_["offeredVersion"] = VersionText(offered);
    if (installed && *installed >= offered) {
      game_["outcome"] = "not offered";
      return;
    }

    game_["outcome"] = "refused";
    std::string text = Fetch(kManifestName).body;
    const sdk::GameUpdateManifest manifest = sdk::ReadGameUpdateManifest(text);
    folder_.MakeDirectory(sdk::kStagingFolder.substr(0, sdk::kStagingFolder.find(L'\\')));
    folder_.MakeDirectory(sdk::kStagingFolder);
    for (const std::string_view directory : manifest.directories) {
      folder_.MakeDirectory(sdk::StagingDirectory(directory));
    }

    game_["outcome"] = "abnormal end";
    consequence_ = "the run ends abnormally while files are downloaded";
    const sdk::StagedUpdate staged = StageFiles(manifest);
    consequence_ = "the run ends abnormally while files are installed";
    for (const std::string_view directory : manifest.directories) {
      const std::wstring name = sdk::WidenName(directory);
      if (folder_.Find(name) == nullptr) folder_.MakeDirectory(name);  // Also a file is enough.
    }
    for (const sdk::StagedFile& copy : staged.copies) folder_.WriteFile(copy.name);
    consequence_ = "the run ends abnormally in the clean-up";
    folder_.CleanUp(sdk::CleanupRules(staged.names, executable_), removed_);
    consequence_ = "the run ends abnormally when the version is recorded";
    folder_.WriteFile(sdk::kGameVersionFile);
    game_["outcome"] = "done";
  }

  sdk::StagedUpdate StageFiles(const sdk::GameUpdateManifest& manifest) {
    using enum sdk::FileSource;
    sdk::StagedUpdate staged;
    for (const sdk::FileEntry& entry : manifest.files) {
      console_.ShowProgress({"Reading", staged.names.size(), manifest.files.size(), 0, 0});
      subject_ = ToUtf8(entry.name);
      static_cast<void>(folder_.Find(entry.name));  // Throws if it leads out of the folder.
      const std::wstring stagingPath = sdk::StagingPath(entry.name);
      const bool isInstalled = FileMatchesEntry(entry.name, entry.size, entry.digest);
      sdk::FileSource source = sdk::FindSource(isInstalled, entry, stagingPath);
      const auto known = downloaded_.find(FoldCase(entry.name));  // For an earlier entry.
      if (source != kInstalled && known != downloaded_.end()) {
        source = known->second == entry.digest ? kStaged : kServer;
      }
      if (source == kServer) Download(entry, stagingPath);
      if (source == kStaged) game_["staged"].push_back(subject_);
      if (source == kInstalled) game_["current"].push_back(subject_);
      if (source != kInstalled) staged.copies.push_back({entry.name, stagingPath});
      staged.names.insert(entry.name);
    }
    return staged;
  }

  void Download(const sdk::FileEntry& entry, std::wstring_view stagingPath) {
    const FileContent content = Fetch(entry.name, Keep::kDigest);
    if (content.md5 != entry.digest)
      diagnostics_.AddError(subject_, "not the listed file", kPublish);
    downloaded_[FoldCase(entry.name)] = content.md5;
    game_["downloaded"].push_back({{"name", ToUtf8(entry.name)}, {"size", content.size}});
    folder_.WriteFile(stagingPath);
  }

  void StartGame() {
    consequence_ = "the game does not start";
    subject_ = "bin/Velmorant Player.exe";
    const PlannedEntry* const game = folder_.Find(kGameProgram);
    if (game == nullptr) throw PublishError({subject_, "no such file", kPublish});
    DWORD kind = 0;
    if (!game->isOnDisk || GetBinaryTypeW(kGameProgram.data(), &kind) != FALSE) return;
    throw PublishError({subject_, "not a Windows executable", kPublish});
  }

  const PreviewOptions& options_;
  const TreeOptions& followed_;  // Where "redirect.txt" leads.
  const std::uint32_t ownVersion_;
  Console& console_;
  Diagnostics& diagnostics_;
  std::wstring executable_ = std::filesystem::path(ToWide(options_.launcher)).filename();
  PlannedFolder folder_{ToWide(options_.launcher)};
  std::optional<PublishedTree> tree_;
  std::string settingsBytes_;
  std::map<std::wstring, std::string> downloaded_;  // Digests by names in upper case.
  std::vector<std::string> removed_;
  std::string subject_;           // What the current step reads.
  const char* consequence_ = "";  // Of a failure in it.

  Json report_ = Json::parse(R"({
    "settings": {"url": null, "channel": null},
    "updatesUrl": null,
    "launcher": {"outcome": "not reached", "ownVersion": 0, "offeredVersion": null},
    "game": {"outcome": "not reached", "installedVersion": null, "offeredVersion": null,
             "current": [], "staged": [], "downloaded": [], "removed": [], "stop": null},
    "gameStarted": false
  })");
  Json& launcher_ = report_["launcher"];
  Json& game_ = report_["game"];
};

}  // namespace

void PreviewRun(const PreviewOptions& options, Console& console, Diagnostics& diagnostics) {
  TreeOptions tree = options.tree;
  tree.server = DisplayPath(ExtendedLengthPath(tree.server));  // The current directory changes.
  tree = FollowRedirect(tree, diagnostics);
  const std::wstring root = ToWide(DisplayPath(ExtendedLengthPath(options.installed)));
  const std::wstring launcher = JoinPath(root, ToWide(options.launcher));
  const std::optional<ProgramVersion> version = ReadProgramVersion(launcher);
  if (!version) {
    throw PublishError({DisplayPath(launcher), "missing, or without a version resource",
                        "Check --installed, the game's root, and --launcher, the Launcher in it."});
  }
  if (SetCurrentDirectoryW(root.c_str()) == FALSE) ThrowWindowsError("read", root, GetLastError());
  Preview(options, tree, version->number, console, diagnostics).Run();
}

}  // namespace ve::publish
