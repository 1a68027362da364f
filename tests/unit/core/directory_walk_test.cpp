#include "core/directory_walk.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <system_error>
#include <vector>

#include "core/files.h"
#include "support/host_program.h"
#include "support/replaced_call.h"
#include "support/temp_folder.h"

extern "C" {
extern void* VE_IMPORTED(FindFirstFileExW);
extern void* VE_IMPORTED(FindNextFileW);
}

namespace ve::file {
namespace {

using test::RunOnHost;
using test::WriteWhole;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

/// The paths visited below `root`. Directories named "closed" are not entered.
std::vector<std::wstring> Visited(std::wstring_view root) {
  std::vector<std::wstring> paths;
  WalkDirectory(root, [&paths](const DirectoryEntry& entry) {
    paths.emplace_back(entry.path);
    return entry.path.ends_with(L"closed") ? WalkAction::kSkip : WalkAction::kRecurse;
  });
  return paths;
}

constexpr const wchar_t* kLink = L"root\\link";

bool IsLinkedFolder(const wchar_t* path) {
  constexpr DWORD kBoth = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  const DWORD attributes = GetFileAttributesW(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & kBoth) == kBoth;
}

/// The end of a host program cannot be awaited, only its effect.
bool AwaitLink(bool present) {
  const ULONGLONG deadline = GetTickCount64() + 60'000;
  while (IsLinkedFolder(kLink) != present && GetTickCount64() < deadline) Sleep(5);
  return IsLinkedFolder(kLink) == present;
}

/// Makes the link to the folder "target": a junction, or a symbolic link of the host under Wine,
/// which makes no junctions.
bool MakeLink() {
  static_cast<void>(_wsystem(L"mklink /J root\\link target >nul 2>nul"));
  if (IsLinkedFolder(kLink)) return true;
  return RunOnHost(L"\\\\?\\unix\\bin\\ln", L"ln -s ../target root/link") && AwaitLink(true);
}

/// Wine removes a symbolic link's target in its place, so under Wine the host removes the link.
void RemoveLink() {
  if (!RunOnHost(L"\\\\?\\unix\\bin\\rm", L"rm root/link")) Remove(kLink);
  EXPECT_TRUE(AwaitLink(false));
}

class Walk : public test::TempFolder {
 protected:
  Walk() {
    MakeDirectories(L"root\\a\\b");
    MakeDirectory(L"root\\closed");
    MakeDirectory(L"root\\empty");
    WriteWhole(L"root\\file", "");
    WriteWhole(L"root\\a\\b\\deep", "");
    WriteWhole(L"root\\closed\\unseen", "");
  }
};

TEST_F(Walk, VisitsEverythingExceptTheContentsOfSkippedDirectories) {
  EXPECT_THAT(Visited(L"root"),
              UnorderedElementsAre(L"root\\a", L"root\\a\\b", L"root\\a\\b\\deep", L"root\\closed",
                                   L"root\\empty", L"root\\file"));
}

TEST_F(Walk, VisitsADirectoryBeforeItsContents) {
  const std::vector<std::wstring> visited = Visited(L"root");
  const auto at = [&visited](const wchar_t* path) {
    return std::find(visited.begin(), visited.end(), path);
  };
  EXPECT_LT(at(L"root\\a"), at(L"root\\a\\b"));
  EXPECT_LT(at(L"root\\a\\b"), at(L"root\\a\\b\\deep"));
}

TEST_F(Walk, OfTheCurrentDirectoryBeginsWithADot) {
  EXPECT_THAT(Visited(L"."), testing::Contains(std::wstring(L".\\root\\a\\b\\deep")));
}

TEST_F(Walk, KeepsTheSeparatorThatTheRootEndsWith) {
  EXPECT_THAT(Visited(L"root/a/"), ElementsAre(L"root/a/b", L"root/a/b\\deep"));
  EXPECT_THAT(Visited(L"root\\a\\"), ElementsAre(L"root\\a\\b", L"root\\a\\b\\deep"));
}

TEST_F(Walk, OfAnEmptyDirectoryVisitsNothing) { EXPECT_TRUE(Visited(L"root\\empty").empty()); }

TEST_F(Walk, DistinguishesDirectoriesFromFiles) {
  WalkDirectory(L"root", [](const DirectoryEntry& entry) {
    const bool isFile = entry.path == L"root\\file";
    EXPECT_EQ(entry.IsDirectory(), !isFile);
    EXPECT_EQ(entry.ShouldRecurse(), !isFile);
    return WalkAction::kSkip;
  });
}

TEST_F(Walk, ContinuesAfterTheVisitRemovesADirectory) {
  std::vector<std::wstring> visited;
  WalkDirectory(L"root", [&visited](const DirectoryEntry& entry) {
    visited.emplace_back(entry.path);
    if (entry.path != L"root\\empty") return WalkAction::kRecurse;
    Remove(entry.path);
    return WalkAction::kSkip;
  });
  EXPECT_EQ(visited.size(), 7U);
  EXPECT_FALSE(Exists(L"root\\empty"));
}

/// Expects that the walk of `root` fails at `directory`.
void ExpectWalkError(const wchar_t* root, DWORD code, const wchar_t* directory) {
  const std::filesystem::filesystem_error expected(
      "directory_entry::status", std::filesystem::path(directory),
      std::error_code(static_cast<int>(code), std::system_category()));
  try {
    Visited(root);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_STREQ(error.what(), expected.what());
    EXPECT_EQ(error.code(), expected.code());
    EXPECT_EQ(error.path1(), expected.path1());
  }
}

TEST_F(Walk, OfAnEmptyRootFails) { ExpectWalkError(L"", ERROR_PATH_NOT_FOUND, L""); }

TEST_F(Walk, OfAMissingDirectoryFails) {
  ExpectWalkError(L"missing", ERROR_PATH_NOT_FOUND, L"missing");
}

TEST_F(Walk, OfAFileFails) {
  // Systems differ in the code for a file in a directory's place.
  WIN32_FIND_DATAW found{};
  ASSERT_EQ(FindFirstFileW(L"root\\file\\*", &found), INVALID_HANDLE_VALUE);
  const DWORD code = GetLastError();
  ASSERT_NE(code, DWORD{ERROR_FILE_NOT_FOUND});
  ExpectWalkError(L"root\\file", code, L"root\\file");
}

TEST_F(Walk, OfATreeWithAnUnreadableSubdirectoryFails) {
  static void* const real = VE_IMPORTED(FindFirstFileExW);
  const test::ReplacedCall failing(
      VE_IMPORTED(FindFirstFileExW),
      +[](const wchar_t* path, FINDEX_INFO_LEVELS level, void* data, FINDEX_SEARCH_OPS search,
          void* filter, DWORD flags) -> HANDLE {
        if (std::wstring_view(path) == L"root\\a\\b\\*") {
          SetLastError(ERROR_ACCESS_DENIED);
          return INVALID_HANDLE_VALUE;
        }
        return reinterpret_cast<decltype(&FindFirstFileExW)>(real)(path, level, data, search,
                                                                   filter, flags);
      });
  ExpectWalkError(L"root", ERROR_ACCESS_DENIED, L"root\\a\\b");
}

TEST_F(Walk, OfADirectoryThatCannotBeReadToItsEndFails) {
  static void* const real = VE_IMPORTED(FindNextFileW);
  const test::ReplacedCall failing(
      VE_IMPORTED(FindNextFileW), +[](HANDLE search, WIN32_FIND_DATAW* found) -> BOOL {
        const BOOL next = reinterpret_cast<decltype(&FindNextFileW)>(real)(search, found);
        if (next == FALSE) SetLastError(ERROR_NOT_READY);
        return next;
      });
  ExpectWalkError(L"root\\a\\b", ERROR_NOT_READY, L"root\\a\\b");
  ExpectWalkError(L"root\\a", ERROR_NOT_READY, L"root\\a\\b");
}

TEST(DirectoryEntry, IsALinkByItsTag) {
  constexpr DWORD kPlain = FILE_ATTRIBUTE_DIRECTORY;
  constexpr DWORD kReparse = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  constexpr DWORD kCloudTag = 0x9000'001A;
  const auto entry = [](DWORD attributes, DWORD tag) {
    return DirectoryEntry{L"entry", attributes, tag};
  };
  for (const DWORD tag : {DWORD{IO_REPARSE_TAG_SYMLINK}, DWORD{IO_REPARSE_TAG_MOUNT_POINT},
                          DWORD{IO_REPARSE_TAG_RESERVED_ZERO}}) {
    EXPECT_TRUE(entry(kReparse, tag).IsLink()) << tag;
    EXPECT_FALSE(entry(kReparse, tag).ShouldRecurse()) << tag;
    // Without the attribute the tag means nothing.
    EXPECT_FALSE(entry(kPlain, tag).IsLink()) << tag;
    EXPECT_TRUE(entry(kPlain, tag).ShouldRecurse()) << tag;
  }
  EXPECT_FALSE(entry(kReparse, kCloudTag).IsLink());
  EXPECT_TRUE(entry(kReparse, kCloudTag).ShouldRecurse());
  EXPECT_FALSE(entry(FILE_ATTRIBUTE_REPARSE_POINT, kCloudTag).ShouldRecurse());
}

TEST_F(Walk, VisitsALinkToADirectoryButNotItsContents) {
  MakeDirectory(L"target");
  WriteWhole(L"target\\file", "kept");
  if (!MakeLink()) GTEST_SKIP() << "no link to a directory can be made on this system";
  ASSERT_TRUE(Exists(L"root\\link\\file"));
  bool visited = false;
  WalkDirectory(L"root", [&visited](const DirectoryEntry& entry) {
    EXPECT_FALSE(entry.path.starts_with(L"root\\link\\"));
    if (entry.path == kLink) {
      visited = true;
      EXPECT_TRUE(entry.IsDirectory());
      EXPECT_FALSE(entry.ShouldRecurse());
    }
    return WalkAction::kRecurse;
  });
  EXPECT_TRUE(visited);
  EXPECT_TRUE(Exists(L"target\\file"));
  RemoveLink();
}

TEST_F(Walk, RemovingATreeLeavesWhatItsLinksPointTo) {
  MakeDirectory(L"target");
  WriteWhole(L"target\\file", "kept");
  if (!MakeLink()) GTEST_SKIP() << "no link to a directory can be made on this system";
  try {
    RemoveTree(L"root");
    EXPECT_FALSE(Exists(L"root"));
  } catch (const std::filesystem::filesystem_error& error) {
    // Wine follows the link and refuses to remove its target.
    EXPECT_EQ(error.path1().native(), kLink);
    EXPECT_EQ(error.code().value(), ERROR_DIR_NOT_EMPTY);
  }
  EXPECT_EQ(test::ReadWhole(L"target\\file"), "kept");
  if (Exists(kLink)) RemoveLink();
}

TEST_F(Walk, RemovingALinkDoesNotRemoveTheContentsOfItsTarget) {
  // "root" as Windows shows a link to a directory.
  static void* const real = VE_IMPORTED(FindFirstFileExW);
  const test::ReplacedCall linked(
      VE_IMPORTED(FindFirstFileExW),
      +[](const wchar_t* path, FINDEX_INFO_LEVELS level, void* data, FINDEX_SEARCH_OPS search,
          void* filter, DWORD flags) -> HANDLE {
        HANDLE const found = reinterpret_cast<decltype(&FindFirstFileExW)>(real)(
            path, level, data, search, filter, flags);
        if (std::wstring_view(path) == L"root") {
          auto& entry = *static_cast<WIN32_FIND_DATAW*>(data);
          entry.dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
          entry.dwReserved0 = IO_REPARSE_TAG_MOUNT_POINT;
        }
        return found;
      });
  for (const wchar_t* path : {L"root", L"root\\", L"root/\\"}) {
    // The link itself is removed; the directory in its place here is not empty.
    EXPECT_THROW(RemoveTree(path), std::filesystem::filesystem_error);
    EXPECT_TRUE(Exists(L"root\\a\\b\\deep")) << path;
    EXPECT_TRUE(Exists(L"root\\file")) << path;
  }
}

TEST_F(Walk, ADirectoryHoldsEntriesUnlessItIsEmpty) {
  EXPECT_TRUE(HoldsEntries(L"root"));
  EXPECT_TRUE(HoldsEntries(L"root\\a"));
  EXPECT_FALSE(HoldsEntries(L"root\\empty"));
  EXPECT_THROW(static_cast<void>(HoldsEntries(L"missing")), std::filesystem::filesystem_error);
}

TEST_F(Walk, ATreeIsRemovedWhole) {
  RemoveTree(L"root");
  EXPECT_FALSE(Exists(L"root"));
  EXPECT_NO_THROW(RemoveTree(L"root"));
}

}  // namespace
}  // namespace ve::file
