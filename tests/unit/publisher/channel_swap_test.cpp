#include "publisher/channel/channel_swap.h"

#include "core/windows.h"

#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "core/directory_walk.h"
#include "core/files.h"
#include "core/format.h"
#include "core/handle.h"
#include "core/unicode.h"
#include "publisher/files/paths.h"
#include "publisher/files/windows_errors.h"
#include "support/replaced_call.h"
#include "support/temp_folder.h"

extern "C" void* VE_IMPORTED(MoveFileExW);
extern "C" void* VE_IMPORTED(CreateFileW);
extern "C" void* VE_IMPORTED(SetConsoleCtrlHandler);
extern "C" void* VE_IMPORTED(Sleep);

namespace ve::publish {
namespace {

/// Names and contents of files below "updates".
using Tree = std::map<std::string, std::string>;

class ChannelSwap : public test::TempFolder {
 protected:
  ChannelSwap() { file::MakeDirectory(folders_.updates); }

  void Write(const std::wstring& folder, std::string_view version) {
    file::MakeDirectories(folder + L"\\bin");
    test::WriteWhole(folder + L"\\bin\\game.dll", version);
    test::WriteWhole(folder + L"\\GameVersion.vpak", version);
  }

  [[nodiscard]] Tree Found() const {
    Tree tree;
    file::WalkDirectory(folders_.updates, [&](const file::DirectoryEntry& entry) {
      if (!entry.IsDirectory()) {
        tree[ToUtf8(entry.path.substr(folders_.updates.size() + 1))] =
            test::ReadWhole(std::wstring(entry.path));
      }
      return file::WalkAction::kRecurse;
    });
    return tree;
  }

  static Tree Complete(const std::string& version) {
    return {{"release\\GameVersion.vpak", version}, {"release\\bin\\game.dll", version}};
  }

  /// What a run does first.
  void Repair() { const ChannelLock lock(folders_); }

  /// Whether also the previous state was removed.
  [[nodiscard]] bool Swap() const {
    Diagnostics diagnostics;
    SwapIn(folders_, diagnostics);
    return diagnostics.warnings.empty();
  }

