#include "publisher/preview/imagined_disk.h"

#include "core/windows.h"

#include <array>
#include <exception>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "core/directory_walk.h"
#include "core/files.h"
#include "core/format.h"
#include "core/md5.h"
#include "support/temp_folder.h"

namespace ve::publish {
namespace {

using test::WriteWhole;
using testing::ElementsAre;
using testing::IsEmpty;

const ContentMatch kUnknown = [](std::uint64_t, std::string_view) { return false; };

using Walk =
    std::function<void(const std::function<file::WalkAction(const file::DirectoryEntry&)>&)>;

/// The paths met on a walk, a slash behind those of directories.
std::vector<std::wstring> Met(const Walk& walk) {
  std::vector<std::wstring> paths;
  walk([&paths](const file::DirectoryEntry& entry) {
    paths.push_back(Format(entry.IsDirectory() ? L"{}/" : L"{}", entry.path));
    return file::WalkAction::kRecurse;
  });
  return paths;
}

std::vector<std::wstring> OnDisk() {
  return Met([](const auto& visit) { file::WalkDirectory(L".", visit); });
}

std::vector<std::wstring> Imagined(const ImaginedDisk& disk) {
  return Met([&disk](const auto& visit) { disk.WalkDirectory(L".", visit); });
}

/// What an operation throws, in words; empty if nothing.
std::string Failure(const std::function<void()>& operation) {
  try {
    operation();
    return {};
  } catch (const std::exception& error) {
    return error.what();
  }
}

class ImaginedDiskTest : public test::TempFolder {
 protected:
  static void Populate() {
    for (const wchar_t* directory : {L"bin", L"bin\\Data", L"empty", L"Saved"}) {
      file::MakeDirectory(directory);
    }
    for (const wchar_t* file : {L"a.txt", L"bin\\x", L"bin\\Data\\level", L"Saved\\save"}) {
      WriteWhole(file, "content");
    }
  }
};

TEST_F(ImaginedDiskTest, IsWalkedInTheOrderOfTheRealOne) {
  for (const wchar_t* name :
       {L"_a",     L"Zed",     L"alpha",  L"Alphb",  L"[x",     L"^y",     L"~t",     L"a b",
        L"a.b",    L"a-b",     L"ab",     L"1",      L"10",     L"2",      L"\u00e4", L"\u00c4b",
        L"\u00ff", L"\u0178a", L"\u0131", L"\u00b5", L"\u4e2d", L"\uff9f", L"{z",     L"`q",
        L"A`",     L"i2",      L"I1",     L"k2",     L"\u212a", L"\u01c5", L"\u01c4a"}) {
    WriteWhole(name, "");
  }
  Populate();
  const ImaginedDisk disk(L"a.txt");
  EXPECT_EQ(Imagined(disk), OnDisk());
}

/// One random operation after the other, imagined and then done: the same errors, the same tree.
class RandomOperations : public ImaginedDiskTest, public testing::WithParamInterface<unsigned> {
 protected:
  std::wstring Path() {
    static constexpr std::array<const wchar_t*, 14> kNames{
        L"bin", L"BIN",   L"x",     L"X",     L"Data", L"data", L"empty",
        L"new", L"a.txt", L"Saved", L"level", L".",    L"q?",   L"New"};
    std::wstring path;
    for (std::size_t depth = JoinPath(3);; --depth) {
      path += kNames[JoinPath(kNames.size())];
      if (depth == 0) break;
      path += JoinPath(2) == 0 ? L"\\" : L"/";
    }
    return path;
  }

  std::size_t JoinPath(std::size_t end) { return random_() % end; }

