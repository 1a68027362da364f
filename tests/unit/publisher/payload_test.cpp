#include "publisher/channel/payload.h"

#include "core/windows.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "core/files.h"
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
    build_.files = {
        {L"bin/changed.dat", 7, 0, {}}, {L"bin/new.dat", 3, 0, {}}, {L"bin/same.dat", 4, 0, {}}};
  }

  CopyStats Lookup() {
    const auto quietly = [](const Progress&) {};
    const std::vector<bool> isPublished = DigestBuild(source_, published_, build_, quietly);
    EXPECT_EQ(isPublished, (std::vector<bool>{false, false, true}));
    return PlacePayload(source_, published_, build_, isPublished, next_, quietly);
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
};

TEST_F(Payload, WhatIsPublishedAlreadyIsLinked) {
  const CopyStats placed = Lookup();
  EXPECT_EQ(placed.linkedFiles, 1U);
  EXPECT_EQ(placed.copiedFiles, 2U);
  EXPECT_EQ(placed.copiedBytes, 10U);
  ExpectTheBuildInNext();
  EXPECT_TRUE(IsShared(L"\\bin\\same.dat"));
}

TEST_F(Payload, WhereThereAreNoLinksItIsCopied) {
  // What is published is copied, not what the build has by now.
  const test::ReplacedCall call(VE_IMPORTED(CreateHardLinkW), NoLinks);
  const CopyStats placed = Lookup();
  EXPECT_EQ(placed.linkedFiles, 0U);
  EXPECT_EQ(placed.copiedFiles, 3U);
  EXPECT_EQ(placed.copiedBytes, 14U);
  ExpectTheBuildInNext();
  EXPECT_FALSE(file::Exists(next_ + L"\\bin\\same.dat.publishing"));
  EXPECT_FALSE(IsShared(L"\\bin\\same.dat"));
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
