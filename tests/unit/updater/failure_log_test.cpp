#include "updater/failure_log.h"

#include <gtest/gtest.h>
#include <string>

#include "core/files.h"
#include "core/working_directory.h"
#include "support/temp_folder.h"

namespace ve::sdk {
namespace {

constexpr std::size_t kTimeStampLength = 27;  // "[[16.11.2026 03:41:19-045]]" and its brackets.

/// The log without the time stamps that its entries begin with.
std::string LogWithoutTimes() {
  std::string log = test::ReadWhole(L"Logs\\updater.log");
  for (std::size_t at = 0; (at = log.find("[[", at)) != std::string::npos;) {
    EXPECT_EQ(log.substr(at + kTimeStampLength - 2, 4), "]]\r\n");
    log.erase(at, kTimeStampLength);
  }
  return log;
}

using FailureLog = test::TempFolder;

TEST_F(FailureLog, AnEntryIsTheStageDirectlyFollowedByTheMessage) {
  LogUpdaterFailure("While trying to access updater-data.", "Empty URL in UpdaterData.vpak.");
  EXPECT_EQ(LogWithoutTimes(),
            "\r\nError while running updater:\r\n"
            "While trying to access updater-data.Empty URL in UpdaterData.vpak.\r\n\r\n");
}

TEST_F(FailureLog, StageAndMessageMayHoldLineBreaks) {
  LogUpdaterFailure("While 'x':\n\n", "gone.\r\n");
  EXPECT_EQ(LogWithoutTimes(),
            "\r\nError while running updater:\r\nWhile 'x':\r\n\r\ngone.\r\r\n\r\n\r\n");
}

TEST_F(FailureLog, EntriesAreAppended) {
  LogUpdaterFailure("a", "1");
  LogUpdaterFailure("b", "2");
  EXPECT_EQ(LogWithoutTimes(),
            "\r\nError while running updater:\r\na1\r\n\r\n"
            "\r\nError while running updater:\r\nb2\r\n\r\n");
}

TEST_F(FailureLog, TheCurrentDirectoryIsPutBack) {
  LogUpdaterFailure("a", "1");
  EXPECT_TRUE(WorkingDirectory() == Folder());
}

TEST_F(FailureLog, PlaceholdersAreNotFilled) {
  LogUpdaterFailure("{}", "{0}{INVALID}");
  EXPECT_EQ(LogWithoutTimes(), "\r\nError while running updater:\r\n{}{0}{INVALID}\r\n\r\n");
}

TEST_F(FailureLog, AnErrorOfOpeningTheLogIsIgnored) {
  ASSERT_TRUE(CreateDirectoryW(L"Logs", nullptr));
  ASSERT_TRUE(CreateDirectoryW(L"Logs\\updater.log", nullptr));
  LogUpdaterFailure("a", "1");
  EXPECT_TRUE(WorkingDirectory() == Folder());
}

}  // namespace
}  // namespace ve::sdk
