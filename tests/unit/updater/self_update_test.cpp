#include "updater/self_update.h"

#include "core/windows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "core/files.h"
#include "core/unicode.h"
#include "support/log_entries.h"
#include "support/loopback_server.h"
#include "support/temp_folder.h"
#include "updater/build_config.h"
#include "updater/own_executable.h"

namespace ve::sdk {
namespace {

using test::Ok;
using test::ReadWhole;
using test::WriteWhole;
using testing::ElementsAre;

const std::string kOwnVersion = std::to_string(kBuildConfig.version);

/// The runs that return; those that restart the program end their process.
class SelfUpdate : public test::TempFolder {
 protected:
  SelfUpdate() {
    EXPECT_TRUE(CreateDirectoryW(L"Updater", nullptr));
    WriteWhole(L"Updater\\UpdaterData.vpak", "on disk");
  }

  void Offer(std::string_view version) {
    server_.Script("/updates/updater/updater.manifest",
                   Ok(Format("Velmorant Updater\r\nFileVersion: 1\r\nVersion: {}", version)));
  }
  void ServeSettings(std::string_view bytes) {
    server_.Script("/updates/updater/UpdaterData.vpak", Ok(bytes));
  }
  void Run(std::string_view settings) { RunSelfUpdate(server_.Url("/updates/"), settings); }

  void ExpectLogged(const std::string& message) {
    EXPECT_EQ(test::OnlyLogEntry(),
              Format("Error while running updater:\r\nWhile trying to check for self-update from "
                     "URL '{}':\r\n\r\n{}\r\n\r\n",
                     server_.Url("/updates/updater/"), message));
    EXPECT_EQ(ReadWhole(L"Updater\\UpdaterData.vpak"), "on disk");
  }

  test::LoopbackServer server_;
};

TEST_F(SelfUpdate, ACurrentLauncherWithTheServersSettingsIsLeftAlone) {
  Offer(kOwnVersion);
  ServeSettings(std::string_view("same\0settings", 13));
  Run(std::string_view("same\0settings", 13));
  EXPECT_FALSE(test::HasLog());
  // Compared with what the caller read, not with what is on the disk now; and nothing is written.
  EXPECT_EQ(ReadWhole(L"Updater\\UpdaterData.vpak"), "on disk");
  EXPECT_THAT(server_.RequestedPaths(), ElementsAre("/updates/updater/updater.manifest",
                                                    "/updates/updater/UpdaterData.vpak"));
}

TEST_F(SelfUpdate, AManifestThatCannotBeHadIsLogged) {
  Run("settings");
  ExpectLogged("Failed to download updater-manifest file with error: '404 - no such file.'");
}

TEST_F(SelfUpdate, AManifestThatIsInvalidIsLogged) {
  server_.Script("/updates/updater/updater.manifest", Ok("one\ntwo"));
  Run("settings");
  ExpectLogged(
      "Invalid number of lines in updater-manifest file. Expecting at least 3, was only 2.");
}

TEST_F(SelfUpdate, AnOlderVersionIsLoggedAndNothingElseAskedFor) {
  const std::string older = std::to_string(kBuildConfig.version - 1);
  Offer(older);
  Run("settings");
  ExpectLogged(
      Format("Trying to downgrade updater to version '{}' (from '{}'). Downgrade is not supported",
             older, kOwnVersion));
  EXPECT_THAT(server_.RequestedPaths(), ElementsAre("/updates/updater/updater.manifest"));
}

TEST_F(SelfUpdate, ANewVersionIsAskedForByTheNameOfTheRunningExecutable) {
  const std::wstring own(OwnExecutableName());
  WriteWhole(own, "running");
  Offer(std::to_string(kBuildConfig.version + 1));
  Run("settings");
  ExpectLogged(Format("Failed to download new updater-exe '{}'. 404 - no such file.", own));
  EXPECT_THAT(server_.RequestedPaths(),
              ElementsAre("/updates/updater/updater.manifest", "/updates/updater/" + ToUtf8(own)));
  EXPECT_EQ(ReadWhole(own), "running");
  EXPECT_FALSE(file::Exists(L"_old.exe"));
}

TEST_F(SelfUpdate, ANegativeVersionCountsAsNewer) {
  Offer("-1");
  Run("settings");
  ExpectLogged(
      Format("Failed to download new updater-exe '{}'. 404 - no such file.", OwnExecutableName()));
}

TEST_F(SelfUpdate, SettingsThatCannotBeHadAreLogged) {
  Offer(kOwnVersion);
  Run("settings");
  ExpectLogged("Failed to download updater-data file with error: '404 - no such file.'");
}

TEST_F(SelfUpdate, MissingLocalSettingsAreLogged) {
  ASSERT_TRUE(DeleteFileW(L"Updater\\UpdaterData.vpak"));
  Offer(kOwnVersion);
  ServeSettings("settings");
  Run("settings");
  // The folder is the game's, not that of the log.
  const std::string folder = ToUtf8(Folder());
  WriteWhole(L"Updater\\UpdaterData.vpak", "on disk");
  ExpectLogged(
      Format("Updater\\UpdaterData.vpak does not exist at path '{}'. Most likely some "
             "error in updater-logic.",
             folder));
}

TEST_F(SelfUpdate, SettingsThatCannotBeSavedAreLogged) {
  const HANDLE locked = CreateFileW(L"Updater\\UpdaterData.vpak", GENERIC_READ, FILE_SHARE_READ,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(locked, INVALID_HANDLE_VALUE);
  Offer(kOwnVersion);
  ServeSettings("settingz");
  Run("settings");
  CloseHandle(locked);
  ExpectLogged(
      "Failed to open file for saving. File 'Updater\\UpdaterData.vpak'. Error: Permission denied "
      "(13)");
}

TEST_F(SelfUpdate, AStaleExecutableIsDeletedAlsoAsASystemFile) {
  WriteWhole(L"_old.exe", "previous");
  ASSERT_TRUE(SetFileAttributesW(L"_old.exe", FILE_ATTRIBUTE_SYSTEM));
  Run("settings");
  EXPECT_FALSE(file::Exists(L"_old.exe"));
}

TEST_F(SelfUpdate, AStaleExecutableThatIsInUseIsLeftWithoutAWord) {
  WriteWhole(L"_old.exe", "previous");
  const HANDLE locked =
      CreateFileW(L"_old.exe", GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(locked, INVALID_HANDLE_VALUE);
  Offer(kOwnVersion);
  ServeSettings("settings");
  Run("settings");
  CloseHandle(locked);
  EXPECT_TRUE(file::Exists(L"_old.exe"));
  EXPECT_FALSE(test::HasLog());
}

}  // namespace
}  // namespace ve::sdk
