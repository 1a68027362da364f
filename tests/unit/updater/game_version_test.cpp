#include "updater/game_version.h"

#include "core/windows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>

#include "core/errors.h"
#include "core/files.h"
#include "support/game_version_bytes.h"
#include "support/loopback_server.h"
#include "support/temp_folder.h"
#include "support/thrown_message.h"

namespace ve::sdk {
namespace {

using test::CheckedVersionBytes;
using test::LoopbackServer;
using test::ThrownMessage;
using test::VersionBytes;
using testing::ElementsAre;
using testing::IsEmpty;

VersionNumber Version(std::int32_t w1, std::int32_t w2, std::int32_t w3, std::int32_t w4) {
  return {{w1, w2, w3, w4}};
}

TEST(VersionNumber, TheLastWordDecidesFirst) {
  EXPECT_LT(Version(5, 0, 0, 1), Version(0, 0, 0, 2));
  EXPECT_LT(Version(9, 9, 1, 0), Version(0, 0, 2, 0));
  EXPECT_LT(Version(9, 1, 0, 0), Version(0, 2, 0, 0));
  EXPECT_LT(Version(1, 0, 0, 0), Version(2, 0, 0, 0));
  EXPECT_GT(Version(0, 0, 0, 2), Version(5, 0, 0, 1));
}

TEST(VersionNumber, EqualWordsAreEqual) {
  EXPECT_EQ(Version(1, 2, 3, 4), Version(1, 2, 3, 4));
  EXPECT_EQ(Version(1, 2, 3, 4) <=> Version(1, 2, 3, 4), std::strong_ordering::equal);
}

TEST(VersionNumber, WordsAreSigned) {
  EXPECT_LT(Version(0, 0, 0, -1), Version(0, 0, 0, 0));
  EXPECT_LT(Version(-1, 0, 0, 0), Version(0, 0, 0, 0));
  EXPECT_LT(Version(0, 0, 0, -2147483647 - 1), Version(0, 0, 0, 2147483647));
}

GameVersion Read(const std::string& bytes) {
  file::ArchiveReader reader{std::string_view(bytes)};
  return ReadGameVersion(reader);
}

TEST(GameVersion, ASupportedRecordHasAllItsFieldsInFileOrder) {
  for (const std::string& bytes :
       {VersionBytes({1, -2, 3, 0x01020304}), CheckedVersionBytes({1, -2, 3, 0x01020304})}) {
    const GameVersion version = Read(bytes);
    EXPECT_EQ(version.header, "GameVersion");
    EXPECT_EQ(version.fileVersion, 1U);
    EXPECT_EQ(version.number, Version(1, -2, 3, 0x01020304));
    EXPECT_TRUE(version.IsSupported());
  }
}

TEST(GameVersion, ReadingStopsAtTheFirstFieldOfAnotherRecord) {
  const GameVersion otherHeader = Read(VersionBytes({1, 2, 3, 4}, "GameVersio"));
  EXPECT_EQ(otherHeader.header, "GameVersio");
  EXPECT_EQ(otherHeader.fileVersion, 0U);
  EXPECT_FALSE(otherHeader.IsSupported());

  const GameVersion otherFileVersion = Read(VersionBytes({1, 2, 3, 4}, "GameVersion", 2));
  EXPECT_EQ(otherFileVersion.fileVersion, 2U);
  EXPECT_EQ(otherFileVersion.number, VersionNumber{});
  EXPECT_FALSE(otherFileVersion.IsSupported());
}

// The fields behind another header word have other types, and reading them as numbers would throw.
TEST(GameVersion, ACheckedRecordOfAnotherKindIsNotSupported) {
  const GameVersion version =
      Read(test::kCheckedHeader + test::CheckedString("Save") + test::CheckedWide(L"name"));
  EXPECT_EQ(version.header, "Save");
  EXPECT_FALSE(version.IsSupported());
}

class CheckGameVersionTest : public test::TempFolder {
 protected:
  CheckGameVersionTest() { EXPECT_TRUE(CreateDirectoryW(L"Updater", nullptr)); }

