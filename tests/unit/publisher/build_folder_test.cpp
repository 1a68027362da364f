#include "publisher/build/build_folder.h"

#include "core/windows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "core/files.h"
#include "core/unicode.h"
#include "support/temp_folder.h"

namespace ve::publish {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> Told(const std::vector<Diagnostic>& diagnostics) {
  std::vector<std::string> told;
  for (const Diagnostic& diagnostic : diagnostics)
    told.push_back(diagnostic.subject + ": " + diagnostic.message);
  return told;
}

class BuildFolderTest : public test::TempFolder {
 protected:
  BuildFolderTest() { file::MakeDirectory(L"bin"); }

  Diagnostics Read() {
    Diagnostics diagnostics;
    build_ = ReadBuildFolder(Folder(), {L"Launcher.exe"}, diagnostics);
    return diagnostics;
  }

  BuildFolder build_;
};

TEST_F(BuildFolderTest, ABuildWithTheGameIsReadWithoutARemark) {
  test::WriteWhole(L"bin\\Velmorant Player.exe", "game");
  test::WriteWhole(L"a.txt", "a");
  const Diagnostics diagnostics = Read();
  EXPECT_THAT(Told(diagnostics.errors), IsEmpty());
  EXPECT_THAT(Told(diagnostics.warnings), IsEmpty());
  EXPECT_THAT(build_.directories, ElementsAre(L"bin"));
  ASSERT_EQ(build_.files.size(), 2U);
  EXPECT_EQ(build_.files[0].name, L"a.txt");
  EXPECT_EQ(build_.files[1].name, L"bin/Velmorant Player.exe");
  EXPECT_EQ(build_.files[1].size, 4U);
}

TEST_F(BuildFolderTest, ABuildWithoutTheGameIsAnErrorUnlessForced) {
  test::WriteWhole(L"Velmorant Player.exe", "game");
  static_cast<void>(Read());
  Diagnostics diagnostics;
  CheckGameProgram(L"D:\\build", build_, false, diagnostics);
  const std::string message = "D:\\build: no bin\\Velmorant Player.exe";
  EXPECT_THAT(Told(diagnostics.errors), ElementsAre(message));
  CheckGameProgram(L"D:\\build", build_, true, diagnostics);
  EXPECT_EQ(diagnostics.errors.size(), 1U);
  EXPECT_THAT(Told(diagnostics.warnings), ElementsAre(message));
}

TEST_F(BuildFolderTest, TheGamesNameMayBeInAnotherCase) {
  test::WriteWhole(L"bin\\velmorant player.EXE", "game");
  Diagnostics diagnostics = Read();
  CheckGameProgram(Folder(), build_, false, diagnostics);
  EXPECT_FALSE(diagnostics.HasErrors());
}

class ChangedBuild : public BuildFolderTest {
 protected:
  ChangedBuild() {
    test::WriteWhole(L"bin\\a.dat", "first");
    test::WriteWhole(L"bin\\b.dat", "second");
    EXPECT_THAT(Told(Read().errors), IsEmpty());
  }

  std::vector<std::string> Changes() {
    Diagnostics diagnostics;
    CheckUnchanged(Folder(), {L"Launcher.exe"}, build_, diagnostics);
    return Told(diagnostics.errors);
  }

  static void SetTime(const wchar_t* path, std::int64_t ticks) {
    const HANDLE file =
        CreateFileW(path, FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    FILETIME time{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
    EXPECT_TRUE(SetFileTime(file, nullptr, nullptr, &time));
    CloseHandle(file);
  }
};

constexpr const char* kChanged =
    "bin/b.dat: was added, changed or removed while the build was published";

TEST_F(ChangedBuild, WithoutAChangeNothingIsTold) { EXPECT_THAT(Changes(), IsEmpty()); }

TEST_F(ChangedBuild, AnotherSizeIsTold) {
  test::WriteWhole(L"bin\\b.dat", "another");
  SetTime(L"bin\\b.dat", build_.files[1].written);
  EXPECT_THAT(Changes(), ElementsAre(kChanged));
}

TEST_F(ChangedBuild, AnotherTimeIsToldBothWays) {
  const std::int64_t second = 10'000'000;
  SetTime(L"bin\\b.dat", build_.files[1].written + second);
  EXPECT_THAT(Changes(), ElementsAre(kChanged));
  SetTime(L"bin\\b.dat", build_.files[1].written - second);
  EXPECT_THAT(Changes(), ElementsAre(kChanged));
}

TEST_F(ChangedBuild, ANewEntryIsTold) {
  test::WriteWhole(L"c.dat", "third");
  file::MakeDirectory(L"empty");
  EXPECT_THAT(Changes(),
              ElementsAre("c.dat: was added, changed or removed while the build was published",
                          "empty: was added, changed or removed while the build was published"));
}

TEST_F(ChangedBuild, AMissingFileIsTold) {
  file::Remove(L"bin\\b.dat");
  EXPECT_THAT(Changes(), ElementsAre(kChanged));
}

}  // namespace
}  // namespace ve::publish
