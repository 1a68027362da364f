#include "publisher/build/name_rules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace ve::publish {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<std::string> Rules(const std::vector<Diagnostic>& diagnostics) {
  std::vector<std::string> rules;
  for (const Diagnostic& diagnostic : diagnostics) rules.push_back(diagnostic.message);
  return rules;
}

Diagnostics Check(std::wstring_view name, NameKind kind = NameKind::kFile) {
  Diagnostics diagnostics;
  CheckName(name, kind, L"Launcher.exe", "subject", diagnostics);
  return diagnostics;
}

std::vector<std::string> Refusals(std::wstring_view name, NameKind kind = NameKind::kFile) {
  return Rules(Check(name, kind).errors);
}

TEST(NameRules, OrdinaryNamesPassWithoutARemark) {
  for (const wchar_t* name :
       {L"bin/Velmorant Player.exe", L"a", L".hidden", L"a.b.c", L"bin/ leading blank",
        L"data/level-1_final (2)!.dat", L"~&$@,;=", L"Updater.txt", L"bin/updater/x",
        L"bin/Launcher.exe", L"Launcher.exe.config", L"bin/_old.exe", L"Intermediate.txt",
        L"Intermediate/Updates", L"COM10", L"CONSOLE", L"NULL.txt", L"bin/GameVersion.vpak"}) {
    const Diagnostics diagnostics = Check(name);
    EXPECT_THAT(Rules(diagnostics.errors), IsEmpty()) << name;
    EXPECT_THAT(Rules(diagnostics.warnings), IsEmpty()) << name;
  }
}

TEST(NameRules, ARemarkNamesTheEntryTheRuleAndTheWayOut) {
  const Diagnostics diagnostics = Check(L"bin/it's.txt");
  ASSERT_EQ(diagnostics.errors.size(), 1U);
  EXPECT_EQ(diagnostics.errors[0].subject, "subject");
  EXPECT_EQ(diagnostics.errors[0].message, "a single quote ends the name in the manifest");
  EXPECT_EQ(diagnostics.errors[0].hint, "Rename it.");
}

TEST(NameRules, OnlyPrintableAsciiPasses) {
  for (const wchar_t* name : {L"\u00fcber.txt", L"a\rb", L"a\nb", L"a\tb", L"a\x7f", L"\u65e5",
                              L"a\xdc00", L"com\u00b9"}) {
    EXPECT_THAT(Refusals(name), ElementsAre(HasSubstr("non-ASCII or control characters")));
  }
}

TEST(NameRules, WhatAnAddressCannotCarryIsRefused) {
  for (const wchar_t* name : {L"100%.txt", L"%41", L"a#b"}) {
    EXPECT_THAT(Refusals(name), ElementsAre(HasSubstr("does not encode %, # and ? in URLs")))
        << name;
  }
  EXPECT_THAT(Refusals(L"a?b"), ElementsAre(HasSubstr("does not encode %, # and ? in URLs")));
}

TEST(NameRules, WhatWindowsForbidsIsRefused) {
  for (const wchar_t* name : {L"a\"b", L"a*b", L"ab:c", L"a<b", L"a>b", L"a|b"}) {
    EXPECT_THAT(Refusals(name), ElementsAre(HasSubstr("Windows does not allow"))) << name;
  }
}

TEST(NameRules, DevicesAreRefusedWhateverTheirExtensionAndCase) {
  for (const wchar_t* name : {L"CON", L"nul.txt", L"bin/Aux", L"prn.a.b", L"COM1", L"com0.dat",
                              L"LPT9.x", L"NUL .txt", L"conin$", L"CONOUT$.x"}) {
    EXPECT_THAT(Refusals(name), ElementsAre(HasSubstr("is a reserved device name"))) << name;
  }
  EXPECT_THAT(Refusals(L"aux", NameKind::kDirectory),
              ElementsAre(HasSubstr("is a reserved device name")));
}

TEST(NameRules, DotsAndBlanksAtTheEndAreRefused) {
  for (const wchar_t* name : {L"a.", L"a ", L"bin/a.txt ", L"..."}) {
    EXPECT_THAT(Refusals(name), ElementsAre(HasSubstr("dots and spaces from the end"))) << name;
  }
}

TEST(NameRules, NamesThatLeadOutsideTheGamesFolderAreReportedAsThat) {
  for (const wchar_t* name :
       {L"/x", L"\\x", L"//host/share/x", L"\\\\host\\x", L"..", L"../x", L"bin/../x",
        L"bin\\..\\x", L"bin/..", L"C:/x", L"C:\\x", L"c:x", L"\\\\?\\C:\\x", L"/"}) {
    for (const NameKind kind : {NameKind::kFile, NameKind::kDirectory}) {
      EXPECT_THAT(Refusals(name, kind), ElementsAre("leads outside the game's folder")) << name;
    }
  }
}