  const ChannelFolders folders_ = FoldersOf(ExtendedLengthPath(ToUtf8(Folder())), L"release");
};

TEST_F(ChannelSwap, TheFirstStateIsSwappedIn) {
  Write(folders_.next, "1");
  EXPECT_TRUE(Swap());
  EXPECT_EQ(Found(), Complete("1"));
}

TEST_F(ChannelSwap, TheNextStateReplacesTheLiveOneAndNothingElseStays) {
  Write(folders_.live, "1");
  test::WriteWhole(folders_.live + L"\\dropped.txt", "1");
  Write(folders_.next, "2");
  EXPECT_TRUE(Swap());
  EXPECT_EQ(Found(), Complete("2"));
}

TEST_F(ChannelSwap, ReadOnlyFilesOfTheStateBeforeAreRemovedToo) {
  Write(folders_.live, "1");
  SetFileAttributesW((folders_.live + L"\\bin\\game.dll").c_str(), FILE_ATTRIBUTE_READONLY);
  Write(folders_.next, "2");
  EXPECT_TRUE(Swap());
  EXPECT_EQ(Found(), Complete("2"));
}

// Every state that an interrupted run can leave.

TEST_F(ChannelSwap, InterruptedWhileTheFirstStateIsMade) {
  Write(folders_.next, "1");
  Repair();
  EXPECT_EQ(Found(), Tree());
  EXPECT_FALSE(file::Exists(folders_.next));
}

TEST_F(ChannelSwap, InterruptedWhileTheNextStateIsMade) {
  Write(folders_.live, "1");
  Write(folders_.next, "2");
  EXPECT_EQ(PublishedFolder(folders_), folders_.live);
  Repair();
  EXPECT_EQ(Found(), Complete("1"));
}

TEST_F(ChannelSwap, InterruptedBetweenTheTwoRenames) {
  Write(folders_.previous, "1");
  Write(folders_.next, "2");
  EXPECT_EQ(PublishedFolder(folders_), folders_.previous);
  Repair();
  EXPECT_EQ(Found(), Complete("1"));
}

TEST_F(ChannelSwap, InterruptedAfterTheSecondRename) {
  Write(folders_.previous, "1");
  Write(folders_.live, "2");
  EXPECT_EQ(PublishedFolder(folders_), folders_.live);
  Repair();
  EXPECT_EQ(Found(), Complete("2"));
}

TEST_F(ChannelSwap, InterruptedWhileTheStateBeforeIsRemoved) {
  file::MakeDirectories(folders_.discarded + L"\\bin");
  test::WriteWhole(folders_.discarded + L"\\GameVersion.vpak", "1");
  Write(folders_.live, "2");
  Repair();
  EXPECT_EQ(Found(), Complete("2"));
}

TEST_F(ChannelSwap, ARemovalThatNeverSucceededAndAnInterruptionLater) {
  file::MakeDirectories(folders_.discarded);
  Write(folders_.previous, "2");
  Write(folders_.next, "3");
  Repair();
  EXPECT_EQ(Found(), Complete("2"));
  EXPECT_FALSE(file::Exists(folders_.discarded));
}

TEST_F(ChannelSwap, AnOldStateInUseIsReportedWithWhatToDo) {
  file::MakeDirectories(folders_.discarded);
  const std::wstring path = folders_.discarded + L"\\GameVersion.vpak";
  test::WriteWhole(path, "1");
  const UniqueFileHandle reader(CreateFileW(path.c_str(), GENERIC_READ,
                                            FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                            OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(reader);
  try {
    Repair();
    FAIL();
  } catch (const std::exception& error) {
    EXPECT_EQ(DescribeException(error).hint,
              "Close the program that has a file in it open, or delete the folder by hand.");
  }
}

TEST_F(ChannelSwap, HalfWrittenFilesOfTheLaunchersUpdateAreRemoved) {
  Write(folders_.live, "1");
  file::MakeDirectory(folders_.live + L"\\updater");
  test::WriteWhole(folders_.live + L"\\updater\\Launcher.exe", "whole");
  test::WriteWhole(folders_.live + L"\\updater\\Launcher.exe.publishing", "ha");
  Repair();
  Tree expected = Complete("1");
  expected["release\\updater\\Launcher.exe"] = "whole";
  EXPECT_EQ(Found(), expected);
}

TEST_F(ChannelSwap, OtherChannelsAreLeftAlone) {
  const ChannelFolders beta = FoldersOf(ExtendedLengthPath(ToUtf8(Folder())), L"beta");
  Write(beta.live, "7");
  Write(beta.next, "8");
  Write(folders_.live, "1");
  Repair();
  Tree expected = Complete("1");
  expected.insert({{"beta\\GameVersion.vpak", "7"},
                   {"beta\\bin\\game.dll", "7"},
                   {".beta.next\\GameVersion.vpak", "8"},
                   {".beta.next\\bin\\game.dll", "8"}});
  EXPECT_EQ(Found(), expected);
}

// Who comes in the way.

TEST_F(ChannelSwap, OneRunAtATimeWritesToAChannel) {
  Write(folders_.live, "1");
  const ChannelLock lock(folders_);
  try {
    const ChannelLock second(folders_);
    FAIL();
  } catch (const PublishError& error) {
    EXPECT_EQ(error.GetDiagnostic().message, "another run is writing to this channel");
  }
}

int refusalsLeft = 0;
decltype(&CreateFileW) createFile = nullptr;
HANDLE WINAPI RefuseAFewTimes(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES rights,
                              DWORD disposition, DWORD flags, HANDLE templateFile) {
  if (refusalsLeft-- <= 0) {
    return createFile(path, access, share, rights, disposition, flags, templateFile);
  }
  SetLastError(ERROR_SHARING_VIOLATION);
  return INVALID_HANDLE_VALUE;
}

TEST_F(ChannelSwap, ARunWaitsForTheOtherToEnd) {
  Write(folders_.live, "1");
  Write(folders_.next, "2");
  createFile = reinterpret_cast<decltype(createFile)>(VE_IMPORTED(CreateFileW));
  refusalsLeft = 3;
  {
    const test::ReplacedCall call(VE_IMPORTED(CreateFileW), RefuseAFewTimes);
    const ChannelLock lock(folders_);
    EXPECT_TRUE(file::Exists(folders_.lock));
  }
  EXPECT_EQ(refusalsLeft, -1);
  EXPECT_EQ(Found(), Complete("1"));
}

DWORD lockError = 0;
int lockAttempts = 0;
HANDLE WINAPI FailToOpenLock(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
  ++lockAttempts;
  SetLastError(lockError);
  return INVALID_HANDLE_VALUE;
}

TEST_F(ChannelSwap, ALockThatCannotBeWrittenIsReportedWithTheReason) {
  const test::ReplacedCall call(VE_IMPORTED(CreateFileW), FailToOpenLock);
  const test::ReplacedCall noWait(
      VE_IMPORTED(Sleep), +[](DWORD) {});
  struct Case {
    DWORD code;
    bool isRetried;
    const char* message;
    const char* hint;
  };
  for (const Case& expected :
       {Case{ERROR_DISK_FULL, false, "cannot be written: ", "Free space"},
        // What a lock file that is just being deleted gives as well, but only for a moment.
        Case{ERROR_ACCESS_DENIED, true, "cannot be written: ", "This account lacks the permission"},
        Case{ERROR_SHARING_VIOLATION, true, "another run is writing to this channel", "Wait"}}) {
    lockError = expected.code;
    lockAttempts = 0;
    try {
      const ChannelLock lock(folders_);
      FAIL();
    } catch (const PublishError& error) {
      EXPECT_EQ(lockAttempts > 1, expected.isRetried);
      EXPECT_EQ(error.GetDiagnostic().subject, DisplayPath(folders_.lock));
      EXPECT_TRUE(error.GetDiagnostic().message.starts_with(expected.message));
      EXPECT_TRUE(error.GetDiagnostic().hint.starts_with(expected.hint));
    }
  }
}

TEST_F(ChannelSwap, AChannelIsLockedApartFromTheOthers) {
  const ChannelLock lock(folders_);
  EXPECT_NO_THROW(ChannelLock(FoldersOf(ExtendedLengthPath(ToUtf8(Folder())), L"beta")));
}

TEST_F(ChannelSwap, TheLockLeavesNothingBehind) {
  Repair();
  EXPECT_FALSE(file::Exists(folders_.lock));
}

/// Keeps the folder from being renamed.
UniqueFileHandle Hold(const std::wstring& folder) {
  return UniqueFileHandle(CreateFileW(folder.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

TEST_F(ChannelSwap, ALiveFolderInUseIsRefusedAndStaysWhatItWas) {
  Write(folders_.live, "1");
  Write(folders_.next, "2");
  const UniqueFileHandle held = Hold(folders_.live);
  ASSERT_TRUE(held);
  try {
    static_cast<void>(Swap());
    FAIL();
  } catch (const PublishError& error) {
    EXPECT_EQ(error.GetDiagnostic().subject, DisplayPath(folders_.live));
    EXPECT_NE(error.GetDiagnostic().message.find("cannot be renamed"), std::string::npos);
  }
  EXPECT_EQ(Found().at("release\\bin\\game.dll"), "1");
}

TEST_F(ChannelSwap, ANextFolderInUsePutsTheLiveOneBack) {
  Write(folders_.live, "1");
  Write(folders_.next, "2");
  const UniqueFileHandle held = Hold(folders_.next);
  ASSERT_TRUE(held);
  EXPECT_THROW(static_cast<void>(Swap()), PublishError);
  EXPECT_EQ(Found().at("release\\bin\\game.dll"), "1");
  EXPECT_FALSE(file::Exists(folders_.previous));
}

int failuresLeft = 0;
decltype(&MoveFileExW) moveFileEx = nullptr;
BOOL WINAPI FailAFewTimes(LPCWSTR from, LPCWSTR to, DWORD flags) {
  if (failuresLeft-- <= 0) return moveFileEx(from, to, flags);
  SetLastError(ERROR_ACCESS_DENIED);
  return FALSE;
}

TEST_F(ChannelSwap, WhatIsInUseForAMomentIsTriedAgain) {
  Write(folders_.live, "1");
  Write(folders_.next, "2");
  moveFileEx = reinterpret_cast<decltype(moveFileEx)>(VE_IMPORTED(MoveFileExW));
  failuresLeft = 3;
  const test::ReplacedCall call(VE_IMPORTED(MoveFileExW), FailAFewTimes);
  EXPECT_TRUE(Swap());
  EXPECT_EQ(Found(), Complete("2"));
}

/// The tool's life ends at a rename: from then on nothing is done any more.
int renamesAllowed = 0;
struct Killed {};
BOOL WINAPI EndAtRename(LPCWSTR from, LPCWSTR to, DWORD flags) {
  if (renamesAllowed-- == 0) throw Killed();
  return moveFileEx(from, to, flags);
}

TEST_F(ChannelSwap, InterruptedAtAnyOfItsRenamesItIsOldOrNewAfterTheRepair) {
  moveFileEx = reinterpret_cast<decltype(moveFileEx)>(VE_IMPORTED(MoveFileExW));
  const std::vector<std::string> expected{"1", "1", "2", "2"};
  for (std::size_t allowed = 0; allowed < expected.size(); ++allowed) {
    Write(folders_.live, "1");
    Write(folders_.next, "2");
    {
      renamesAllowed = static_cast<int>(allowed);
      const test::ReplacedCall call(VE_IMPORTED(MoveFileExW), EndAtRename);
      try {
        static_cast<void>(Swap());
        EXPECT_EQ(allowed, 3U) << "the swap has three renames";
      } catch (const Killed&) {
        EXPECT_LT(allowed, 3U);
      }
    }
    Repair();
    EXPECT_EQ(Found(), Complete(expected[allowed])) << allowed;
    file::RemoveTree(folders_.live);
  }
}

// Console events: the tests call the handler as Windows does, on a thread of its own, and end the
// process after its return, as the default handler does. So they run in processes of their own.

PHANDLER_ROUTINE handler = nullptr;
BOOL WINAPI RecordHandler(PHANDLER_ROUTINE routine, BOOL /*add*/) {
  handler = routine;
  return TRUE;
}

class ConsoleEvents : public ChannelSwap {
 protected:
  /// Ends the process after the handler's return: with 0 if the channel is `version` then.
  static void SendEvent(const std::string& version) {
    if (handler(CTRL_CLOSE_EVENT) != FALSE) std::_Exit(2);
    hasReturned_ = true;
    Sleep(300);  // While Windows ends the process, its other threads go on.
    const bool isExpected = test_->Found()["release\\GameVersion.vpak"] == version;
    SetCurrentDirectoryW(L"..");
    file::RemoveTree(ExtendedLengthPath(ToUtf8(test_->Folder())));
    std::_Exit(isExpected ? 0 : 1);
  }

  static BOOL WINAPI SendEventAtFirstRename(LPCWSTR from, LPCWSTR to, DWORD flags) {
    static int renames = 0;
    static std::thread event;
    switch (++renames) {
      case 1:
        event = std::thread([] { SendEvent("2"); });
        break;
      case 2:
        Sleep(1000);  // An event that does not wait ends the process meanwhile.
        break;
      default:
        Sleep(INFINITE);  // The swap is made, and the event may end the process.
    }
    return moveFileEx(from, to, flags);
  }

  void SwapInWithEvent(bool isEventFirst) {
    test_ = this;
    moveFileEx = reinterpret_cast<decltype(moveFileEx)>(VE_IMPORTED(MoveFileExW));
    const test::ReplacedCall record(VE_IMPORTED(SetConsoleCtrlHandler), RecordHandler);
    Repair();
    Write(folders_.live, "1");
    Write(folders_.next, "2");
    if (isEventFirst) {
      std::thread([] { SendEvent("1"); }).detach();
      while (!hasReturned_) Sleep(1);
      static_cast<void>(Swap());
    } else {
      const test::ReplacedCall rename(VE_IMPORTED(MoveFileExW), SendEventAtFirstRename);
      static_cast<void>(Swap());
    }
  }

  static inline ConsoleEvents* test_ = nullptr;
  static inline std::atomic<bool> hasReturned_ = false;
};
using ConsoleEventsDeathTest = ConsoleEvents;

TEST_F(ConsoleEventsDeathTest, OneBetweenTheRenamesEndsTheProcessAfterTheSecond) {
  EXPECT_EXIT(SwapInWithEvent(false), testing::ExitedWithCode(0), "");
}

TEST_F(ConsoleEventsDeathTest, NoRenameIsMadeOnceOneEndsTheProcess) {
  EXPECT_EXIT(SwapInWithEvent(true), testing::ExitedWithCode(0), "");
}

TEST_F(ChannelSwap, TheFoldersBesideAChannelAreNoChannels) {
  for (const std::wstring& folder : {folders_.next, folders_.previous, folders_.discarded}) {
    EXPECT_EQ(folder.substr(folders_.updates.size(), 2), L"\\.");
  }
}

}  // namespace
}  // namespace ve::publish
