#include "launcher/updater_driver.h"

#include <exception>
#include <string>
#include <string_view>

#include "archive/updater_settings.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "net/download.h"
#include "updater/failure_log.h"
#include "updater/game_update.h"
#include "updater/self_update.h"

namespace ve {
namespace {

/// The server that "redirect.txt" names, its text taken exactly as it is; the configured one where
/// there is no such file. Only one redirection is followed.
std::string FindBaseUrl(std::wstring_view configuredUrl) {
  DownloadResult redirect = Download(Format(L"{}redirect.txt", configuredUrl));
  return redirect.Succeeded() ? std::move(redirect.Body()) : ToUtf8(configuredUrl);
}

void RunUpdates() {
  const std::string settingsBytes = file::LoadFile(L"Updater\\UpdaterData.vpak");
  const sdk::UpdaterSettings settings = sdk::ReadUpdaterSettings(settingsBytes);
  const std::string baseUrl = FindBaseUrl(settings.url);
  const std::wstring updatesUrl = Format(L"{}updates/{}/", ToWide(baseUrl), settings.channel);

  sdk::RunSelfUpdate(updatesUrl, settingsBytes);
  sdk::RunGameUpdate(updatesUrl);
}

}  // namespace

void RunUpdater() {
  try {
    RunUpdates();
  } catch (const std::exception& error) {
    sdk::LogUpdaterFailure("While trying to access updater-data.", error.what());
  }
}

}  // namespace ve
