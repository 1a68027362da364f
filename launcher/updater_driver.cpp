#include "launcher/updater_driver.h"

#include <exception>
#include <utility>

#include "archive/updater_settings.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "net/com_scope.h"
#include "net/download.h"
#include "updater/failure_log.h"
#include "updater/game_update.h"
#include "updater/self_update.h"

namespace ve {
namespace {

std::string FindBaseUrl(std::wstring_view configuredUrl) {
  DownloadResult redirect = Download(Format(L"{}redirect.txt", configuredUrl));
  return redirect.Succeeded() ? std::move(redirect.Body()) : ToUtf8(configuredUrl);
}

void RunUpdates() {
  const std::string settingsBytes = file::LoadFile(sdk::kSettingsFile);
  const sdk::UpdaterSettings settings = sdk::ReadUpdaterSettings(settingsBytes);
  // Every download holds COM for itself; this scope around all of them initialises it once instead
  // of once for each.
  const ComScope com;
  const std::wstring updatesUrl = FindUpdatesUrl(settings.url, settings.channel);

  sdk::RunSelfUpdate(updatesUrl, settingsBytes);
  sdk::RunGameUpdate(updatesUrl);
}

}  // namespace

std::wstring FindUpdatesUrl(std::wstring_view configuredUrl, std::wstring_view channel) {
  const std::string baseUrl = FindBaseUrl(configuredUrl);
  return Format(L"{}updates/{}/", ToWide(baseUrl), channel);
}

void RunUpdater() {
  try {
    RunUpdates();
  } catch (const std::exception& error) {
    // Without a line break or a blank at its end: support knows the entry in this form.
    sdk::LogUpdaterFailure("While trying to access updater-data.", error.what());
  }
}

}  // namespace ve
