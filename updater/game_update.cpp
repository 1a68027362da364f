#include "updater/game_update.h"

#include "core/windows.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "core/errors.h"
#include "core/format.h"
#include "core/scope_fail.h"
#include "core/unicode.h"
#include "ui/progress_window.h"
#include "updater/download_messages.h"
#include "updater/failure_log.h"
#include "updater/game_apply.h"
#include "updater/game_download.h"
#include "updater/game_manifest.h"
#include "updater/game_version.h"

namespace ve::sdk {
namespace {

constexpr const wchar_t* kUpdateFailedCaption = L"Update failed.";

bool PlayerWantsUpdate() {
  return MessageBoxW(nullptr,
                     L"There is an update available for this game. Do you want to download and "
                     L"install it? (this might take a while)",
                     L"Update available", MB_OKCANCEL | MB_ICONQUESTION) != IDCANCEL;
}

/// Shows that the update failed. Returns whether the game must not be started.
bool ShowUpdateFailure(bool applying) {
  if (applying) {
    // Never shown: while files are applied, a failure ends the process before the guard acts.
    MessageBoxW(nullptr,
                L"Critical error while applying games update. Game might be corrupted. Try to "
                L"update again; or start game directly inside 'bin/' folder. If problems persist, "
                L"try to download the whole game again or contact the dev.",
                kUpdateFailedCaption, MB_OK | MB_ICONERROR);
    return true;
  }
  return MessageBoxW(
             nullptr,
             L"There was an error trying to update game. Make sure there is no problem with "
             L"your internet, then try again at a later time. Start game with its previous "
             L"version?",
             kUpdateFailedCaption, MB_OKCANCEL | MB_ICONERROR) == IDCANCEL;
}

void ShowSuccess() {
  MessageBoxW(nullptr, L"Sucessfully installed game update. Start the game by pressing OK.",
              L"Update successfull.", MB_OK | MB_ICONINFORMATION);
}

void UpdateGame(std::wstring_view updatesUrl, bool& exitRequested) {
  std::optional<std::string> pendingVersion;
  const std::wstring versionUrl = Format(L"{}GameVersion.vpak", updatesUrl);
  if (!CheckGameVersion(versionUrl, pendingVersion)) return;
  if (!PlayerWantsUpdate()) return;

  bool applying = false;
  const ScopeFail failureGuard(
      [&applying, &exitRequested] { exitRequested = ShowUpdateFailure(applying); });

  if (!pendingVersion) {
    // Not checked: `ApplyUpdate` writes it as it is.
    pendingVersion = DownloadOrThrow(versionUrl, kPendingVersionDownloadFailed);
  }
  std::string manifestText =
      DownloadOrThrow(Format(L"{}game_update.manifest", updatesUrl), kManifestDownloadFailed);
  const GameUpdateManifest manifest = ReadGameUpdateManifest(manifestText);
  MakeStagingFolders(manifest);

  StagedUpdate staged;
  staged.names.reserve(manifest.files.size());
  std::atomic<std::uint32_t> processed = 0;
  std::atomic<bool> finished = false;

  // From here on a failure ends the process: an exception that unwinds this function destroys the
  // thread before the guard, and destroying a std::thread that is not joined terminates. The next
  // run depends on that: it finds the staged files and the old version, and offers the update
  // again.
  std::thread progress(&ProgressThread<std::vector<FileEntry>>, std::cref(manifest.files),
                       std::cref(finished), std::ref(processed));
  StageFiles(updatesUrl, manifest, staged, processed);
  finished = true;
  applying = true;

  ApplyUpdate(manifest, staged, *pendingVersion);
  ShowSuccess();
  progress.join();
}

}  // namespace

void RunGameUpdate(std::wstring_view updatesUrl) {
  bool exitRequested = false;
  try {
    UpdateGame(updatesUrl, exitRequested);
  } catch (const std::exception& error) {
    LogUpdaterFailure(
        Format("While trying to check for game-updates from URL '{}':\n\n", ToUtf8(updatesUrl)),
        error.what());
    if (exitRequested) std::exit(-1);
  }
}

}  // namespace ve::sdk