  static void Install(std::string_view bytes) {
    test::WriteWhole(L"Updater\\GameVersion.vpak", bytes);
  }
  void Serve(std::string_view bytes) { server_.Script("/GameVersion.vpak", test::Ok(bytes)); }
  bool Check() { return CheckGameVersion(server_.Url("/GameVersion.vpak"), pending_); }

  /// An older game must be found without a look at the server.
  void ExpectOldWithoutADownload() {
    Serve(VersionBytes({0, 0, 0, 1}));
    EXPECT_TRUE(Check());
    EXPECT_EQ(pending_, std::nullopt);
    EXPECT_THAT(server_.RequestedPaths(), IsEmpty());
  }
  void ExpectCurrent() {
    EXPECT_FALSE(Check());
    EXPECT_EQ(pending_, std::nullopt);
    EXPECT_THAT(server_.RequestedPaths(), ElementsAre("/GameVersion.vpak"));
  }
  template <class Exception>
  std::string CheckError() {
    std::string message = ThrownMessage<Exception>([this] { static_cast<void>(Check()); });
    EXPECT_EQ(pending_, std::nullopt);
    return message;
  }

  LoopbackServer server_;
  std::optional<std::string> pending_;
};

TEST_F(CheckGameVersionTest, AMissingFileIsAnOldGame) { ExpectOldWithoutADownload(); }

TEST_F(CheckGameVersionTest, AnotherHeaderWordIsAnOldGame) {
  Install(VersionBytes({0, 0, 0, 9}, "GameVersio"));
  ExpectOldWithoutADownload();
}

TEST_F(CheckGameVersionTest, ALongerHeaderWordIsAnOldGame) {
  Install(VersionBytes({0, 0, 0, 9}, "GameVersions"));
  ExpectOldWithoutADownload();
}

TEST_F(CheckGameVersionTest, AnotherFileVersionIsAnOldGame) {
  Install(VersionBytes({0, 0, 0, 9}, "GameVersion", 2));
  ExpectOldWithoutADownload();
}

TEST_F(CheckGameVersionTest, AnArchiveThatEndsEarlyIsAnOldGame) {
  Install(test::kPlainHeader);
  ExpectOldWithoutADownload();
}

TEST_F(CheckGameVersionTest, AMissingNumberReadsAsZero) {
  Install(test::kPlainHeader + test::PlainString("GameVersion") + test::U32(1));
  Serve(VersionBytes({0, 0, 0, 0}));
  ExpectCurrent();
}

TEST_F(CheckGameVersionTest, AFileThatIsNoArchiveIsAnError) {
  Install("twelve bytes");
  EXPECT_EQ(CheckError<file::FileException>(), "Invalid header 1818589044 for binary file.");
  EXPECT_THAT(server_.RequestedPaths(), IsEmpty());
}

TEST_F(CheckGameVersionTest, AnEmptyFileIsAnError) {
  Install("");
  const std::string message = CheckError<file::MappedFileException>();
  EXPECT_TRUE(
      message.starts_with("Failed to CreateFileMapping when trying to open mapped file "
                          "'Updater\\GameVersion.vpak': "))
      << message;
}

TEST_F(CheckGameVersionTest, ACheckedFileWithAnotherLayoutIsAnError) {
  Install(test::kCheckedHeader + test::CheckedWide(L"GameVersion"));
  EXPECT_EQ(CheckError<file::FileException>(),
            "Invalid string-identifier 793148466 (was expecting 793518264).");
}

TEST_F(CheckGameVersionTest, CheckedAndPlainFilesAreCompared) {
  Install(CheckedVersionBytes({0, 0, 0, 1}));
  Serve(VersionBytes({0, 0, 0, 1}));
  ExpectCurrent();
}

TEST_F(CheckGameVersionTest, ANewerVersionOnTheServerIsKeptAsDownloaded) {
  const std::string remote = CheckedVersionBytes({0, 0, 0, 2}) + "trailing bytes";
  Install(VersionBytes({5, 0, 0, 1}));
  Serve(remote);
  pending_ = "earlier content";
  EXPECT_TRUE(Check());
  EXPECT_EQ(pending_, remote);
  EXPECT_THAT(server_.RequestedPaths(), ElementsAre("/GameVersion.vpak"));
}

TEST_F(CheckGameVersionTest, ANegativeVersionIsOlderThanZero) {
  Install(VersionBytes({0, 0, 0, -1}));
  Serve(VersionBytes({0, 0, 0, 0}));
  EXPECT_TRUE(Check());
}

TEST_F(CheckGameVersionTest, TheSameVersionIsCurrent) {
  Install(VersionBytes({1, 2, 3, 4}));
  Serve(VersionBytes({1, 2, 3, 4}));
  ExpectCurrent();
}

TEST_F(CheckGameVersionTest, ANewerGameIsCurrentToo) {
  Install(VersionBytes({0, 0, 0, 2}));
  Serve(VersionBytes({9, 9, 9, 1}));
  ExpectCurrent();
}

TEST_F(CheckGameVersionTest, AFailedDownloadIsAnError) {
  Install(VersionBytes({0, 0, 0, 1}));
  EXPECT_EQ(CheckError<UpdaterException>(),
            "Failed to download game-version file with error: '404 - no such file.'");
}

TEST_F(CheckGameVersionTest, AnotherRemoteHeaderWordIsAnError) {
  Install(VersionBytes({0, 0, 0, 1}));
  Serve(VersionBytes({0, 0, 0, 2}, "GameVersio"));
  EXPECT_EQ(CheckError<UpdaterException>(),
            "Remove game-version file had unexpected header 'GameVersio'.");
}

TEST_F(CheckGameVersionTest, ARemoteArchiveThatEndsEarlyHasAnEmptyHeaderWord) {
  Install(VersionBytes({0, 0, 0, 1}));
  Serve(test::kPlainHeader);
  EXPECT_EQ(CheckError<UpdaterException>(), "Remove game-version file had unexpected header ''.");
}

TEST_F(CheckGameVersionTest, AnotherRemoteFileVersionIsAnError) {
  Install(VersionBytes({0, 0, 0, 1}));
  Serve(VersionBytes({0, 0, 0, 2}, "GameVersion", 4294967295));
  EXPECT_EQ(CheckError<UpdaterException>(),
            "Remove game-version file had unexpected file-version '4294967295'.");
}

TEST_F(CheckGameVersionTest, ARemoteFileThatIsNoArchiveIsAnError) {
  Install(VersionBytes({0, 0, 0, 1}));
  Serve("");
  EXPECT_EQ(CheckError<file::FileException>(), "Invalid header 0 for binary file.");
}

TEST_F(CheckGameVersionTest, ARemoteCheckedFileWithAnotherWidthIsAnError) {
  Install(VersionBytes({0, 0, 0, 1}));
  Serve(test::kCheckedHeader + test::CheckedString("GameVersion") + test::U32(2));
  EXPECT_EQ(CheckError<file::FileException>(), "Invalid debug-size for type. Was 2, expected 4.");
}

TEST_F(CheckGameVersionTest, TheLocalFileIsFreeAfterwards) {
  Install(VersionBytes({0, 0, 0, 1}));
  Serve(VersionBytes({0, 0, 0, 2}));
  ASSERT_TRUE(Check());
  file::SaveFile(kGameVersionFile, "new");
  EXPECT_EQ(test::ReadWhole(L"Updater\\GameVersion.vpak"), "new");
}

TEST_F(CheckGameVersionTest, ARejectedLocalFileIsFreeAfterwards) {
  Install("no archive");
  static_cast<void>(CheckError<file::FileException>());
  file::SaveFile(kGameVersionFile, "new");
  EXPECT_EQ(test::ReadWhole(L"Updater\\GameVersion.vpak"), "new");
}

}  // namespace
}  // namespace ve::sdk
