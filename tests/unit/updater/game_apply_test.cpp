#include "updater/game_apply.h"

#include "core/windows.h"

#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_set>

#include "core/directory_walk.h"
#include "core/errors.h"
#include "core/extended_length_path.h"
#include "core/files.h"
#include "core/format.h"
#include "support/temp_folder.h"
#include "support/thrown_message.h"
#include "updater/own_executable.h"

namespace ve::sdk {
namespace {

using test::ReadWhole;
using test::ThrownMessage;
using test::WriteWhole;
using testing::HasSubstr;

class GameFolder : public test::TempFolder {
 protected:
  static void MakeFile(const std::wstring& path, std::string_view content = "old") {
    for (std::size_t at = path.find(L'\\'); at != std::wstring::npos;
         at = path.find(L'\\', at + 1)) {
      CreateDirectoryW(path.substr(0, at).c_str(), nullptr);
    }
    WriteWhole(path, content);
  }
  static void MakeFolder(const wchar_t* path) { ASSERT_TRUE(CreateDirectoryW(path, nullptr)); }
};

/// What removing a directory that still holds entries raises, and for which one.
std::wstring NotEmptyDirectory(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("remove"));
    EXPECT_EQ(error.code(), std::error_code(ERROR_DIR_NOT_EMPTY, std::system_category()));
    return error.path1().native();
  }
  ADD_FAILURE() << "nothing was thrown";
  return {};
}

/// A path below the current directory as the clean-up meets it.
std::wstring Extended(std::wstring_view name) {
  return Format(L"{}\\{}", file::ExtendedLengthPath(L"."), name);
}

using CleanUpTest = GameFolder;

TEST_F(CleanUpTest, AnUnlistedFileIsRemoved) {
  MakeFile(L"old.dll");
  MakeFile(L"noextension");
  MakeFile(L".rar");  // Its only dot is its first character, so it has no extension.
  MakeFile(L"notes.rar.txt");
  CleanUp({});
  EXPECT_FALSE(file::Exists(L"old.dll"));
  EXPECT_FALSE(file::Exists(L"noextension"));
  EXPECT_FALSE(file::Exists(L".rar"));
  EXPECT_FALSE(file::Exists(L"notes.rar.txt"));
}

TEST_F(CleanUpTest, AListedFileIsKept) {
  MakeFile(L"data.pak");
  CleanUp({L"data.pak"});
  EXPECT_TRUE(file::Exists(L"data.pak"));
}

TEST_F(CleanUpTest, ListedNamesAreCaseSensitive) {
  MakeFile(L"README.TXT");
  CleanUp({L"readme.txt"});
  EXPECT_FALSE(file::Exists(L"README.TXT"));
}

TEST_F(CleanUpTest, ArchivesAreKeptWhereverTheyAre) {
  MakeFile(L"Backup.RAR");
  MakeFile(L"pack.rar\\second.rAr");  // In a folder that is kept because of its own name.
  CleanUp({});
  EXPECT_TRUE(file::Exists(L"Backup.RAR"));
  EXPECT_TRUE(file::Exists(L"pack.rar\\second.rAr"));
}

TEST_F(CleanUpTest, TheOutputFileIsKeptInTheRootOnly) {
  MakeFile(L"Output.txt");
  MakeFile(L"pack.rar\\Output.txt");
  CleanUp({});
  EXPECT_TRUE(file::Exists(L"Output.txt"));
  EXPECT_FALSE(file::Exists(L"pack.rar\\Output.txt"));
}

TEST_F(CleanUpTest, TheOutputFilesNameIsCaseSensitive) {
  MakeFile(L"output.txt");
  CleanUp({});
  EXPECT_FALSE(file::Exists(L"output.txt"));
}

TEST_F(CleanUpTest, OnlyTheRunningExecutableIsKept) {
  const std::wstring own(OwnExecutableName());
  MakeFile(own);
  MakeFile(L"_old.exe");
  MakeFile(L"pack.rar\\" + own);
  CleanUp({});
  EXPECT_TRUE(file::Exists(own));
  EXPECT_FALSE(file::Exists(L"_old.exe"));
  EXPECT_FALSE(file::Exists(L"pack.rar\\" + own));
}