TEST(NameRules, PathsThatAreNotWrittenAsListedAreReportedAsThat) {
  for (const wchar_t* name : {L"bin//x", L"bin/", L"", L"bin\\\\x"}) {
    EXPECT_THAT(Refusals(name).size(), 1U) << name;
  }
  EXPECT_THAT(Refusals(L"bin//x"), ElementsAre("has an empty part"));
  EXPECT_THAT(Refusals(L"bin/"), ElementsAre("has an empty part"));
  EXPECT_THAT(Refusals(L"bin/./x"), ElementsAre("has the part '.'"));
  EXPECT_THAT(Refusals(L"./x"), ElementsAre("has the part '.'"));
  EXPECT_THAT(Refusals(L"bin\\x"), ElementsAre("is written with a backslash"));
}

TEST(NameRules, WhatIsWrongWithAFolderIsToldForTheFolderOnly) {
  EXPECT_THAT(Refusals(L"a./b"), IsEmpty());
  EXPECT_THAT(Refusals(L"nul/b"), IsEmpty());
  EXPECT_THAT(Refusals(L"it's/b"), IsEmpty());
}

TEST(NameRules, AFilesStagedPathHasAtMost255Characters) {
  constexpr std::size_t kStaging = 20;  // Intermediate\Update with its last separator.
  EXPECT_THAT(Refusals(std::wstring(255 - kStaging, L'a')), IsEmpty());
  EXPECT_THAT(Refusals(std::wstring(256 - kStaging, L'a')),
              ElementsAre("its path in the staging folder has 256 characters; the Launcher opens "
                          "at most 255"));
}

TEST(NameRules, AFolderIsStagedWithOneSeparatorMore) {
  constexpr std::size_t kStaging = 20;
  EXPECT_THAT(Refusals(std::wstring(254 - kStaging, L'a'), NameKind::kDirectory), IsEmpty());
  EXPECT_THAT(Refusals(std::wstring(255 - kStaging, L'a'), NameKind::kDirectory),
              ElementsAre(HasSubstr("has 256 characters")));
}

bool ChecksBelow(std::wstring_view name) {
  Diagnostics diagnostics;
  return CheckName(name, NameKind::kDirectory, L"Launcher.exe", "subject", diagnostics);
}

TEST(NameRules, TheStagingFolderIsTheLaunchers) {
  EXPECT_THAT(Refusals(L"Intermediate/Update"), ElementsAre(HasSubstr("stages updates")));
  EXPECT_THAT(Refusals(L"INTERMEDIATE/update", NameKind::kDirectory),
              ElementsAre(HasSubstr("stages updates")));
  EXPECT_THAT(Refusals(L"intermediate"), ElementsAre(HasSubstr("stages updates")));
  EXPECT_THAT(Refusals(L"Intermediate/update/x"), ElementsAre(HasSubstr("stages updates")));
  EXPECT_THAT(Refusals(L"Intermediate", NameKind::kDirectory), IsEmpty());
  EXPECT_FALSE(ChecksBelow(L"intermediate/UPDATE"));
  EXPECT_TRUE(ChecksBelow(L"Intermediate"));
}

TEST(NameRules, TheServersOwnNamesAreTaken) {
  EXPECT_THAT(Refusals(L"game_update.manifest"),
              ElementsAre(HasSubstr("publish writes a file of this name")));
  EXPECT_THAT(Refusals(L"gameversion.VPAK"),
              ElementsAre(HasSubstr("publish writes a file of this name")));
  EXPECT_THAT(Refusals(L"Updater", NameKind::kDirectory),
              ElementsAre(HasSubstr("belongs to the Launcher")));
  EXPECT_THAT(Refusals(L"updater"), ElementsAre(HasSubstr("belongs to the Launcher")));
  EXPECT_THAT(Refusals(L"updater/x"), ElementsAre(HasSubstr("belongs to the Launcher")));
  EXPECT_THAT(Refusals(L"updaters/x"), IsEmpty());
  EXPECT_FALSE(ChecksBelow(L"UPDATER"));
  EXPECT_TRUE(ChecksBelow(L"bin/updater"));
}

TEST(NameRules, TheLaunchersFileCannotBePublishedWithTheGame) {
  EXPECT_THAT(Refusals(L"launcher.EXE"), ElementsAre(HasSubstr("cannot replace itself")));
  EXPECT_THAT(Refusals(L"_Old.exe"), ElementsAre(HasSubstr("deletes this file")));
  Diagnostics diagnostics;
  CheckName(L"Launcher.exe", NameKind::kFile, L"Start.exe", "subject", diagnostics);
  EXPECT_THAT(Rules(diagnostics.errors), IsEmpty());
}

TEST(NameRules, SeveralThingsWrongAreAllTold) {
  EXPECT_EQ(Check(L"nul.it's 100% ").errors.size(), 4U);
}

TEST(NameRules, CaseKeysAreThoseOfTheFileSystem) {
  EXPECT_EQ(FoldCase(L"Bin/a.DLL"), FoldCase(L"bIN/A.dll"));
  EXPECT_EQ(FoldCase(L"Bin\\a"), L"BIN/A");
  EXPECT_EQ(FoldCase(L"\u00e4/\u0436"), L"\u00c4/\u0416");
  EXPECT_NE(FoldCase(L"a"), FoldCase(L"b"));
}

}  // namespace
}  // namespace ve::publish
