#include "launcher/updater_driver.h"

#include <gtest/gtest.h>
#include <string>

#include "support/archive_bytes.h"
#include "support/game_version_bytes.h"
#include "support/log_entries.h"
#include "support/loopback_server.h"
#include "support/replaced_call.h"
#include "support/temp_folder.h"

extern "C" {
extern void* VE_IMPORTED(CoInitialize);
extern void* VE_IMPORTED(CoUninitialize);
}

namespace ve {
namespace {

using UpdaterDriver = test::TempFolder;

void WriteSettings(std::string_view bytes) {
  ASSERT_TRUE(CreateDirectoryW(L"Updater", nullptr));
  test::WriteWhole(L"Updater\\UpdaterData.vpak", bytes);
}

TEST_F(UpdaterDriver, MissingSettingsAreLogged) {
  RunUpdater();
  EXPECT_EQ(test::OnlyLogEntry(),
            "Error while running updater:\r\n"
            "While trying to access updater-data.Failed to open file for loading. File "
            "'Updater\\UpdaterData.vpak'. Error: No such file or directory (2)\r\n\r\n");
}

TEST_F(UpdaterDriver, SettingsThatAreNoArchiveAreLogged) {
  WriteSettings("");
  RunUpdater();
  EXPECT_EQ(test::OnlyLogEntry(),
            "Error while running updater:\r\n"
            "While trying to access updater-data.Invalid header 0 for binary file.\r\n\r\n");
}

TEST_F(UpdaterDriver, InvalidSettingsAreLogged) {
  WriteSettings(test::kPlainHeader + test::PlainString("UpdaterData") + test::U32(1) +
                test::PlainWide(L"") + test::PlainWide(L"release"));
  RunUpdater();
  EXPECT_EQ(test::OnlyLogEntry(),
            "Error while running updater:\r\n"
            "While trying to access updater-data.Empty URL in UpdaterData.vpak.\r\n\r\n");
}

TEST_F(UpdaterDriver, EveryRunAddsItsEntry) {
  RunUpdater();
  const std::string first = test::ReadWhole(L"Logs\\updater.log");
  RunUpdater();
  const std::string both = test::ReadWhole(L"Logs\\updater.log");
  EXPECT_EQ(both.substr(0, first.size()), first);
  EXPECT_EQ(both.size(), 2 * first.size());
}

TEST_F(UpdaterDriver, ComIsInitializedOnceForAllDownloads) {
  static std::string calls;
  calls.clear();
  test::LoopbackServer server;
  WriteSettings(test::kPlainHeader + test::PlainString("UpdaterData") + test::U32(1) +
                test::PlainWide(server.Url("/")) + test::PlainWide(L"release"));
  test::WriteWhole(L"Updater\\GameVersion.vpak", test::VersionBytes({0, 0, 0, 1}));
  server.Script("/updates/release/GameVersion.vpak", test::Ok(test::VersionBytes({0, 0, 0, 1})));
  {
    const test::ReplacedCall initialize(
        VE_IMPORTED(CoInitialize), +[](void*) -> HRESULT {
          calls += "initialize ";
          return S_OK;
        });
    const test::ReplacedCall uninitialize(
        VE_IMPORTED(CoUninitialize), +[] { calls += "uninitialize"; });
    RunUpdater();
  }
  EXPECT_GT(server.Requests().size(), 2U);
  EXPECT_EQ(calls, "initialize uninitialize");
}

}  // namespace
}  // namespace ve
