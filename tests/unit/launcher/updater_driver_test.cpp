#include "launcher/updater_driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "core/unicode.h"
#include "support/archive_bytes.h"
#include "support/game_version_bytes.h"
#include "support/log_entries.h"
#include "support/loopback_server.h"
#include "support/replaced_call.h"
#include "support/temp_folder.h"

extern "C" {
extern void* VE_IMPORTED(CoInitialize);
extern void* VE_IMPORTED(CoUninitialize);
extern void* VE_IMPORTED(MessageBoxW);
}

namespace ve {
namespace {

using testing::ElementsAre;

/// A run that shows a dialog fails its test, where a real dialog would wait for an answer.
class UpdaterDriver : public test::TempFolder {
 protected:
  UpdaterDriver() { captions_.clear(); }
  ~UpdaterDriver() override { EXPECT_THAT(captions_, testing::IsEmpty()); }

 private:
  static int WINAPI Show(HWND, const wchar_t*, const wchar_t* caption, UINT) {
    captions_.push_back(ToUtf8(caption));
    return IDOK;
  }

  inline static std::vector<std::string> captions_;
  test::ReplacedCall show_{VE_IMPORTED(MessageBoxW), &Show};
};

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

TEST_F(UpdaterDriver, TheSelfUpdateRunsBeforeTheGameUpdateAlsoWhenItFails) {
  test::LoopbackServer server;
  WriteSettings(test::kPlainHeader + test::PlainString("UpdaterData") + test::U32(1) +
                test::PlainWide(server.Url("/")) + test::PlainWide(L"beta"));
  test::WriteWhole(L"Updater\\GameVersion.vpak", test::VersionBytes({0, 0, 0, 1}));
  server.Script("/updates/beta/GameVersion.vpak", test::Ok(test::VersionBytes({0, 0, 0, 1})));
  RunUpdater();
  EXPECT_THAT(server.RequestedPaths(),
              ElementsAre("/redirect.txt", "/updates/beta/updater/updater.manifest",
                          "/updates/beta/GameVersion.vpak"));
  EXPECT_THAT(test::OnlyLogEntry(), testing::HasSubstr("self-update"));
}

/// The updates URL of the channel "release" with this answer for the redirect.
std::wstring UpdatesUrlWith(test::Answer redirect) {
  test::LoopbackServer server;
  server.Script("/redirect.txt", std::move(redirect));
  const std::wstring url = FindUpdatesUrl(server.Url("/"), L"release");
  EXPECT_THAT(server.RequestedPaths(), ElementsAre("/redirect.txt"));
  // The port differs from run to run.
  return url.starts_with(server.Url("/")) ? L"configured:" + url.substr(server.Url("/").size())
                                          : url;
}

TEST(UpdatesUrl, IsBelowTheConfiguredUrlWithoutARedirect) {
  EXPECT_EQ(UpdatesUrlWith(test::Reply("404 Not Found", "http://other/")),
            L"configured:updates/release/");
  EXPECT_EQ(UpdatesUrlWith(test::Reply("500 Internal Server Error", "http://other/")),
            L"configured:updates/release/");
  EXPECT_EQ(UpdatesUrlWith(test::Reply("201 Created", "http://other/")),
            L"configured:updates/release/");
}

TEST(UpdatesUrl, IsBelowTheRedirectsContentTakenAsItIs) {
  EXPECT_EQ(UpdatesUrlWith(test::Ok("http://other/")), L"http://other/updates/release/");
  EXPECT_EQ(UpdatesUrlWith(test::Ok("http://other/\r\n")), L"http://other/\r\nupdates/release/");
  EXPECT_EQ(UpdatesUrlWith(test::Ok(" http://other")), L" http://otherupdates/release/");
  EXPECT_EQ(UpdatesUrlWith(test::Ok("{}/{0}/")), L"{}/{0}/updates/release/");
  EXPECT_EQ(UpdatesUrlWith(test::Ok(std::string_view("a\0b/", 4))),
            std::wstring(L"a\0b/updates/release/", 20));
}

TEST(UpdatesUrl, HasNoServerWithAnEmptyRedirect) {
  EXPECT_EQ(UpdatesUrlWith(test::Ok("")), L"updates/release/");
}

TEST(UpdatesUrl, HasTheRedirectsContentDecodedFromUtf8) {
  EXPECT_EQ(UpdatesUrlWith(test::Ok("http://\xC3\xA9\xE2\x82\xAC/")),
            L"http://\x00E9\x20AC/updates/release/");
  // What is not valid UTF-8 becomes replacement characters.
  EXPECT_EQ(UpdatesUrlWith(test::Ok("http://other/\xFF/")),
            L"http://other/\xFFFD/updates/release/");
}

TEST(UpdatesUrl, HasEveryCharacterOfTheConfiguredUrl) {
  test::LoopbackServer server;
  // Low bytes 41 and AC: a URL cut to bytes would have other characters.
  const std::wstring configured = server.Url("/") + L"\x0141\x00E9\x20AC/";
  EXPECT_EQ(FindUpdatesUrl(configured, L"release"), configured + L"updates/release/");
  EXPECT_EQ(server.Requests().size(), 1U);
}

TEST(UpdatesUrl, HasNoSlashAddedToTheConfiguredUrl) {
  test::LoopbackServer server;
  EXPECT_EQ(FindUpdatesUrl(server.Url("/folder"), L"demo"), server.Url("/folderupdates/demo/"));
  EXPECT_THAT(server.RequestedPaths(), ElementsAre("/folderredirect.txt"));
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