TEST_F(CleanUpTest, PreservedFoldersAreKeptWithEverythingInThem) {
  const std::wstring names[] = {L"Intermediate", L"Symbols", L"Screenshots", L"CrashLogs",
                                L"updates",      L"Updater", L"Logs",        L"Saved"};
  for (const std::wstring& name : names) {
    MakeFile(name + L"\\file");
    MakeFile(name + L"\\sub\\deep\\file.txt");
    MakeFolder((name + L"\\empty").c_str());
  }
  CleanUp({});
  for (const std::wstring& name : names) {
    EXPECT_TRUE(file::Exists(name + L"\\file")) << name.c_str();
    EXPECT_TRUE(file::Exists(name + L"\\sub\\deep\\file.txt")) << name.c_str();
    EXPECT_TRUE(file::Exists(name + L"\\empty")) << name.c_str();
  }
}

TEST_F(CleanUpTest, APreservedNameBelowTheRootIsNone) {
  MakeFile(L"pack.rar\\Saved");
  CleanUp({});
  EXPECT_FALSE(file::Exists(L"pack.rar\\Saved"));
}

TEST_F(CleanUpTest, PreservedNamesAreCaseSensitive) {
  MakeFolder(L"saved");
  CleanUp({});
  EXPECT_FALSE(file::Exists(L"saved"));
  MakeFile(L"saved\\profile.sav");
  EXPECT_EQ(NotEmptyDirectory([] { CleanUp({}); }), Extended(L"saved"));
}

TEST_F(CleanUpTest, ListedNamesMatchWithSlashesOnly) {
  MakeFile(L"pack.rar\\slash");
  MakeFile(L"pack.rar\\backslash");
  CleanUp({L"pack.rar/slash", L"pack.rar\\backslash"});
  EXPECT_TRUE(file::Exists(L"pack.rar\\slash"));
  EXPECT_FALSE(file::Exists(L"pack.rar\\backslash"));
}

TEST_F(CleanUpTest, AnEmptyFolderIsRemoved) {
  MakeFolder(L"bin");
  CleanUp({L"bin/game.exe"});
  EXPECT_FALSE(file::Exists(L"bin"));
}

TEST_F(CleanUpTest, AFolderThatHoldsEntriesCannotBeRemoved) {
  MakeFile(L"bin\\game.exe");
  EXPECT_EQ(NotEmptyDirectory([] { CleanUp({L"bin/game.exe"}); }), Extended(L"bin"));
  EXPECT_TRUE(file::Exists(L"bin\\game.exe"));
}

TEST_F(CleanUpTest, NamesBeyondAsciiMatchAsTheyAreListed) {
  MakeFile(L"\xFFC3\xFFA9");
  MakeFile(L"\x00E9");
  CleanUp({L"\xFFC3\xFFA9"});
  EXPECT_TRUE(file::Exists(L"\xFFC3\xFFA9"));
  EXPECT_FALSE(file::Exists(L"\x00E9"));
}

TEST_F(CleanUpTest, APathOf300CharactersBelowAKeptFolderIsWalked) {
  std::wstring path = file::ExtendedLengthPath(L".") + L"\\Saved";
  ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
  for (int level = 0; level < 6; ++level) {
    path += L"\\" + std::wstring(50, L'd');
    ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr)) << level;
  }
  path += L"\\file";
  test::WriteWhole(path, "kept");
  MakeFile(L"unlisted");
  CleanUp({});
  EXPECT_TRUE(file::Exists(path));
  EXPECT_FALSE(file::Exists(L"unlisted"));
  file::RemoveTree(file::ExtendedLengthPath(L"Saved"));
}

