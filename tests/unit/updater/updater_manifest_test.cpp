#include "updater/updater_manifest.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

#include "core/errors.h"
#include "core/files.h"
#include "support/temp_folder.h"
#include "support/thrown_message.h"

namespace ve::sdk {
namespace {

constexpr std::uint32_t kOwnVersion = 6;

std::uint32_t Offered(std::string text) { return ReadUpdaterManifest(text, kOwnVersion); }
std::string ErrorOf(std::string text) {
  return test::ThrownMessage<UpdaterException>(
      [&] { (void)ReadUpdaterManifest(text, kOwnVersion); });
}
std::string Manifest(const std::string& fileVersionLine, const std::string& versionLine) {
  return "Velmorant Updater\n" + fileVersionLine + "\n" + versionLine;
}

TEST(UpdaterManifest, OffersItsVersion) {
  EXPECT_EQ(Offered("Velmorant Updater\nFileVersion: 1\nVersion: 6"), 6U);
  EXPECT_EQ(Offered("Velmorant Updater\nFileVersion: 1\nVersion: 7"), 7U);
}

TEST(UpdaterManifest, LineEndsBlankLinesAndFurtherLinesChangeNothing) {
  EXPECT_EQ(Offered("Velmorant Updater\r\nFileVersion: 1\r\nVersion: 6\r\n"), 6U);
  EXPECT_EQ(Offered("\n\nVelmorant Updater\n\nFileVersion: 1\n\n\nVersion: 6\n\n"), 6U);
  EXPECT_EQ(Offered("Velmorant Updater\nFileVersion: 1\nVersion: 6\nVersion: 9\nmore"), 6U);
  EXPECT_EQ(Offered("Velmorant \rUpdater\nFile\rVersion: 1\nVersion: \r6"), 6U);
}

TEST(UpdaterManifest, TheTextLosesItsCarriageReturns) {
  std::string text = "Velmorant Updater\r\nFileVersion: 1\r\nVersion: 6\r\n";
  EXPECT_EQ(ReadUpdaterManifest(text, kOwnVersion), 6U);
  EXPECT_EQ(text, "Velmorant Updater\nFileVersion: 1\nVersion: 6\n");
}

TEST(UpdaterManifest, FewerThanThreeLinesAreTooFew) {
  EXPECT_EQ(ErrorOf("Velmorant Updater\n\nFileVersion: 1\n\n"),
            "Invalid number of lines in updater-manifest file. Expecting at least 3, was only 2.");
  EXPECT_EQ(ErrorOf(""),
            "Invalid number of lines in updater-manifest file. Expecting at least 3, was only 0.");
}

TEST(UpdaterManifest, TheHeaderIsExact) {
  const auto headerError = [](const std::string& header) {
    return ErrorOf(header + "\nFileVersion: 1\nVersion: 6");
  };
  EXPECT_EQ(headerError("Velmorant Updater "),
            "Unknown header in received updater-manifest file (was 'Velmorant Updater ', expected "
            "'Velmorant Updater').");
  EXPECT_EQ(headerError("velmorant updater"),
            "Unknown header in received updater-manifest file (was 'velmorant updater', expected "
            "'Velmorant Updater').");
  EXPECT_EQ(headerError("<html>"),
            "Unknown header in received updater-manifest file (was '<html>', expected 'Velmorant "
            "Updater').");
}

TEST(UpdaterManifest, TheFileVersionsKeyIsExact) {
  EXPECT_EQ(ErrorOf(Manifest("FileVersion:", "Version: 6")),
            "Unknown file version name 'FileVersion:' (should have been 'FileVersion')");
  EXPECT_EQ(ErrorOf(Manifest("fileversion: 1", "Version: 6")),
            "Unknown file version name 'fileversion' (should have been 'FileVersion')");
  EXPECT_EQ(ErrorOf(Manifest("FileVersion : 1", "Version: 6")),
            "Unknown file version name 'FileVersion ' (should have been 'FileVersion')");
  EXPECT_EQ(ErrorOf(Manifest("Version: 6", "FileVersion: 1")),
            "Unknown file version name 'Version' (should have been 'FileVersion')");
}

TEST(UpdaterManifest, FileVersionZeroIsUnsupported) {
  for (const std::string version : {"0", "x", "", " 1", "4294967296"}) {
    EXPECT_EQ(ErrorOf(Manifest("FileVersion: " + version, "Version: 6")),
              "Unsupported file version '0' (must be at least 1).")
        << version;
  }
}

TEST(UpdaterManifest, FileVersionsHaveNoUpperBound) {
  for (const std::string version : {"1", "2", "99", "4294967295", "-1"}) {
    EXPECT_EQ(Offered(Manifest("FileVersion: " + version, "Version: 6")), 6U) << version;
  }
}

TEST(UpdaterManifest, TheVersionsKeyIsExact) {
  EXPECT_EQ(ErrorOf(Manifest("FileVersion: 1", "version: 6")),
            "Unknown updater version name 'version' (should have been 'Version')");
  EXPECT_EQ(ErrorOf(Manifest("FileVersion: 1", "Version:6")),
            "Unknown updater version name 'Version:6' (should have been 'Version')");
}

TEST(UpdaterManifest, ADowngradeIsRefused) {
  EXPECT_EQ(ErrorOf(Manifest("FileVersion: 1", "Version: 5")),
            "Trying to downgrade updater to version '5' (from '6'). Downgrade is not supported");
  EXPECT_EQ(ErrorOf(Manifest("FileVersion: 1", "Version: ")),
            "Trying to downgrade updater to version '0' (from '6'). Downgrade is not supported");
  EXPECT_EQ(ErrorOf(Manifest("FileVersion: 1", "Version: 4294967297")),
            "Trying to downgrade updater to version '1' (from '6'). Downgrade is not supported");
}

TEST(UpdaterManifest, TheVersionIsReadLeniently) {
  EXPECT_EQ(Offered(Manifest("FileVersion: 1", "Version: 6abc")), 6U);
  EXPECT_EQ(Offered(Manifest("FileVersion: 1", "Version: 7: x")), 7U);
}

TEST(UpdaterManifest, ANegativeVersionIsAVeryNewOne) {
  EXPECT_EQ(Offered(Manifest("FileVersion: 1", "Version: -1")), 4294967295U);
}

TEST(UpdaterManifest, TheFirstFaultIsReported) {
  EXPECT_EQ(ErrorOf(Manifest("FileVersion: 0", "x")),
            "Unsupported file version '0' (must be at least 1).");
}

using UpdaterManifestFile = test::TempFolder;

TEST_F(UpdaterManifestFile, IsWrittenWithWindowsLineEndsAndNoLastOne) {
  WriteUpdaterManifest(L"updater.manifest", kOwnVersion);
  EXPECT_EQ(test::ReadWhole(L"updater.manifest"),
            "Velmorant Updater\r\nFileVersion: 1\r\nVersion: 6");
}

TEST_F(UpdaterManifestFile, ReadsAsTheVersionWritten) {
  WriteUpdaterManifest(L"updater.manifest", kOwnVersion);
  EXPECT_EQ(Offered(test::ReadWhole(L"updater.manifest")), kOwnVersion);
}

TEST_F(UpdaterManifestFile, ReplacesAnOlderOne) {
  test::WriteWhole(L"updater.manifest", std::string(500, 'x'));
  WriteUpdaterManifest(L"updater.manifest", kOwnVersion);
  EXPECT_EQ(test::ReadWhole(L"updater.manifest").size(), 45U);
}

TEST_F(UpdaterManifestFile, OfThePathAtMost255CharactersAreUsed) {
  std::wstring path;
  for (int i = 0; i < 110; ++i) path += L".\\";
  WriteUpdaterManifest(path + std::wstring(60, L'n'), kOwnVersion);
  EXPECT_FALSE(file::Exists(std::wstring(60, L'n')));
  ASSERT_TRUE(file::Exists(std::wstring(35, L'n')));
  EXPECT_EQ(test::ReadWhole(std::wstring(35, L'n')).size(), 45U);
}

TEST_F(UpdaterManifestFile, ThatCannotBeOpenedIsNoError) {
  WriteUpdaterManifest(L"missing\\updater.manifest", kOwnVersion);
  EXPECT_FALSE(file::Exists(L"missing"));
}

}  // namespace
}  // namespace ve::sdk
