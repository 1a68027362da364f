// Every operation of the libraries, two hundred times in one process, must not make the counts of
// handles, GDI objects and USER objects or the memory in use grow with the number of runs.
//
// (Wine does not count GDI and USER objects: there both are always 0.)

#include "core/windows.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "archive/archive_file.h"
#include "archive/archive_writer.h"
#include "archive/updater_settings.h"
#include "core/directory_walk.h"
#include "core/errors.h"
#include "core/file_matches_entry.h"
#include "core/files.h"
#include "core/format.h"
#include "core/handle.h"
#include "core/log.h"
#include "core/mapped_file.h"
#include "core/md5.h"
#include "core/process.h"
#include "core/registry.h"
#include "core/unicode.h"
#include "net/download.h"
#include "support/game_version_bytes.h"
#include "support/loopback_server.h"
#include "support/private_registry.h"
#include "support/temp_folder.h"
#include "ui/progress_window.h"
#include "updater/game_apply.h"
#include "updater/game_download.h"
#include "updater/game_manifest.h"
#include "updater/game_version.h"
#include "updater/updater_manifest.h"

namespace ve {
namespace {

constexpr int kWarmUp = 10;
/// The runs of each half of a test.
constexpr int kRuns = 100;

/// Of what starts programs, waits for a server or shows windows there are fewer runs, unless long
/// tests are asked for.
int SlowRuns() {
  constexpr int kFew = 15;
  return GetEnvironmentVariableW(L"LAUNCHER_LONG_TESTS", nullptr, 0) != 0 ? kRuns : kFew;
}

/// The size of all blocks in use on all heaps of the process.
std::int64_t HeapBytes() {
  std::array<HANDLE, 64> heaps{};
  const DWORD count = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
  std::int64_t bytes = 0;
  for (DWORD i = 0; i < count; ++i) {
    HeapLock(heaps[i]);
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(heaps[i], &entry) != FALSE) {
      if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) bytes += entry.cbData;
    }
    HeapUnlock(heaps[i]);
  }
  return bytes;
}

/// The number of handles of the process. Tries each possible value, because Wine does not implement
/// GetProcessHandleCount.
int Handles() {
  constexpr std::uintptr_t kMax = 4 * 1024;
  int count = 0;
  for (std::uintptr_t value = 4; value < kMax; value += 4) {
    DWORD flags = 0;
    if (GetHandleInformation(reinterpret_cast<HANDLE>(value), &flags) != FALSE) ++count;
  }
  return count;
}

struct Usage {
  std::int64_t handles = Handles();
  std::int64_t gdi = GetGuiResources(GetCurrentProcess(), GR_GDIOBJECTS);
  std::int64_t user = GetGuiResources(GetCurrentProcess(), GR_USEROBJECTS);
  std::int64_t heap = HeapBytes();
};

/// What is used at the begin, after the first and after the second half of the runs.
struct Growth {
  std::array<Usage, 3> at;

  /// The growth of the half in which it is less. What is lost in every run is lost in both halves;
  /// what the system happens to hold at the moment of counting, or starts to hold once, counts in
  /// one of them only.
  [[nodiscard]] std::int64_t Of(std::int64_t Usage::*member) const {
    return std::min(at[1].*member - at[0].*member, at[2].*member - at[1].*member);
  }
};

Growth Measure(const std::function<void()>& operation, int runs) {
  for (int i = 0; i < kWarmUp; ++i) operation();
  const Usage before;
  for (int i = 0; i < runs; ++i) operation();
  const Usage between;
  for (int i = 0; i < runs; ++i) operation();
  return {{before, between, Usage()}};
}

/// How many handles or objects may be added in a number of runs, far fewer than one in each.
std::int64_t ObjectsAllowedIn(int runs) { return runs / 10 + 1; }

/// How many bytes of the heap may be added in each run: what the system caches, but no string that
/// is lost each time.
constexpr std::int64_t kBytesAllowed = 80;

