#include "core/log.h"

#include "core/windows.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <ratio>
#include <stdexcept>
#include <string>
#include <system_error>

#include "core/format.h"
#include "core/handle.h"
#include "support/replaced_call.h"
#include "support/sink_recorder.h"
#include "support/temp_folder.h"

extern "C" void* VE_IMPORTED(CreateDirectoryW);
extern "C" void* VE_IMPORTED(GetSystemTimeAsFileTime);
extern "C" void* VE_IMPORTED(SetCurrentDirectoryW);

namespace ve {
namespace {

using test::ReadWhole;
using test::ReplacedCall;
using test::SinkRecorder;
using testing::ElementsAre;
using testing::MatchesRegex;
using testing::Pair;

// What a time stamp looks like, in the regular expressions that GoogleTest has on every system.
const std::string kStamp = "\\[\\d\\d\\.\\d\\d\\.\\d\\d\\d\\d \\d\\d:\\d\\d:\\d\\d-\\d\\d\\d\\]";

class Log : public test::TempFolder {
 protected:
  Log() {
    // The C runtime would take local time from there.
    _putenv("TZ=");
    _tzset();
  }
};

void WriteBody(std::ostream& out) { out << "Error while running updater:\nbecause"; }

/// A local time as a moment of the system clock, by way of Windows rather than the C runtime.
std::chrono::system_clock::time_point MomentOf(WORD milliseconds, std::int64_t moreTicks = 0) {
  const SYSTEMTIME local{2026, 11, 0, 6, 3, 4, 9, milliseconds};
  SYSTEMTIME utc{};
  FILETIME time{};
  EXPECT_TRUE(TzSpecificLocalTimeToSystemTime(nullptr, &local, &utc));
  EXPECT_TRUE(SystemTimeToFileTime(&utc, &time));
  const auto ticks =
      static_cast<std::int64_t>(std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime) -
      116'444'736'000'000'000 + moreTicks;
  using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
  return std::chrono::system_clock::time_point(
      std::chrono::duration_cast<std::chrono::system_clock::duration>(Ticks(ticks)));
}

TEST_F(Log, AFirstEntryCreatesTheFolderAndTheFile) {
  const SinkRecorder sink;
  WriteLogEntry(WriteBody);
  const std::string log = ReadWhole(L"Logs\\updater.log");
  ASSERT_GT(log.size(), 29U);
  EXPECT_THAT(log.substr(0, 27), MatchesRegex("\\[" + kStamp + "\\]"));
  // As a text stream writes it: a line ends with two characters on disk.
  EXPECT_EQ(log.substr(27), "\r\nError while running updater:\r\nbecause\r\n\r\n");
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Log, ALineBreakOfWindowsInATextIsWrittenWithTwoCarriageReturns) {
  WriteLogEntry([](std::ostream& out) { out << "File not found.\r\n"; });
  EXPECT_EQ(ReadWhole(L"Logs\\updater.log").substr(27), "\r\nFile not found.\r\r\n\r\n\r\n");
}

TEST_F(Log, ASecondEntryIsAppended) {
  WriteLogEntry([](std::ostream& out) { out << "first"; });
  const std::string first = ReadWhole(L"Logs\\updater.log");
  WriteLogEntry([](std::ostream& out) { out << "second"; });
  const std::string both = ReadWhole(L"Logs\\updater.log");
  EXPECT_TRUE(both.starts_with(first));
  EXPECT_EQ(first.substr(27), "\r\nfirst\r\n\r\n");
  ASSERT_GT(both.size(), first.size() + 27);
  EXPECT_EQ(both.substr(first.size(), 2), "[[");
  EXPECT_EQ(both.substr(first.size() + 27), "\r\nsecond\r\n\r\n");
}

TEST_F(Log, TheFolderIsCurrentOnlyWhileTheBodyIsWritten) {
  std::wstring during;
  WriteLogEntry([&during](std::ostream&) { during = WorkingDirectory(); });
  EXPECT_EQ(during.substr(0, Folder().size() + 5), Folder() + L"\\Logs");
  EXPECT_EQ(WorkingDirectory(), Folder());
}

TEST_F(Log, ABodyThatThrowsLeavesTheDirectoryAsItWas) {
  EXPECT_THROW(WriteLogEntry([](std::ostream& out) {
                 out << "begun";
                 throw std::runtime_error("x");
               }),
               std::runtime_error);
  EXPECT_EQ(WorkingDirectory(), Folder());
  EXPECT_EQ(ReadWhole(L"Logs\\updater.log").substr(27), "\r\nbegun");
}

TEST_F(Log, ADirectoryThatCannotBeRestoredIsReported) {
  const SinkRecorder sink;
  std::unique_ptr<ReplacedCall> failing;
  WriteLogEntry([&failing](std::ostream&) {
    failing = std::make_unique<ReplacedCall>(
        VE_IMPORTED(SetCurrentDirectoryW), +[](const wchar_t*) -> BOOL {
          SetLastError(ERROR_ACCESS_DENIED);
          return FALSE;
        });
  });
  failing.reset();
  EXPECT_THAT(sink.Messages(),
              ElementsAre(Pair(Format("Failed to set current working directory to '{}': {}",
                                      Folder(), std::system_category().message(5)),
                               0U)));
}

TEST_F(Log, TheEntryIsInTheFileBeforeTheDirectoryIsRestored) {
  static std::string written;
  std::unique_ptr<ReplacedCall> restoring;
  WriteLogEntry([&restoring](std::ostream& out) {
    out << "body";
    restoring = std::make_unique<ReplacedCall>(
        VE_IMPORTED(SetCurrentDirectoryW), +[](const wchar_t*) -> BOOL {
          written = ReadWhole(L"updater.log");
          return TRUE;
        });
  });
  restoring.reset();
  ASSERT_GT(written.size(), 27U);
  EXPECT_EQ(written.substr(27), "\r\nbody\r\n\r\n");
}

TEST_F(Log, TheFileIsSharedForReadingAndWriting) {
  CreateDirectoryW(L"Logs", nullptr);
  const UniqueFileHandle other(CreateFileW(L"Logs\\updater.log", GENERIC_READ | GENERIC_WRITE,
                                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, CREATE_NEW,
                                           0, nullptr));
  ASSERT_TRUE(other);
  bool opened = false;
  WriteLogEntry([&opened](std::ostream& out) {
    out << "body";
    const UniqueFileHandle during(CreateFileW(L"updater.log", GENERIC_READ | GENERIC_WRITE,
                                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                              OPEN_EXISTING, 0, nullptr));
    opened = static_cast<bool>(during);
  });
  EXPECT_TRUE(opened);
  std::array<char, 64> text{};
  DWORD size = 0;
  ASSERT_TRUE(ReadFile(other.Get(), text.data(), 64, &size, nullptr));
  EXPECT_EQ(std::string(text.data(), size).substr(27), "\r\nbody\r\n\r\n");
}

TEST_F(Log, AFileThatCannotBeOpenedIsIgnored) {
  ASSERT_TRUE(CreateDirectoryW(L"Logs", nullptr));
  ASSERT_TRUE(CreateDirectoryW(L"Logs\\updater.log", nullptr));
  const SinkRecorder sink;
  bool called = false;
  WriteLogEntry([&called](std::ostream& out) {
    called = true;
    EXPECT_TRUE(out.fail());
    out << "lost";
  });
  EXPECT_TRUE(called);
  EXPECT_EQ(WorkingDirectory(), Folder());
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Log, WithoutAFolderNothingIsWrittenAndNothingThrown) {
  const SinkRecorder sink;
  bool called = false;
  {
    const ReplacedCall failing(
        VE_IMPORTED(CreateDirectoryW), +[](const wchar_t*, SECURITY_ATTRIBUTES*) -> BOOL {
          SetLastError(ERROR_ACCESS_DENIED);
          return FALSE;
        });
    EXPECT_NO_THROW(WriteLogEntry([&called](std::ostream&) { called = true; }));
  }
  EXPECT_FALSE(called);
  EXPECT_EQ(WorkingDirectory(), Folder());
  const std::filesystem::filesystem_error expected(
      "create_directory", std::filesystem::path(L"Logs"),
      std::error_code(ERROR_ACCESS_DENIED, std::system_category()));
  EXPECT_THAT(
      sink.Messages(),
      ElementsAre(Pair(Format("Failed to create directory 'Logs': {}", expected.what()), 1U)));
}

TEST_F(Log, WithAFileNamedLikeTheFolderTheEntryGoesBesideIt) {
  test::WriteWhole(L"Logs", "a file");
  // Systems differ in the error for a file in a directory's place.
  ASSERT_FALSE(SetCurrentDirectoryW(L"Logs\\"));
  const int code = static_cast<int>(GetLastError());
  const SinkRecorder sink;
  WriteLogEntry(WriteBody);
  EXPECT_EQ(WorkingDirectory(), Folder());
  EXPECT_EQ(ReadWhole(L"Logs"), "a file");
  EXPECT_EQ(ReadWhole(L"updater.log").substr(27),
            "\r\nError while running updater:\r\nbecause\r\n\r\n");
  EXPECT_THAT(sink.Messages(),
              ElementsAre(Pair("Failed to set current working directory to 'Logs\\': " +
                                   std::system_category().message(code),
                               0U)));
}

/// Lets the system's clock show a moment.
class StoppedClock {
 public:
  explicit StoppedClock(std::chrono::system_clock::time_point moment) {
    using Ticks = std::chrono::duration<std::uint64_t, std::ratio<1, 10'000'000>>;
    const std::uint64_t ticks =
        std::chrono::duration_cast<Ticks>(moment.time_since_epoch()).count() +
        116'444'736'000'000'000;  // From 1601 to 1970.
    now_ = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  }

