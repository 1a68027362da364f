#include "updater/self_update.h"

#include "core/windows.h"

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string>

#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "core/process.h"
#include "core/scope_fail.h"
#include "core/unicode.h"
#include "core/working_directory.h"
#include "net/download.h"
#include "updater/download_failures.h"
#include "updater/failure_log.h"
#include "updater/own_executable.h"
#include "updater/updater_manifest.h"

namespace ve::sdk {
namespace {

constexpr std::wstring_view kParkedExecutable = L"_old.exe";
constexpr std::wstring_view kSettingsFile = L"Updater\\UpdaterData.vpak";

void DeleteStaleExecutable() {
  try {
    file::Remove(kParkedExecutable);
  } catch (const std::exception&) {
    // It may still be running or locked; the next start tries again.
  }
}

/// Shows the restart message, starts the executable and ends this process, also if it did not
/// start.
[[noreturn]] void Restart(std::wstring_view executable) {
  MessageBoxW(nullptr,
              L"Game-launcher finshed updating itself and needs to restart itself. Press OK to "
              L"continue.",
              L"Restart required.", MB_OK | MB_ICONINFORMATION);
  StartProcess(executable, L"", L"", false);
  std::exit(0);
}

/// Downloads the server's settings archive and, if it is another one, installs it and restarts.
void RefreshSettings(std::wstring_view updaterUrl, std::string_view settings) {
  DownloadResult remote = Download(Format(L"{}UpdaterData.vpak", updaterUrl));
  if (!remote.Succeeded()) {
    ThrowUpdaterException(kSettingsDownloadFailed, remote.Error());
  }
  if (!file::Exists(kSettingsFile)) {
    ThrowUpdaterException(
        "Updater\\UpdaterData.vpak does not exist at path '{}'. Most likely some error in "
        "updater-logic.",
        WorkingDirectory());
  }
  if (remote.Body() == settings) return;
  file::SaveFile(kSettingsFile, remote.Body());
  Restart(OwnExecutableName());
}

void SetSystemAttribute(std::wstring_view path, bool set) {
  const std::wstring name(path);
  const DWORD attributes = GetFileAttributesW(name.c_str());
  SetFileAttributesW(name.c_str(), set ? attributes | FILE_ATTRIBUTE_SYSTEM
                                       : attributes & ~DWORD{FILE_ATTRIBUTE_SYSTEM});
}

void PutParkedExecutableBack(std::wstring_view executable) {
  if (!file::Exists(kParkedExecutable)) return;
  file::Rename(kParkedExecutable, executable);
  SetSystemAttribute(executable, false);
}

/// Downloads the new build, parks the running one as "_old.exe" and restarts.
[[noreturn]] void ReplaceExecutable(std::wstring_view updaterUrl) {
  const std::wstring_view executable = OwnExecutableName();
  DownloadResult newBuild = Download(Format(L"{}{}", updaterUrl, executable));
  if (!newBuild.Succeeded()) {
    ThrowUpdaterException(kExecutableDownloadFailed, executable, newBuild.Error());
  }
  try {
    file::Rename(executable, kParkedExecutable);  // Windows lets a running executable be renamed.
    file::SaveFile(executable, newBuild.Body());
    SetSystemAttribute(kParkedExecutable, true);
    Restart(executable);
  } catch (...) {
    // Fires while an exception leaves this handler, be it the one caught or one of the rollback.
    const ScopeFail showDialog([] {
      MessageBoxW(nullptr,
                  L"Critical error while downloading new version of game launcher. Please try "
                  L"starting game manually in 'bin/' folder, or downloading the game again if that "
                  L"fails. Also contact the dev to let him know whats going on",
                  L"Error while loading new version of updater", MB_OK | MB_ICONERROR);
    });
    PutParkedExecutableBack(executable);
    throw;
  }
}

void UpdateSelf(std::wstring_view updaterUrl, std::string_view settings) {
  DownloadResult manifest = Download(Format(L"{}updater.manifest", updaterUrl));
  if (!manifest.Succeeded()) {
    ThrowUpdaterException(kUpdaterManifestDownloadFailed, manifest.Error());
  }
  const std::uint32_t offered = ReadUpdaterManifest(manifest.Body());
  if (offered > kOwnUpdaterVersion) ReplaceExecutable(updaterUrl);
  RefreshSettings(updaterUrl, settings);
}

}  // namespace

void RunSelfUpdate(std::wstring_view updatesUrl, std::string_view settings) {
  DeleteStaleExecutable();
  const std::wstring updaterUrl = Format(L"{}updater/", updatesUrl);
  try {
    UpdateSelf(updaterUrl, settings);
  } catch (const std::exception& error) {
    LogUpdaterFailure(
        Format("While trying to check for self-update from URL '{}':\n\n", ToUtf8(updaterUrl)),
        error.what());
  }
}

}  // namespace ve::sdk