/// The same in a few runs: heaps add blocks of up to 16 KiB in groups, of which one more may count.
constexpr std::int64_t kBytesAllowedInFewRuns = 400;

/// The same where the server of the test remembers each request.
constexpr std::int64_t kBytesAllowedWithServer = 1'500;

constexpr DWORD kTimeout = 120'000;  // Milliseconds; only a hang takes this long.

class RepeatedOperations : public test::TempFolder {
 protected:
  static void Repeat(const std::function<void()>& operation, int runs = kRuns,
                     std::int64_t bytesAllowed = kBytesAllowed) {
    const Growth growth = Measure(operation, runs);
    std::cout << "2 * " << runs << " runs:";
    for (const Usage& usage : growth.at) {
      std::cout << "  handles " << usage.handles << ", GDI " << usage.gdi << ", USER " << usage.user
                << ", heap " << usage.heap << ';';
    }
    std::cout << '\n';
    EXPECT_LE(growth.Of(&Usage::handles), ObjectsAllowedIn(runs));
    EXPECT_LE(growth.Of(&Usage::gdi), ObjectsAllowedIn(runs));
    EXPECT_LE(growth.Of(&Usage::user), ObjectsAllowedIn(runs));
    EXPECT_LE(growth.Of(&Usage::heap), runs * bytesAllowed);
  }

  template <class Exception>
  static void RepeatFailing(const std::function<void()>& operation) {
    Repeat([&] { EXPECT_THROW(operation(), Exception); });
  }
};

