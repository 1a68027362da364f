#include "updater/self_update.h"

#include "core/windows.h"

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string>

#include "archive/updater_settings.h"
#include "core/errors.h"
#include "core/files.h"
#include "core/format.h"
#include "core/process.h"
#include "core/scope_fail.h"
#include "core/unicode.h"
#include "core/working_directory.h"
#include "updater/build_config.h"
#include "updater/download_messages.h"
#include "updater/failure_log.h"
#include "updater/own_executable.h"
#include "updater/updater_manifest.h"

namespace ve::sdk {
namespace {

void DeleteStaleExecutable() {
  try {
    file::Remove(kParkedExecutable);
  } catch (const std::exception&) {
    // It may be running or locked. The next start tries again.
  }
}

/// Shows the restart message, starts the executable and ends this process, whether it started or
/// not.
[[noreturn]] void Restart(std::wstring_view executable) {
  MessageBoxW(nullptr,
              L"Game-launcher finshed updating itself and needs to restart itself. Press OK to "
              L"continue.",
              L"Restart required.", MB_OK | MB_ICONINFORMATION);
  StartProcess(executable, L"", L"", /*debug=*/false);
  std::exit(0);
}

/// Downloads the server's settings archive and, if it is another one, installs it and restarts.
void RefreshSettings(std::wstring_view updaterUrl, std::string_view settings) {
  const std::string remote =
      DownloadOrThrow(Format(L"{}UpdaterData.vpak", updaterUrl), kSettingsDownloadFailed);
  if (!file::Exists(kSettingsFile)) {
    ThrowUpdaterException(
        "Updater\\UpdaterData.vpak does not exist at path '{}'. Most likely some error in "
        "updater-logic.",
        WorkingDirectory());
  }
  if (remote == settings) return;
  file::SaveFile(kSettingsFile, remote);
  Restart(OwnExecutableName());
}

/// Sets or clears FILE_ATTRIBUTE_SYSTEM, which hides the parked executable from players. Ignores
/// failures.
void SetSystemAttribute(std::wstring_view path, bool set) {
  const std::wstring name(path);
  const DWORD attributes = GetFileAttributesW(name.c_str());
  SetFileAttributesW(name.c_str(), set ? attributes | FILE_ATTRIBUTE_SYSTEM
                                       : attributes & ~DWORD{FILE_ATTRIBUTE_SYSTEM});
}

/// Puts back what is parked, also if an earlier run parked it and it could not be deleted since.
void PutParkedExecutableBack(std::wstring_view executable) {
  if (!file::Exists(kParkedExecutable)) return;
  file::Rename(kParkedExecutable, executable);
  SetSystemAttribute(executable, false);
}

/// Downloads the new build, parks the running one as "_old.exe" and restarts.
[[noreturn]] void ReplaceExecutable(std::wstring_view updaterUrl) {
  const std::wstring_view executable = OwnExecutableName();
  const std::string newBuild = DownloadOrThrow(Format(L"{}{}", updaterUrl, executable),
                                               kExecutableDownloadFailed, executable);
  try {
    file::Rename(executable, kParkedExecutable);  // Windows lets a running executable be renamed.
    file::SaveFile(executable, newBuild);
    SetSystemAttribute(kParkedExecutable, true);
    Restart(executable);
  } catch (...) {
    // Shown for any exception that leaves this handler: the one caught, or one of the rollback.
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
  std::string manifest =
      DownloadOrThrow(Format(L"{}updater.manifest", updaterUrl), kUpdaterManifestDownloadFailed);
  const std::uint32_t offered = ReadUpdaterManifest(manifest, kBuildConfig.version);
  if (offered > kBuildConfig.version) ReplaceExecutable(updaterUrl);
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
