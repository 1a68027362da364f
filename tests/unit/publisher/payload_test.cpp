#include "publisher/channel/payload.h"

#include "core/windows.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "core/files.h"
#include "core/handle.h"
#include "core/md5.h"
#include "support/replaced_call.h"
#include "support/temp_folder.h"

extern "C" void* VE_IMPORTED(CreateHardLinkW);

namespace ve::publish {
namespace {

BOOL WINAPI NoLinks(LPCWSTR, LPCWSTR, LPSECURITY_ATTRIBUTES) {
  SetLastError(ERROR_INVALID_FUNCTION);  // As on a file system without them.
  return FALSE;
}

class Payload : public test::TempFolder {
 protected:
  Payload() {
    for (const std::wstring& folder : {source_, published_, next_}) {
      file::MakeDirectories(folder + L"\\bin");
    }
    test::WriteWhole(source_ + L"\\bin\\same.dat", "same");
    test::WriteWhole(published_ + L"\\bin\\same.dat", "same");
    test::WriteWhole(source_ + L"\\bin\\changed.dat", "new one");
    test::WriteWhole(published_ + L"\\bin\\changed.dat", "old one");
    test::WriteWhole(source_ + L"\\bin\\new.dat", "new");
    build_.directories = {L"bin"};
    build_.files = {{L"bin/changed.dat", 7}, {L"bin/new.dat", 3}, {L"bin/same.dat", 4}};
  }

  /// Published is what the manifest lists and the folder has.
  bool Find() {
    const std::string same = Md5Hex(std::string("same"));
    const std::string changed = Md5Hex(std::string("old one"));
    const sdk::GameUpdateManifest live{
        {"bin"},
        {{L"bin/changed.dat", 7, changed}, {L"bin/new.dat", 3, same}, {L"bin/same.dat", 4, same}}};
    return FindPublished(source_, published_, live, build_, console_);
  }

  void Place() {
    const std::string same = Md5Hex(std::string("same"));
    EXPECT_FALSE(Find());
    EXPECT_TRUE(build_.files[0].digest == Md5Hex(std::string("new one")) &&
                !build_.files[0].isPublished);
    EXPECT_TRUE(build_.files[1].digest.empty() && !build_.files[1].isPublished);
    EXPECT_TRUE(build_.files[2].digest == same && build_.files[2].isPublished);
    PlacePayload(source_, published_, build_, next_, console_);
    EXPECT_EQ(build_.files[1].digest, Md5Hex(std::string("new")));
  }

  void ExpectTheBuildInNext() {
    EXPECT_EQ(test::ReadWhole(next_ + L"\\bin\\same.dat"), "same");
    EXPECT_EQ(test::ReadWhole(next_ + L"\\bin\\changed.dat"), "new one");
    EXPECT_EQ(test::ReadWhole(next_ + L"\\bin\\new.dat"), "new");
  }

  /// Whether the two states share the file that has not changed.
  [[nodiscard]] bool IsShared(const std::wstring& name) const {
    test::WriteWhole(published_ + name, "afterwards");
    return test::ReadWhole(next_ + name) == "afterwards";
  }

  const std::wstring source_ = Folder() + L"\\source";
  const std::wstring published_ = Folder() + L"\\published";
  const std::wstring next_ = Folder() + L"\\next";
  BuildFolder build_;
  Console console_{Console::Style::kJson, "test"};
};

TEST_F(Payload, WhatIsPublishedAlreadyIsLinked) {
  Place();
  EXPECT_FALSE(build_.files[0].isPublished || build_.files[1].isPublished);
  EXPECT_TRUE(build_.files[2].isPublished);
  ExpectTheBuildInNext();
  EXPECT_TRUE(IsShared(L"\\bin\\same.dat"));
}

TEST_F(Payload, WhereThereAreNoLinksItIsCopied) {
  const test::ReplacedCall call(VE_IMPORTED(CreateHardLinkW), NoLinks);
  Place();
  EXPECT_FALSE(build_.files[2].isPublished);
  ExpectTheBuildInNext();
  EXPECT_FALSE(file::Exists(next_ + L"\\bin\\same.dat.publishing"));
  EXPECT_FALSE(IsShared(L"\\bin\\same.dat"));
}

TEST_F(Payload, AFileThatCannotBeReadIsAnError) {
  const std::wstring path = source_ + L"\\bin\\same.dat";
  const UniqueFileHandle inUse(
      CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  EXPECT_THROW(Find(), PublishError);
  EXPECT_THROW(DigestOthers(source_, build_, console_), PublishError);
  EXPECT_THROW(PlacePayload(source_, published_, build_, next_, console_), PublishError);
}

TEST_F(Payload, AFileThatChangesBeforeItsCopyIsAnError) {
  build_.files[1].digest = Md5Hex(std::string("old"));
  EXPECT_THROW(PlacePayload(source_, published_, build_, next_, console_), PublishError);
}

TEST_F(Payload, DigestsThatAreMissingAreComputedWithoutCopying) {
  build_.files[0].digest = "known";
  DigestOthers(source_, build_, console_);
  EXPECT_EQ(build_.files[0].digest, "known");
  EXPECT_EQ(build_.files[1].digest, Md5Hex(std::string("new")));
  EXPECT_FALSE(file::Exists(next_ + L"\\bin\\new.dat"));
}

TEST_F(Payload, TheLaunchersUpdateIsTakenOverWithAndWithoutLinks) {
  file::MakeDirectory(published_ + L"\\updater");
  test::WriteWhole(published_ + L"\\updater\\Launcher.exe", "launcher");
  PlaceLauncher(published_, next_);
  EXPECT_EQ(test::ReadWhole(next_ + L"\\updater\\Launcher.exe"), "launcher");

  const std::wstring other = Folder() + L"\\other";
  file::MakeDirectory(other);
  const test::ReplacedCall call(VE_IMPORTED(CreateHardLinkW), NoLinks);
  PlaceLauncher(published_, other);
  EXPECT_EQ(test::ReadWhole(other + L"\\updater\\Launcher.exe"), "launcher");
  test::WriteWhole(published_ + L"\\updater\\Launcher.exe", "afterwards");
  EXPECT_EQ(test::ReadWhole(other + L"\\updater\\Launcher.exe"), "launcher");
}

TEST_F(Payload, WithoutALaunchersUpdateThereIsNoneNext) {
  PlaceLauncher(published_, next_);
  EXPECT_FALSE(file::Exists(next_ + L"\\updater"));
}

}  // namespace
}  // namespace ve::publish