TEST_F(CleanUpTest, AnEntryThatCannotBeRemovedRaisesAnError) {
  MakeFile(L"locked.dll");
  const HANDLE locked =
      CreateFileW(L"locked.dll", GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(locked, INVALID_HANDLE_VALUE);
  EXPECT_THROW(CleanUp({}), std::filesystem::filesystem_error);
  CloseHandle(locked);
  EXPECT_TRUE(file::Exists(L"locked.dll"));
}

class ApplyUpdateTest : public GameFolder {
 protected:
  ApplyUpdateTest() {
    MakeFile(L"Updater\\GameVersion.vpak", "old version");
    MakeFile(L"Intermediate\\Update\\data.pak", "new");
    MakeFile(L"data.pak", "old");
    staged_.copies = {{L"data.pak", L"Intermediate\\Update\\data.pak"}};
    staged_.names = {L"data.pak"};
  }

  void Apply() { ApplyUpdate(manifest_, staged_, std::string_view("new\0version", 11)); }
  static std::string InstalledVersion() { return ReadWhole(L"Updater\\GameVersion.vpak"); }

  GameUpdateManifest manifest_;
  StagedUpdate staged_;
};

TEST_F(ApplyUpdateTest, TheFolderMatchesTheManifestAfterwards) {
  MakeFile(L"unlisted.dll");
  Apply();
  EXPECT_EQ(ReadWhole(L"data.pak"), "new");
  EXPECT_FALSE(file::Exists(L"unlisted.dll"));
  EXPECT_FALSE(file::Exists(L"Intermediate\\Update"));
  EXPECT_TRUE(file::Exists(L"Intermediate"));
  EXPECT_EQ(InstalledVersion(), std::string("new\0version", 11));
}

TEST_F(ApplyUpdateTest, ListedDirectoriesAreMadeWithTheirParentsBeforeTheFilesAreCopied) {
  manifest_.directories = {"Saved/a/b", "Saved"};
  staged_.copies[0].name = L"Saved/a/b/data.pak";
  Apply();
  EXPECT_EQ(ReadWhole(L"Saved\\a\\b\\data.pak"), "new");
}

TEST_F(ApplyUpdateTest, ListedDirectoriesAreWidenedByteByByte) {
  manifest_.directories = {"Saved/\xC3\xA9"};
  Apply();
  EXPECT_TRUE(file::Exists(L"Saved\\\xFFC3\xFFA9"));
}

TEST_F(ApplyUpdateTest, AFailedCopyEndsItBeforeAnythingIsRemoved) {
  MakeFile(L"unlisted.dll");
  staged_.copies[0].name = L"missing/data.pak";
  EXPECT_EQ(ThrownMessage<file::FileException>([this] { Apply(); }),
            "Failed to copy file from 'Intermediate\\Update\\data.pak' to 'missing/data.pak': " +
                std::system_category().message(ERROR_PATH_NOT_FOUND));
  EXPECT_TRUE(file::Exists(L"unlisted.dll"));
  EXPECT_EQ(ReadWhole(L"Intermediate\\Update\\data.pak"), "new");
  EXPECT_EQ(InstalledVersion(), "old version");
}

TEST_F(ApplyUpdateTest, AFailedCleanUpEndsItWithTheFilesInstalledAndAllElseOld) {
  MakeFile(L"bin\\game.exe");
  EXPECT_EQ(NotEmptyDirectory([this] { Apply(); }), Extended(L"bin"));
  EXPECT_EQ(ReadWhole(L"data.pak"), "new");
  EXPECT_EQ(ReadWhole(L"Intermediate\\Update\\data.pak"), "new");
  EXPECT_EQ(InstalledVersion(), "old version");
}

TEST_F(ApplyUpdateTest, AStagingFolderThatCannotBeRemovedIsLeft) {
  const HANDLE locked = CreateFileW(L"Intermediate\\Update\\data.pak", GENERIC_READ,
                                    FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(locked, INVALID_HANDLE_VALUE);
  EXPECT_NO_THROW(Apply());
  CloseHandle(locked);
  EXPECT_TRUE(file::Exists(L"Intermediate\\Update\\data.pak"));
  EXPECT_EQ(InstalledVersion(), std::string("new\0version", 11));
}

TEST_F(ApplyUpdateTest, TheVersionIsRecordedLast) {
  MakeFile(L"unlisted.dll");
  const HANDLE locked = CreateFileW(L"Updater\\GameVersion.vpak", GENERIC_READ, FILE_SHARE_READ,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(locked, INVALID_HANDLE_VALUE);
  EXPECT_EQ(ThrownMessage<file::FileException>([this] { Apply(); }),
            "Failed to open file for saving. File 'Updater\\GameVersion.vpak'. Error: Permission "
            "denied (13)");
  CloseHandle(locked);
  EXPECT_EQ(ReadWhole(L"data.pak"), "new");
  EXPECT_FALSE(file::Exists(L"unlisted.dll"));
  EXPECT_FALSE(file::Exists(L"Intermediate\\Update"));
  EXPECT_EQ(InstalledVersion(), "old version");
}

TEST_F(ApplyUpdateTest, AFileListedWithABackslashIsInstalledAndThenRemoved) {
  staged_.copies[0].name = L"pack.rar\\data";
  staged_.names = {L"pack.rar\\data"};
  MakeFolder(L"pack.rar");
  Apply();
  EXPECT_FALSE(file::Exists(L"pack.rar\\data"));
}

}  // namespace
}  // namespace ve::sdk
