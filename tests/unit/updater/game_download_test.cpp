#include "updater/game_download.h"

#include "core/windows.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <system_error>
#include <vector>

#include "core/errors.h"
#include "core/file_matches_entry.h"
#include "core/files.h"
#include "core/format.h"
#include "core/unicode.h"
#include "support/loopback_server.h"
#include "support/sink_recorder.h"
#include "support/temp_folder.h"
#include "support/thrown_message.h"

namespace ve::sdk {
namespace {

using test::ReadWhole;
using test::ThrownMessage;
using test::WriteWhole;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// Of "hello" and of "world".
constexpr std::string_view kHelloDigest = "5d41402abc4b2a76b9719d911017c592";
constexpr std::string_view kWorldDigest = "7d793037a0760186574b0282f2f435e7";
constexpr std::string_view kUppercaseHelloDigest = "5D41402ABC4B2A76B9719D911017C592";

FileEntry Entry(std::string_view name, std::string_view digest = kHelloDigest) {
  return {WidenName(name), 5, digest};
}

using FindSourceTest = test::TempFolder;

/// Where an entry's file is, staged as "staged".
FileSource SourceOf(const FileEntry& entry) {
  const bool isInstalled = FileMatchesEntry(entry.name, entry.size, entry.digest);
  return FindSource(isInstalled, entry, L"staged");
}

TEST_F(FindSourceTest, ACurrentFileIsInstalled) {
  WriteWhole(L"a", "hello");
  WriteWhole(L"staged", "hello");
  EXPECT_EQ(SourceOf(Entry("a")), FileSource::kInstalled);
}

TEST_F(FindSourceTest, ACompleteStagedFileIsStaged) {
  EXPECT_EQ(SourceOf(Entry("a")), FileSource::kServer);
  WriteWhole(L"a", "world");
  WriteWhole(L"staged", "hello");
  EXPECT_EQ(SourceOf(Entry("a")), FileSource::kStaged);
}

TEST_F(FindSourceTest, AnotherSizeOrDigestIsNoSource) {
  WriteWhole(L"a", "hell");
  WriteWhole(L"staged", "world");
  EXPECT_EQ(SourceOf(Entry("a")), FileSource::kServer);
}

TEST_F(FindSourceTest, AnUppercaseDigestNeverMatches) {
  WriteWhole(L"a", "hello");
  WriteWhole(L"staged", "hello");
  EXPECT_EQ(SourceOf({L"a", 5, kUppercaseHelloDigest}), FileSource::kServer);
}

TEST(StagingPath, IsTheFolderDirectlyFollowedByTheName) {
  EXPECT_EQ(StagingPath(L"bin/sub/x.dll"), L"Intermediate\\Update\\bin/sub/x.dll");
  EXPECT_EQ(StagingPath(L"x"), L"Intermediate\\Update\\x");
}

using MakeStagingFoldersTest = test::TempFolder;

TEST_F(MakeStagingFoldersTest, AllListedDirectoriesAreMade) {
  MakeStagingFolders({{"bin", "bin/sub", "data"}, {}});
  EXPECT_TRUE(file::Exists(L"Intermediate\\Update\\bin\\sub"));
  EXPECT_TRUE(file::Exists(L"Intermediate\\Update\\data"));
}

TEST_F(MakeStagingFoldersTest, DirectoriesThatExistAreAccepted) {
  const test::SinkRecorder sink;
  MakeStagingFolders({{"bin", "bin/sub"}, {}});
  MakeStagingFolders({{"bin", "bin", "bin/sub"}, {}});
  EXPECT_THAT(sink.Messages(), IsEmpty());
}

/// The filesystem error of making these directories; the sink must have got `message` with its
/// text.
std::filesystem::filesystem_error MakingError(const GameUpdateManifest& manifest,
                                              const std::string& message) {
  const test::SinkRecorder sink;
  try {
    MakeStagingFolders(manifest);
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_EQ(sink.Messages().size(), 1U);
    EXPECT_EQ(sink.Messages().at(0).first, message + error.what());
    EXPECT_EQ(sink.Messages().at(0).second, 1U);
    return error;
  }
  ADD_FAILURE() << "nothing was thrown";
  return {"", {}};
}

TEST_F(MakeStagingFoldersTest, TheirPathsHaveTwoBackslashes) {
  MakeStagingFolders({{}, {}});
  WriteWhole(L"Intermediate\\Update\\bin", "a file in the way");
  const auto error =
      MakingError({{"bin"}, {}}, "Failed to create directory 'Intermediate\\Update\\\\bin': ");
  EXPECT_EQ(error.path1().native(), L"Intermediate\\Update\\\\bin");
  EXPECT_EQ(error.code(), std::error_code(ERROR_ALREADY_EXISTS, std::system_category()));
  EXPECT_THAT(error.what(), HasSubstr("create_directory"));
}

TEST_F(MakeStagingFoldersTest, AChildBeforeItsParentFails) {
  const auto error = MakingError({{"data", "bin/sub", "bin"}, {}},
                                 "Failed to create directory 'Intermediate\\Update\\\\bin/sub': ");
  EXPECT_EQ(error.code(), std::error_code(ERROR_PATH_NOT_FOUND, std::system_category()));
  EXPECT_TRUE(file::Exists(L"Intermediate\\Update\\data"));
  EXPECT_FALSE(file::Exists(L"Intermediate\\Update\\bin"));
}

TEST_F(MakeStagingFoldersTest, AFileInPlaceOfTheStagingFoldersParentFails) {
  WriteWhole(L"Intermediate", "a file in the way");
  const auto error = MakingError(
      {{"bin"}, {}}, "Failed to create all directories on path 'Intermediate\\Update\\': ");
  EXPECT_THAT(error.what(), HasSubstr("create_directories"));
}

TEST_F(MakeStagingFoldersTest, NamesAreWidenedByteByByte) {
  MakeStagingFolders({{"\xC3\xA9"}, {}});
  EXPECT_TRUE(file::Exists(L"Intermediate\\Update\\\xFFC3\xFFA9"));
}

class StageFilesTest : public test::TempFolder {
 protected:
  StageFilesTest() {
    manifest_.directories = {"bin"};
    MakeStagingFolders(manifest_);
    EXPECT_TRUE(CreateDirectoryW(L"bin", nullptr));
  }

