#include "publisher/preview/preview.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "core/working_directory.h"
#include "publisher/channel/executable.h"
#include "publisher/commands/command.h"
#include "publisher/files/paths.h"
#include "publisher/report/version_text.h"
#include "updater/build_config.h"
#include "updater/self_update.h"

namespace ve::publish {
namespace {

struct Options {
  std::string installed;
  std::string launcher = "Launcher.exe";
  TreeOptions tree;
  bool fetch = false;
};

// --- What is given ---

/// The version that the installed Launcher takes itself for, which only its resource tells.
std::uint32_t InstalledLauncherVersion(const std::wstring& path, Diagnostics& diagnostics) {
  if (const std::optional<std::uint32_t> version = ExecutableVersion(path)) return *version;
  diagnostics.AddWarning(DisplayPath(path), "it has no version resource",
                         Format("It was taken for version {}, as which this tool was built.",
                                sdk::kBuildConfig.version));
  return sdk::kBuildConfig.version;
}

void CheckInput(const Options& options, const std::wstring& installed, Diagnostics& diagnostics) {
  if (!file::Exists(installed)) {
    diagnostics.AddError(DisplayPath(installed), "there is no such folder",
                         "Name the game's root, which holds the Launcher, with --installed.");
  } else if (!file::Exists(JoinPath(installed, ToWide(options.launcher)))) {
    diagnostics.AddError(DisplayPath(JoinPath(installed, ToWide(options.launcher))),
                         "there is no such Launcher", "Name it as it is started with --launcher.");
  }
  if (options.tree.url.empty() && !file::Exists(ExtendedLengthPath(options.tree.server))) {
    diagnostics.AddError(DisplayPath(ExtendedLengthPath(options.tree.server)),
                         "there is no such folder",
                         "Name the folder that is served with --server.");
  }
}

// --- The report in words ---

std::string VersionWords(const std::optional<sdk::VersionNumber>& version) {
  return version ? VersionText(*version) : "none";
}

void PrintAll(Console& console, std::string_view what, const std::vector<std::wstring>& names) {
  for (const std::wstring& name : names) console.Print(Format("    {} {}", what, ToUtf8(name)));
}

void PrintSelfUpdate(const PreviewPlan& plan, std::uint32_t ownVersion, Console& console) {
  if (plan.staleExecutableRemoved) {
    console.Print(Format("  removes {}", ToUtf8(sdk::kParkedExecutable)));
  }
  const std::uint32_t offered = plan.offeredLauncher.value_or(ownVersion);
  switch (plan.selfUpdate) {
    case SelfUpdate::kNotReached:
      return;
    case SelfUpdate::kCurrent:
      return console.Print(Format("Launcher: version {} is what the server offers", ownVersion));
    case SelfUpdate::kReplaced:
      return console.Print(
          Format("Launcher: version {} is replaced by {} and started anew; the game "
                 "is looked at after that (preview again with the new one)",
                 ownVersion, offered));
    case SelfUpdate::kSettingsReplaced:
      return console.Print(
          Format("Launcher: version {} takes other settings and starts anew; the "
                 "game is looked at after that",
                 ownVersion));
    case SelfUpdate::kFailed:
      return console.Print(
          Format("Launcher: version {} fails to update itself and goes on (see the "
                 "log)",
                 ownVersion));
  }
}

void PrintFiles(const PreviewPlan& plan, Console& console) {
  std::uint64_t bytes = 0;
  for (const Fetched& file : plan.downloaded) bytes += file.size;
  console.Print(Format("  files: {} current, {} staged by an earlier run, {} to download ({})",
                       plan.current.size(), plan.reused.size(), plan.downloaded.size(),
                       FormatByteSize(bytes)));
  PrintAll(console, "reuses", plan.reused);
  for (const Fetched& file : plan.downloaded) {
    console.Print(Format("    downloads {} ({})", ToUtf8(file.name), FormatByteSize(file.size)));
  }
  PrintAll(console, "makes the directory", plan.directories);
  console.Print(Format("  installs {} files", plan.copied.size()));
  console.Print(Format(
      "  clean-up{}: {} entries",
      sdk::kBuildConfig.keepsNonEmptyDirectories ? ", which keeps non-empty directories" : "",
      plan.removed.size()));
  PrintAll(console, "removes", plan.removed);
}

void PrintGameUpdate(const PreviewPlan& plan, Console& console) {
  switch (plan.gameUpdate) {
    case GameUpdate::kNotReached:
      return;
    case GameUpdate::kNotOffered:
      return console.Print(Format("Game: no update; installed is {}, the server has {}",
                                  VersionWords(plan.installedVersion),
                                  VersionWords(plan.offeredVersion)));
    case GameUpdate::kCheckFailed:
      return console.Print("Game: whether there is an update cannot be told (see the log)");
    default:
      break;
  }
  console.Print(Format("Game: the update from {} to {} is offered; if the player wants it:",
                       VersionWords(plan.installedVersion), VersionWords(plan.offeredVersion)));
  PrintAll(console, "makes the directory", plan.stagingDirectories);
  if (plan.gameUpdate == GameUpdate::kUpdateRefused) {
    return console.Print("  it fails before the first file (see the log)");
  }
  PrintFiles(plan, console);
  if (plan.gameUpdate == GameUpdate::kEnded) {
    return console.Print(Format("  THE RUN STOPS {}", plan.stop));
  }
  console.Print(plan.stagingRemoved ? "  removes the staging folder"
                                    : "  cannot remove all of the staging folder and leaves it");
  console.Print("  records the new version");
}

void PrintEnd(const PreviewPlan& plan, Console& console) {
  for (const std::string& dialog : plan.dialogs) {
    console.Print(Format("Dialog: {}", dialog));
  }
  for (const std::string& entry : plan.log) console.Print(Format("Log: {}", entry));
  if (!plan.stop.empty()) {
    console.Print(
        Format("Abnormal end: no word to the player, no log entry; exit code {}", plan.exitCode));
  }
  if (Restarts(plan.selfUpdate)) return console.Print("The Launcher is started anew");
  console.Print(plan.gameStarted ? "The game is started" : "The game is not started");
}

void PrintPlan(const PreviewPlan& plan, std::uint32_t ownVersion, Console& console) {
  if (plan.url.empty()) {
    console.Print("Settings: refused (see the log)");
  } else {
    console.Print(
        Format("Settings: {}, channel {}; asks {}", plan.url, plan.channel, plan.updatesUrl));
  }
  PrintSelfUpdate(plan, ownVersion, console);
  PrintGameUpdate(plan, console);
  PrintEnd(plan, console);
}

// --- The report as JSON ---

const char* Name(SelfUpdate outcome) {
  switch (outcome) {
    case SelfUpdate::kNotReached:
      return "not reached";
    case SelfUpdate::kCurrent:
      return "current";
    case SelfUpdate::kReplaced:
      return "replaced";
    case SelfUpdate::kSettingsReplaced:
      return "settings replaced";
    case SelfUpdate::kFailed:
      break;
  }
  return "failed";
}

const char* Name(GameUpdate outcome) {
  switch (outcome) {
    case GameUpdate::kNotReached:
      return "not reached";
    case GameUpdate::kNotOffered:
      return "not offered";
    case GameUpdate::kCheckFailed:
      return "check failed";
    case GameUpdate::kUpdateRefused:
      return "refused";
    case GameUpdate::kEnded:
      return "abnormal end";
    case GameUpdate::kUpdated:
      break;
  }
  return "done";
}

Json List(const std::vector<std::wstring>& names) {
  Json list = Json::array();
  for (const std::wstring& name : names) list.push_back(ToUtf8(name));
  return list;
}

Json AsJson(const std::optional<sdk::VersionNumber>& version) {
  return version ? Json(VersionText(*version)) : Json();
}

Json AsJson(const std::vector<Fetched>& files) {
  Json list = Json::array();
  for (const Fetched& file : files) {
    list.push_back({{"name", ToUtf8(file.name)}, {"size", file.size}});
  }
  return list;
}

Json AsJson(const PreviewPlan& plan, std::uint32_t ownVersion) {
  const Json offeredLauncher = plan.offeredLauncher ? Json(*plan.offeredLauncher) : Json();
  return {
      {"settings", {{"url", plan.url}, {"channel", plan.channel}}},
      {"updatesUrl", plan.updatesUrl},
      {"requests", plan.requests},
      {"launcher",
       {{"outcome", Name(plan.selfUpdate)},
        {"ownVersion", ownVersion},
        {"offeredVersion", offeredLauncher},
        {"staleExecutableRemoved", plan.staleExecutableRemoved}}},
      {"game",
       {{"outcome", Name(plan.gameUpdate)},
        {"installedVersion", AsJson(plan.installedVersion)},
        {"offeredVersion", AsJson(plan.offeredVersion)},
        {"stagingDirectories", List(plan.stagingDirectories)},
        {"current", List(plan.current)},
        {"reused", List(plan.reused)},
        {"downloaded", AsJson(plan.downloaded)},
        {"directories", List(plan.directories)},
        {"copied", List(plan.copied)},
        {"keepsNonEmptyDirectories", sdk::kBuildConfig.keepsNonEmptyDirectories},
        {"removed", List(plan.removed)},
        {"stagingRemoved", plan.stagingRemoved},
        {"versionWritten", plan.versionWritten},
        {"stop", plan.stop}}},
      {"dialogs", plan.dialogs},
      {"log", plan.log},
      {"launcherExitCode", plan.exitCode},
      {"gameStarted", plan.gameStarted},
      {"changes",
       {{"created", List(plan.changes.created)},
        {"written", List(plan.changes.written)},
        {"removed", List(plan.changes.removed)}}},
  };
}

// --- The command ---

void WarnOfTheOutcome(const Options& options, const PreviewPlan& plan, Diagnostics& diagnostics) {
  if (!plan.stop.empty()) {
    diagnostics.AddWarning("the run", "it would end abnormally " + plan.stop,
                           "The same update is offered again by the next run.");
  }
  if (!options.tree.url.empty() && !options.fetch && !plan.downloaded.empty()) {
    diagnostics.AddWarning(
        options.tree.url, "it was not checked that the game's files can be had",
        "Add --fetch to download them, or name the served folder with --server.");
  }
}

void Run(const Options& options, Console& console, Diagnostics& diagnostics) {
  const std::wstring installed = ExtendedLengthPath(options.installed);
  CheckInput(options, installed, diagnostics);
  WarnOfPlainHttp(options.tree.url, "--url", diagnostics);
  if (diagnostics.HasErrors()) return;

  PreviewOptions preview;
  preview.tree = options.tree;
  // The current directory is about to change.
  if (options.tree.url.empty())
    preview.tree.server = DisplayPath(ExtendedLengthPath(options.tree.server));
  preview.fetch = options.fetch;
  preview.launcher = ToWide(options.launcher);
  preview.ownVersion = InstalledLauncherVersion(JoinPath(installed, preview.launcher), diagnostics);
  // The Launcher's decisions look at the current directory.
  if (!SetWorkingDirectory(ToWide(DisplayPath(installed)), true)) {
    diagnostics.AddError(DisplayPath(installed), "the folder cannot be entered", "");
    return;
  }
  const PreviewPlan plan =
      PlanUpdate(preview, diagnostics,
                 [&console](std::uint64_t filesDone, std::uint64_t files, std::uint64_t bytesDone,
                            std::uint64_t bytes) {
                   console.ShowProgress({"Reading", filesDone, files, bytesDone, bytes});
                 });
  console.EndProgress();
  WarnOfTheOutcome(options, plan, diagnostics);
  PrintPlan(plan, preview.ownVersion, console);
  console.Report().update(AsJson(plan, preview.ownVersion));
}

}  // namespace

void AddPreviewCommand(CLI::App& program, Command& chosen) {
  const auto options = std::make_shared<Options>();
  CLI::App* command = AddCommand(program, chosen, "preview",
                                 "Tell what one run of the Launcher would do to an installation.",
                                 "--installed C:\\Games\\Velmorant --server D:\\server",
                                 [options](Console& console, Diagnostics& diagnostics) {
                                   Run(*options, console, diagnostics);
                                 });
  command
      ->add_option("--installed", options->installed,
                   "The game's root, which holds the Launcher. It is only read.")
      ->required();
  CLI::Option_group* tree = command->add_option_group("server", "Where the update is");
  AddServer(*tree, options->tree.server);
  tree->add_option("--url", options->tree.url, "The server's base URL, with its last slash.");
  tree->require_option(1);
  command
      ->add_option("--launcher", options->launcher,
                   "The Launcher as it is started, below the game's root; case counts.")
      ->capture_default_str();
  command->add_flag("--fetch", options->fetch,
                    "With --url: download the game's files too, to see whether they can be had.");
}

}  // namespace ve::publish