 private:
  static void WINAPI Now(FILETIME* now) { *now = now_; }

  inline static FILETIME now_;
  ReplacedCall call_{VE_IMPORTED(GetSystemTimeAsFileTime), &Now};
};

std::string TimeStampAt(std::chrono::system_clock::time_point moment) {
  const StoppedClock clock(moment);
  return TimeStamp();
}

TEST_F(Log, MillisecondsHaveThreeDigits) {
  EXPECT_EQ(TimeStampAt(MomentOf(7)), "[06.11.2026 03:04:09-007]");
  EXPECT_EQ(TimeStampAt(MomentOf(45)), "[06.11.2026 03:04:09-045]");
  EXPECT_EQ(TimeStampAt(MomentOf(120)), "[06.11.2026 03:04:09-120]");
  EXPECT_EQ(TimeStampAt(MomentOf(0)), "[06.11.2026 03:04:09-000]");
}

TEST_F(Log, TimesAreRoundedDown) {
  EXPECT_EQ(TimeStampAt(MomentOf(999, 9'999)), "[06.11.2026 03:04:09-999]");
}

TEST_F(Log, ATimeStampIsThatOfNow) {
  const std::string before = TimeStampAt(std::chrono::system_clock::now());
  const std::string now = TimeStamp();
  const std::string after = TimeStampAt(std::chrono::system_clock::now());
  EXPECT_THAT(now, MatchesRegex(kStamp));
  // Comparable as text as long as no day ends in between.
  if (before.substr(0, 11) == after.substr(0, 11)) {
    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
  }
}

TEST_F(Log, ATimeStampForFileNamesHasNoForbiddenCharacters) {
  const StoppedClock clock(MomentOf(7));
  EXPECT_EQ(FileNameTimeStamp(), L"06_11_2026-03_04_09");
}

TEST_F(Log, ADurationShowsTheMinutesOfTheWhole) {
  EXPECT_EQ(DurationText(0.0F), L"00.00:00");
  EXPECT_EQ(DurationText(59.9F), L"00.00:59");
  EXPECT_EQ(DurationText(61.0F), L"00.01:01");
  EXPECT_EQ(DurationText(3725.0F), L"01.62:05");
  EXPECT_EQ(DurationText(5999.0F), L"01.99:59");
}

TEST_F(Log, ADurationOfAHundredMinutesFails) {
  EXPECT_THROW(static_cast<void>(DurationText(6000.0F)), std::length_error);
  EXPECT_THROW(static_cast<void>(DurationText(360'000.0F)), std::length_error);
}

TEST_F(Log, ADurationBeyondAllIntegersFails) {
  using Limits = std::numeric_limits<float>;
  for (const float seconds : {Limits::infinity(), Limits::quiet_NaN(), 3e38F}) {
    EXPECT_THROW(static_cast<void>(DurationText(seconds)), std::length_error) << seconds;
  }
}

}  // namespace
}  // namespace ve