  StagedUpdate Stage() {
    StagedUpdate staged;
    StageFiles(server_.Url("/updates/"), manifest_, staged, processed_);
    return staged;
  }
  std::vector<std::wstring> Copies(const StagedUpdate& staged) {
    std::vector<std::wstring> copies;
    for (const StagedFile& copy : staged.copies) {
      copies.push_back(Format(L"{} > {}", copy.stagingPath, copy.name));
    }
    return copies;
  }

  test::LoopbackServer server_;
  GameUpdateManifest manifest_;
  std::atomic<std::uint32_t> processed_ = 0;
};

TEST_F(StageFilesTest, WithCurrentFilesNothingIsStaged) {
  WriteWhole(L"bin\\a", "hello");
  WriteWhole(L"b", "hello");
  manifest_.files = {Entry("bin/a"), Entry("b")};
  const StagedUpdate staged = Stage();
  EXPECT_THAT(staged.copies, IsEmpty());
  EXPECT_THAT(staged.names, UnorderedElementsAre(L"bin/a", L"b"));
  EXPECT_EQ(processed_, 2U);
  EXPECT_THAT(server_.RequestedPaths(), IsEmpty());
}

TEST_F(StageFilesTest, EachFileIsTakenFromWhereItIs) {
  WriteWhole(L"bin\\current", "hello");
  WriteWhole(L"Intermediate\\Update\\bin\\staged", "hello");
  WriteWhole(L"Intermediate\\Update\\bin\\broken", "world");
  server_.Script("/updates/bin/new", test::Ok("hello"));
  server_.Script("/updates/bin/broken", test::Ok("hello"));
  manifest_.files = {Entry("bin/new"), Entry("bin/current"), Entry("bin/staged"),
                     Entry("bin/broken")};
  const StagedUpdate staged = Stage();
  EXPECT_THAT(Copies(staged), ElementsAre(L"Intermediate\\Update\\bin/new > bin/new",
                                          L"Intermediate\\Update\\bin/staged > bin/staged",
                                          L"Intermediate\\Update\\bin/broken > bin/broken"));
  EXPECT_THAT(staged.names,
              UnorderedElementsAre(L"bin/new", L"bin/current", L"bin/staged", L"bin/broken"));
  EXPECT_EQ(processed_, 4U);
  EXPECT_THAT(server_.RequestedPaths(), ElementsAre("/updates/bin/new", "/updates/bin/broken"));
  EXPECT_EQ(ReadWhole(L"Intermediate\\Update\\bin\\new"), "hello");
  EXPECT_EQ(ReadWhole(L"Intermediate\\Update\\bin\\broken"), "hello");
}

TEST_F(StageFilesTest, TheNamesAreViewsIntoTheEntries) {
  WriteWhole(L"b", "hello");
  server_.Script("/updates/a", test::Ok("hello"));
  manifest_.files = {Entry("a"), Entry("b")};
  const StagedUpdate staged = Stage();
  EXPECT_EQ(staged.copies.at(0).name.data(), manifest_.files[0].name.data());
  EXPECT_EQ(staged.names.find(L"b")->data(), manifest_.files[1].name.data());
}

TEST_F(StageFilesTest, ANameBeyondAsciiIsWidenedInThePathAndSentAsUtf8) {
  manifest_.files = {Entry("\xC3\xA9")};
  EXPECT_EQ(ThrownMessage<UpdaterException>([this] { static_cast<void>(Stage()); }),
            Format("Failed to download game-file '{}' with error: '404 - no such file.'",
                   ToUtf8(server_.Url("/updates/") + L"\xFFC3\xFFA9")));
  WriteWhole(L"Intermediate\\Update\\\xFFC3\xFFA9", "hello");
  EXPECT_THAT(Copies(Stage()), ElementsAre(L"Intermediate\\Update\\\xFFC3\xFFA9 > \xFFC3\xFFA9"));
  WriteWhole(L"\xFFC3\xFFA9", "hello");
  EXPECT_THAT(Stage().copies, IsEmpty());
}

TEST_F(StageFilesTest, WhatIsDownloadedIsNotChecked) {
  server_.Script("/updates/a", test::Ok("something else"));
  manifest_.files = {Entry("a")};
  EXPECT_EQ(Stage().copies.size(), 1U);
  EXPECT_EQ(ReadWhole(L"Intermediate\\Update\\a"), "something else");
  EXPECT_EQ(server_.Requests().size(), 1U);
}

TEST_F(StageFilesTest, ABadDownloadIsFetchedAgainByTheNextRun) {
  server_.Script("/updates/a", test::Ok("w0rld"));
  server_.Script("/updates/a", test::Ok("hello"));
  manifest_.files = {Entry("a")};
  static_cast<void>(Stage());
  static_cast<void>(Stage());
  static_cast<void>(Stage());  // Now it matches.
  EXPECT_EQ(ReadWhole(L"Intermediate\\Update\\a"), "hello");
  EXPECT_EQ(server_.Requests().size(), 2U);
}

TEST_F(StageFilesTest, AFileWithAnUppercaseDigestIsAlwaysDownloaded) {
  WriteWhole(L"a", "hello");
  server_.Script("/updates/a", test::Ok("hello"));
  manifest_.files = {Entry("a", kUppercaseHelloDigest)};
  EXPECT_EQ(Stage().copies.size(), 1U);
  EXPECT_EQ(Stage().copies.size(), 1U);
  EXPECT_EQ(server_.Requests().size(), 2U);
}

TEST_F(StageFilesTest, TheFirstFailedDownloadEndsIt) {
  server_.Script("/updates/one", test::Ok("hello"));
  server_.Script("/updates/two", test::Ok("world"));
  server_.Script("/updates/four", test::Ok("hello"));
  manifest_.files = {Entry("one"), Entry("two", kWorldDigest), Entry("three"), Entry("four")};
  EXPECT_EQ(ThrownMessage<UpdaterException>([this] { static_cast<void>(Stage()); }),
            Format("Failed to download game-file '{}' with error: '404 - no such file.'",
                   server_.Url("/updates/three")));
  EXPECT_EQ(processed_, 2U);
  EXPECT_EQ(ReadWhole(L"Intermediate\\Update\\one"), "hello");
  EXPECT_EQ(ReadWhole(L"Intermediate\\Update\\two"), "world");
  EXPECT_THAT(server_.RequestedPaths(),
              ElementsAre("/updates/one", "/updates/two", "/updates/three"));
}

TEST_F(StageFilesTest, AFileThatCannotBeSavedEndsIt) {
  server_.Script("/updates/missing/a", test::Ok("hello"));
  manifest_.files = {Entry("missing/a")};
  EXPECT_EQ(
      ThrownMessage<file::FileException>([this] { static_cast<void>(Stage()); }),
      "Failed to open file for saving. File 'Intermediate\\Update\\missing/a'. Error: No such "
      "file or directory (2)");
  EXPECT_EQ(processed_, 0U);
}

}  // namespace
}  // namespace ve::sdk