  std::mt19937 random_{GetParam()};
};

TEST_P(RandomOperations, DoTheSameAsOnTheRealDisk) {
  Populate();
  WriteWhole(L"source", "source");
  ImaginedDisk disk(L"source");
  for (int step = 0; step < 60; ++step) {
    const std::wstring path = Path();
    std::string imagined;
    std::string real;
    switch (JoinPath(5)) {
      case 0:
        imagined = Failure([&] { disk.MakeDirectory(path); });
        real = Failure([&] { file::MakeDirectory(path); });
        break;
      case 1:
        imagined = Failure([&] { disk.EnsureDirectories(path); });
        real = Failure([&] { file::EnsureDirectories(path); });
        break;
      case 2:
        imagined = Failure([&] { disk.SaveFile(path, kUnknown); });
        real = Failure([&] { file::SaveFile(path, std::string_view()); });
        break;
      case 3:
        imagined = Failure([&] { disk.CopyFileOverwrite(L"source", path); });
        real = Failure([&] { file::CopyFileOverwrite(L"source", path); });
        break;
      default:
        imagined = Failure([&] { disk.Remove(path); });
        real = Failure([&] { file::Remove(path); });
        break;
    }
    ASSERT_EQ(imagined, real) << "step " << step << ", " << Format("{}", path);
    ASSERT_EQ(Imagined(disk), OnDisk()) << "step " << step << ", " << Format("{}", path);
    ASSERT_EQ(disk.Exists(path), file::Exists(path)) << Format("{}", path);
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomOperations, testing::Range(1U, 13U));

TEST_F(ImaginedDiskTest, LeavesTheDiskAlone) {
  Populate();
  const std::vector<std::wstring> before = OnDisk();
  ImaginedDisk disk(L"a.txt");
  disk.Remove(L"bin\\x");
  disk.MakeDirectory(L"made");
  disk.RemoveTree(L"Saved");
  disk.SaveFile(L"saved.txt", kUnknown);
  disk.CopyFileOverwrite(L"bin\\Data\\level", L"copy");
  EXPECT_EQ(OnDisk(), before);
  EXPECT_NE(Imagined(disk), before);
}

TEST_F(ImaginedDiskTest, TheRunningProgramIsNeitherReplacedNorRemovedButRenamed) {
  Populate();
  ImaginedDisk disk(L"A.TXT");
  EXPECT_NE(Failure([&] { disk.Remove(L"a.txt"); }), "");
  EXPECT_NE(Failure([&] { disk.CopyFileOverwrite(L"bin\\x", L"a.txt"); }), "");
  EXPECT_NE(Failure([&] { disk.SaveFile(L"a.txt", kUnknown); }), "");
  EXPECT_EQ(Failure([&] { disk.Rename(L"a.txt", L"old"); }), "");
  EXPECT_NE(Failure([&] { disk.Remove(L"old"); }), "");
}

TEST_F(ImaginedDiskTest, RenamesReplaceFilesAndKeepTheNewSpelling) {
  Populate();
  WriteWhole(L"Target", "t");
  ImaginedDisk disk(L"");
  disk.Rename(L"a.txt", L"target");
  EXPECT_FALSE(disk.Exists(L"a.txt"));
  EXPECT_TRUE(disk.Matches(L"target", 7, Md5Hex(std::string("content"))));
  EXPECT_NE(Failure([&] { disk.Rename(L"target", L"empty"); }), "");
  EXPECT_NE(Failure([&] { disk.Rename(L"nothing", L"else"); }), "");
}

TEST_F(ImaginedDiskTest, ReadOnlyFilesStay) {
  Populate();
  SetFileAttributesW(L"bin\\x", FILE_ATTRIBUTE_READONLY);
  ImaginedDisk disk(L"");
  const std::string imagined = Failure([&] { disk.Remove(L"bin\\x"); });
  EXPECT_EQ(imagined, Failure([] { file::Remove(L"bin\\x"); }));
  EXPECT_NE(imagined, "");
  SetFileAttributesW(L"bin\\x", FILE_ATTRIBUTE_NORMAL);
}

TEST_F(ImaginedDiskTest, ContentsAreThoseOfTheirSources) {
  Populate();
  const std::string digest = Md5Hex(std::string("content"));
  ImaginedDisk disk(L"");
  EXPECT_TRUE(disk.Matches(L"BIN/x", 7, digest));
  EXPECT_FALSE(disk.Matches(L"bin/x", 8, digest));
  EXPECT_FALSE(disk.Matches(L"missing", 7, digest));
  EXPECT_NE(Failure([&] { static_cast<void>(disk.Matches(L"bin", 7, digest)); }), "");
  disk.SaveFile(L"bin/x", [](std::uint64_t size, std::string_view) { return size == 1; });
  EXPECT_FALSE(disk.Matches(L"bin/x", 7, digest));
  EXPECT_TRUE(disk.Matches(L"bin/x", 1, ""));
  disk.CopyFileOverwrite(L"bin/x", L"a.txt");
  EXPECT_TRUE(disk.Matches(L"a.txt", 1, ""));
  disk.CopyFileOverwrite(L"Saved/save", L"a.txt");
  EXPECT_TRUE(disk.Matches(L"a.txt", 7, digest));
  EXPECT_FALSE(disk.IsAsOnDisk(L"a.txt"));
  EXPECT_TRUE(disk.IsAsOnDisk(L"Saved/save"));
}

TEST_F(ImaginedDiskTest, ChangesAreWhatDiffersInTheEnd) {
  Populate();
  ImaginedDisk disk(L"");
  EXPECT_THAT(disk.Changes().created, IsEmpty());
  disk.Remove(L"bin\\x");
  disk.MakeDirectory(L"made");
  disk.MakeDirectory(L"made and gone");
  disk.Remove(L"made and gone");
  disk.SaveFile(L"SAVED\\SAVE", [](std::uint64_t, std::string_view) { return false; });
  const DiskChanges changes = disk.Changes();
  EXPECT_THAT(changes.created, ElementsAre(L"made"));
  EXPECT_THAT(changes.written, ElementsAre(L"Saved\\save"));
  EXPECT_THAT(changes.removed, ElementsAre(L"bin\\x"));
  EXPECT_THAT(disk.TakeMadeDirectories(), ElementsAre(L"made", L"made and gone"));
  EXPECT_THAT(disk.TakeRemoved(), ElementsAre(L"bin\\x", L"made and gone"));
  EXPECT_THAT(disk.TakeRemoved(), IsEmpty());
}

}  // namespace
}  // namespace ve::publish
