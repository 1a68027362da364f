#include "updater/cleanup_rules.h"

#include <gtest/gtest.h>
#include <string_view>
#include <unordered_set>

namespace ve::sdk {
namespace {

const std::unordered_set<std::wstring_view> kListed{L"bin/Game.dll", L"readme.txt", L"data/a b.pak",
                                                    L"backslash\\named.txt", L"plain"};

bool Keeps(std::wstring_view relativePath) {
  return CleanupRules(kListed, L"Launcher.exe").Keeps(relativePath);
}

TEST(CleanupRules, ListedFilesStay) {
  EXPECT_TRUE(Keeps(L"bin\\Game.dll"));
  EXPECT_TRUE(Keeps(L"readme.txt"));
  EXPECT_TRUE(Keeps(L"data\\a b.pak"));
}

TEST(CleanupRules, UnlistedFilesGo) {
  EXPECT_FALSE(Keeps(L"bin\\old.dll"));
  EXPECT_FALSE(Keeps(L"Game.dll"));
  EXPECT_FALSE(Keeps(L"bin\\sub\\Game.dll"));
  EXPECT_FALSE(Keeps(L"Launcher_old.exe"));
}

TEST(CleanupRules, NamesAreListedCaseSensitively) {
  EXPECT_FALSE(Keeps(L"README.TXT"));
  EXPECT_FALSE(Keeps(L"Bin\\Game.dll"));
}

TEST(CleanupRules, ANameListedWithABackslashNeverMatches) {
  EXPECT_FALSE(Keeps(L"backslash\\named.txt"));
}

TEST(CleanupRules, DirectoriesFollowTheRulesOfFiles) {
  EXPECT_FALSE(Keeps(L"bin"));
  EXPECT_FALSE(Keeps(L"data"));
  EXPECT_TRUE(Keeps(L"plain"));
}

TEST(CleanupRules, PreservedFoldersStayWithAllTheyHold) {
  for (const std::wstring_view name : {L"Intermediate", L"Symbols", L"Screenshots", L"CrashLogs",
                                       L"updates", L"Updater", L"Logs", L"Saved"}) {
    EXPECT_TRUE(Keeps(name));
    EXPECT_TRUE(Keeps(std::wstring(name) + L"\\file.txt"));
    EXPECT_TRUE(Keeps(std::wstring(name) + L"\\deep\\er\\file.txt"));
  }
}

TEST(CleanupRules, PreservedNamesAreExact) {
  for (const std::wstring_view name :
       {L"intermediate", L"SYMBOLS", L"screenshots", L"Crashlogs", L"Updates", L"updater", L"logs",
        L"saved", L"Saved2", L"Save", L"Saved ", L""}) {
    EXPECT_FALSE(Keeps(name));
    EXPECT_FALSE(Keeps(std::wstring(name) + L"\\profile.sav"));
  }
}

TEST(CleanupRules, PreservedNamesCountAtTheTopOnly) {
  EXPECT_FALSE(Keeps(L"bin\\Saved\\profile.sav"));
  EXPECT_FALSE(Keeps(L"bin\\Saved"));
}

TEST(CleanupRules, AFileMayHaveAPreservedName) { EXPECT_TRUE(Keeps(L"Saved")); }

TEST(CleanupRules, OutputTxtStaysAtTheTopOnly) {
  EXPECT_TRUE(Keeps(L"Output.txt"));
  EXPECT_FALSE(Keeps(L"bin\\Output.txt"));
  EXPECT_FALSE(Keeps(L"output.txt"));
  EXPECT_FALSE(Keeps(L"Output.txt.bak"));
}

TEST(CleanupRules, RarFilesStayAnywhereInAnyCase) {
  EXPECT_TRUE(Keeps(L"Backup.RAR"));
  EXPECT_TRUE(Keeps(L"bin\\deep\\Backup.rAr"));
  EXPECT_TRUE(Keeps(L"a.b.rar"));
  EXPECT_TRUE(Keeps(L"bin\\.rar"));
}

TEST(CleanupRules, OnlyTheLastExtensionCounts) {
  EXPECT_FALSE(Keeps(L"notes.rar.txt"));
  EXPECT_FALSE(Keeps(L"a.rar2"));
  EXPECT_FALSE(Keeps(L"a.ra"));
  EXPECT_FALSE(Keeps(L"rar"));
  EXPECT_FALSE(Keeps(L"a.rar."));
}

TEST(CleanupRules, ADotAtTheVeryBeginningMakesNoExtension) { EXPECT_FALSE(Keeps(L".rar")); }

TEST(CleanupRules, TheLastDotMayStandInAFoldersName) {
  EXPECT_TRUE(Keeps(L"old.rar"));  // The folder itself.
  EXPECT_FALSE(Keeps(L"old.rar\\file"));
  EXPECT_FALSE(Keeps(L"old.x\\rar"));
}

TEST(CleanupRules, TheOwnExecutableStaysAtTheTopOnly) {
  EXPECT_TRUE(Keeps(L"Launcher.exe"));
  EXPECT_FALSE(Keeps(L"bin\\Launcher.exe"));
  EXPECT_FALSE(Keeps(L"launcher.exe"));
}

TEST(CleanupRules, ANameBeyondAsciiMatchesByItsWidenedUnits) {
  const std::unordered_set<std::wstring_view> listed{L"bin/\xFFC3\xFFA9"};
  const CleanupRules rules(listed, L"Launcher.exe");
  EXPECT_TRUE(rules.Keeps(L"bin\\\xFFC3\xFFA9"));
  EXPECT_FALSE(rules.Keeps(L"bin\\\x00C3\x00A9"));
  EXPECT_FALSE(rules.Keeps(L"bin\\\x00E9"));
}

}  // namespace
}  // namespace ve::sdk
