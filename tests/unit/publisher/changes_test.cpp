#include "publisher/channel/changes.h"

#include <gtest/gtest.h>

#include "core/files.h"
#include "core/unicode.h"
#include "publisher/files/paths.h"
#include "support/temp_folder.h"

namespace ve::publish {
namespace {

class UploadLists : public test::TempFolder {
 protected:
  void Write(const Changes& changes) {
    WriteUploadLists(ExtendedLengthPath(ToUtf8(folder_)), L"beta", changes);
  }
  [[nodiscard]] std::string List(const std::wstring& name) const {
    return test::ReadWhole(folder_ + L"\\" + name);
  }

  const std::wstring folder_ = Folder() + L"\\made\\lists";
};

TEST_F(UploadLists, HoldEachStepOfAnUpload) {
  Write({{L"bin/new one.dll"}, {L"bin/game.exe"}, {L"gone+.txt", L"old/x"}});
  EXPECT_EQ(List(L"1-payload.txt"), "updates/beta/bin/new one.dll\nupdates/beta/bin/game.exe\n");
  EXPECT_EQ(List(L"2-manifest.txt"), "updates/beta/game_update.manifest\n");
  EXPECT_EQ(List(L"3-version.txt"), "updates/beta/GameVersion.vpak\n");
  EXPECT_EQ(List(L"4-delete.txt"), "updates/beta/gone+.txt\nupdates/beta/old/x\n");
  EXPECT_EQ(List(L"5-purge.txt"),
            "/updates/beta/bin/game.exe\n/updates/beta/gone+.txt\n/updates/beta/old/x\n"
            "/updates/beta/game_update.manifest\n/updates/beta/GameVersion.vpak\n");
}

TEST_F(UploadLists, ReplaceThoseOfAnEarlierRun) {
  Write({{L"a"}, {}, {L"b"}});
  Write({});
  EXPECT_EQ(List(L"1-payload.txt"), "");
  EXPECT_EQ(List(L"2-manifest.txt"), "updates/beta/game_update.manifest\n");
  EXPECT_EQ(List(L"4-delete.txt"), "");
}

TEST_F(UploadLists, WhatAUrlDoesNotTakeIsEscaped) {
  Write({{}, {L"a b/[1]^{2}-_.~!$&()+,;=@`"}, {}});
  EXPECT_EQ(List(L"5-purge.txt").substr(0, 59),
            "/updates/beta/a%20b/%5B1%5D%5E%7B2%7D-_.~!$&()+,;=@%60\n/upd");
}

TEST_F(UploadLists, AFileWithOnlyTheCaseOfItsNameChangedIsNotDeleted) {
  Write({{L"bin/Data.pak"}, {}, {L"Bin/data.pak", L"bin/x"}});
  EXPECT_EQ(List(L"4-delete.txt"), "updates/beta/bin/x\n");
}

}  // namespace
}  // namespace ve::publish