const std::string kContent(10'000, 'x');

// What the measuring itself must be able to see.
TEST_F(RepeatedOperations, AHandleAndAStringLostInEveryRunAreNoticed) {
  struct Case {
    int runs;
    std::size_t lost;
    std::int64_t bytesAllowed;
  };
  for (const Case& given :
       {Case{kRuns, 100, kBytesAllowed}, Case{SlowRuns(), 20'000, kBytesAllowedInFewRuns}}) {
    std::vector<UniqueHandle> events;
    std::vector<std::string> strings;
    const Growth growth = Measure(
        [&] {
          events.emplace_back(CreateEventW(nullptr, FALSE, FALSE, nullptr));
          strings.emplace_back(given.lost, 'x');
        },
        given.runs);
    EXPECT_GT(growth.Of(&Usage::handles), ObjectsAllowedIn(given.runs));
    EXPECT_GT(growth.Of(&Usage::heap), given.runs * given.bytesAllowed);
  }
}

// What it must not mistake for a loss.
TEST_F(RepeatedOperations, HandlesAndMemoryThatAreTakenOnceAreNoGrowth) {
  for (const int moment : {kWarmUp + 1, kWarmUp + kRuns + 1}) {
    std::vector<UniqueHandle> events;
    std::string cache;
    int run = 0;
    const Growth growth = Measure(
        [&] {
          if (++run != moment) return;
          for (int i = 0; i < kRuns; ++i) {
            events.emplace_back(CreateEventW(nullptr, FALSE, FALSE, nullptr));
          }
          cache.resize(100'000);
        },
        kRuns);
    EXPECT_LE(growth.Of(&Usage::handles), ObjectsAllowedIn(kRuns));
    EXPECT_LE(growth.Of(&Usage::heap), kRuns * kBytesAllowed);
  }
}

TEST_F(RepeatedOperations, FilesAreSavedLoadedCopiedRenamedAndRemoved) {
  Repeat([] {
    file::SaveFile(L"file", kContent);
    EXPECT_EQ(file::LoadFile(L"file"), kContent);
    EXPECT_EQ(file::LoadFile("file"), kContent);
    file::CopyFileOverwrite(L"file", L"copy");
    file::Rename(L"copy", L"renamed");
    EXPECT_EQ(file::FileSize(L"renamed"), kContent.size());
    EXPECT_GT(file::FileCreationTimeSeconds(L"renamed"), 0);
    file::Remove(L"renamed");
    EXPECT_TRUE(FileMatchesEntry(L"file", kContent.size(), Md5Hex(kContent)));
  });
}

TEST_F(RepeatedOperations, FilesThatAreNotThere) {
  RepeatFailing<file::FileException>([] { (void)file::LoadFile(L"missing"); });
  RepeatFailing<file::FileException>([] { file::SaveFile(L"missing\\file", kContent); });
  RepeatFailing<file::FileException>([] { file::CopyFileOverwrite(L"missing", L"copy"); });
  RepeatFailing<std::exception>([] { file::Rename(L"missing", L"renamed"); });
}

TEST_F(RepeatedOperations, DirectoriesAreMadeWalkedAndRemoved) {
  Repeat([] {
    file::EnsureDirectories(L"a\\b\\c");
    file::MakeDirectory(L"a\\d");
    file::SaveFile(L"a\\b\\file", kContent);
    int entries = 0;
    file::WalkDirectory(L"a", [&](const file::DirectoryEntry&) {
      ++entries;
      return file::WalkAction::kRecurse;
    });
    EXPECT_EQ(entries, 4);
    file::RemoveTree(L"a");
  });
  RepeatFailing<std::exception>([] { file::MakeDirectory(L"missing\\directory"); });
  RepeatFailing<std::exception>([] {
    file::WalkDirectory(L"missing",
                        [](const file::DirectoryEntry&) { return file::WalkAction::kRecurse; });
  });
}

TEST_F(RepeatedOperations, MappedFilesAndArchives) {
  file::SaveFile(L"archive", test::VersionBytes({1, 2, 3, 4}));
  file::SaveFile(L"bad", "no archive at all");
  file::SaveFile(L"empty", "");
  Repeat([] {
    EXPECT_TRUE(file::MappedFile::Open(L"archive").IsOpen());
    EXPECT_EQ(file::OpenArchiveFile(L"archive").ReadString(), "GameVersion");
  });
  RepeatFailing<file::FileException>([] { (void)file::OpenArchiveFile(L"bad"); });
  RepeatFailing<file::MappedFileException>([] { (void)file::MappedFile::Open(L"empty"); });
  Repeat([] {
    file::ArchiveWriter writer(file::ArchiveMode::kChecked);
    writer.WriteString("text");
    EXPECT_FALSE(writer.Bytes().empty());
  });
}

TEST_F(RepeatedOperations, LogEntries) {
  Repeat([] { WriteLogEntry([](std::ostream& log) { log << "an entry"; }); });
}

TEST_F(RepeatedOperations, Texts) {
  Repeat([] {
    EXPECT_EQ(Format("{} {} {}", 1, std::string_view("two"), L"three"), "1 two three");
    EXPECT_EQ(ToWide(ToUtf8(L"\x20AC uro")), L"\x20AC uro");
  });
}

TEST_F(RepeatedOperations, TheRegistry) {
  const test::PrivateRegistry registry;
  Repeat([] {
    WriteProductString(L"Player", L"LastBuild", L"C:\\Games");
    EXPECT_EQ(ReadProductString(L"Player", L"LastBuild"), L"C:\\Games");
    EXPECT_EQ(ReadProductString(L"Player", L"Missing"), L"");
  });
}

TEST_F(RepeatedOperations, Commands) {
  Repeat(
      [] {
        std::string said;
        EXPECT_TRUE(
            SystemCall("cmd.exe /c echo text", [&](std::string_view text) { said += text; }));
        EXPECT_TRUE(said.starts_with("text")) << said;
      },
      SlowRuns(), kBytesAllowedInFewRuns);
}

TEST_F(RepeatedOperations, ProgramsThatAreNotThere) {
  Repeat([] { EXPECT_FALSE(StartProcess(L"missing.exe", L"", L"", false)); });
}

TEST_F(RepeatedOperations, Downloads) {
  test::LoopbackServer server;
  server.Script("/file", test::Ok(kContent));
  Repeat([&] { EXPECT_TRUE(Download(server.Url("/file")).Succeeded()); }, SlowRuns(),
         kBytesAllowedWithServer);
  Repeat([&] { EXPECT_FALSE(Download(server.Url("/missing")).Succeeded()); }, SlowRuns(),
         kBytesAllowedWithServer);
  Repeat([] { EXPECT_FALSE(Download(L"no URL at all").Succeeded()); });
}

TEST_F(RepeatedOperations, TheProgressThread) {
  struct Shared {
    std::vector<int> entries = std::vector<int>(3);
    std::atomic<bool> finished = false;
    std::atomic<std::uint32_t> counter = 2;
  };
  Repeat(
      [] {
        const auto shared = std::make_shared<Shared>();
        const UniqueHandle ended(CreateEventW(nullptr, TRUE, FALSE, nullptr));
        std::thread thread([shared, event = ended.Get()] {
          ProgressThread(shared->entries, shared->finished, shared->counter);
          SetEvent(event);
        });
        const ULONGLONG deadline = GetTickCount64() + kTimeout;
        while (shared->counter != 0 && GetTickCount64() < deadline) Sleep(1);
        EXPECT_EQ(shared->counter, 0U);
        shared->finished = true;
        if (WaitForSingleObject(ended.Get(), kTimeout) == WAIT_OBJECT_0) {
          thread.join();
        } else {
          ADD_FAILURE() << "the thread does not end";
          thread.detach();
        }
      },
      SlowRuns(), kBytesAllowedInFewRuns);
}

TEST_F(RepeatedOperations, SettingsAndManifests) {
  file::ArchiveWriter writer(file::ArchiveMode::kPlain);
  writer.WriteString("UpdaterData");
  writer.WriteU32(1);
  writer.WriteWideString(L"http://127.0.0.1/");
  writer.WriteWideString(L"release");
  const std::string settings = writer.Bytes();
  const std::string digest = Md5Hex(kContent);
  Repeat([&] {
    EXPECT_EQ(sdk::ReadUpdaterSettings(settings).channel, L"release");
    std::string updater = "Velmorant Updater\nFileVersion: 1\nVersion: 7";
    EXPECT_EQ(sdk::ReadUpdaterManifest(updater, 6), 7U);
    std::string game =
        "GameUpdate\nFileVersion: 1\nDirectories: 1\nbin\nFiles:\n'bin/a' 10000 " + digest + "\n";
    EXPECT_EQ(sdk::ReadGameUpdateManifest(game).files.size(), 1U);
  });
  RepeatFailing<sdk::UpdaterException>([] {
    std::string game = "GameUpdate\n";
    (void)sdk::ReadGameUpdateManifest(game);
  });
}

TEST_F(RepeatedOperations, AnUpdateIsStagedAndApplied) {
  test::LoopbackServer server;
  server.Script("/GameVersion.vpak", test::Ok(test::VersionBytes({0, 0, 0, 2})));
  server.Script("/a", test::Ok(kContent));
  file::EnsureDirectories(L"Updater");
  const auto update = [&] {
    file::SaveFile(sdk::kGameVersionFile, test::VersionBytes({0, 0, 0, 1}));
    file::SaveFile(L"unlisted", kContent);
    std::optional<std::string> pending;
    EXPECT_TRUE(sdk::CheckGameVersion(server.Url("/GameVersion.vpak"), pending));
    std::string text =
        "GameUpdate\nFileVersion: 1\nDirectories: 1\nSaved\nFiles:\n'a' 10000 " + Md5Hex(kContent);
    const sdk::GameUpdateManifest manifest = sdk::ReadGameUpdateManifest(text);
    sdk::MakeStagingFolders(manifest);
    std::atomic<std::uint32_t> processed = 0;
    sdk::StagedUpdate staged;
    sdk::StageFiles(server.Url("/"), manifest, staged, processed);
    sdk::ApplyUpdate(manifest, staged, *pending);
    EXPECT_TRUE(file::Exists(L"a"));
    EXPECT_FALSE(file::Exists(L"unlisted"));
    file::Remove(L"a");
  };
  Repeat(update, SlowRuns(), kBytesAllowedWithServer);
}

}  // namespace
}  // namespace ve
