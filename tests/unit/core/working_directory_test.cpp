#include "core/working_directory.h"

#include "core/windows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <system_error>
#include <vector>

#include "support/replaced_call.h"
#include "support/sink_recorder.h"
#include "support/temp_folder.h"

extern "C" {
extern void* VE_IMPORTED(GetCurrentDirectoryW);
extern void* VE_IMPORTED(SetCurrentDirectoryW);
}

namespace ve {
namespace {

using test::SinkRecorder;
using testing::ElementsAre;
using testing::Pair;

class WorkingDirectoryTest : public test::TempFolder {
 protected:
  static std::string Message(const std::string& directory, int code) {
    return "Failed to set current working directory to '" + directory +
           "': " + std::system_category().message(code);
  }
};

TEST_F(WorkingDirectoryTest, IsSetAndReturned) {
  const SinkRecorder sink;
  ASSERT_TRUE(CreateDirectoryW(L"one", nullptr));
  EXPECT_TRUE(SetWorkingDirectory(L"one", false));
  EXPECT_EQ(WorkingDirectory(), Folder() + L"\\one");
  EXPECT_TRUE(SetWorkingDirectory(L"..\\", false));
  EXPECT_EQ(WorkingDirectory(), Folder());
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(WorkingDirectoryTest, TheViewNeedsNoTerminator) {
  ASSERT_TRUE(CreateDirectoryW(L"one", nullptr));
  EXPECT_TRUE(SetWorkingDirectory(std::wstring_view(L"one and more", 3), false));
  EXPECT_EQ(WorkingDirectory(), Folder() + L"\\one");
}

TEST_F(WorkingDirectoryTest, AMissingDirectoryIsReportedAndNothingChanges) {
  const SinkRecorder sink;
  EXPECT_FALSE(SetWorkingDirectory(L"missing", false));
  EXPECT_EQ(WorkingDirectory(), Folder());
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair(Message("missing", ERROR_FILE_NOT_FOUND), 0U)));
}

TEST_F(WorkingDirectoryTest, AnEmptyDirectoryIsReported) {
  const SinkRecorder sink;
  EXPECT_FALSE(SetWorkingDirectory(L"", false));
  EXPECT_EQ(WorkingDirectory(), Folder());
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair(Message("", ERROR_INVALID_NAME), 0U)));
}

TEST_F(WorkingDirectoryTest, AFileIsReported) {
  const SinkRecorder sink;
  test::WriteWhole(L"file", "x");
  EXPECT_FALSE(SetWorkingDirectory(L"file", false));
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair(Message("file", ERROR_DIRECTORY), 0U)));
}

TEST_F(WorkingDirectoryTest, TheMessageHasTheDirectoryInUtf8) {
  const SinkRecorder sink;
  EXPECT_FALSE(SetWorkingDirectory(L"\x20AC", false));
  EXPECT_THAT(sink.Messages(),
              ElementsAre(Pair(Message("\xE2\x82\xAC", ERROR_FILE_NOT_FOUND), 0U)));
}

TEST_F(WorkingDirectoryTest, IsPassedToWindowsOnceAndAsItIs) {
  static std::vector<std::wstring> recorded;
  static BOOL result;
  recorded.clear();
  const test::ReplacedCall recording(
      VE_IMPORTED(SetCurrentDirectoryW), +[](const wchar_t* directory) -> BOOL {
        recorded.emplace_back(directory);
        SetLastError(ERROR_ACCESS_DENIED);
        return result;
      });
  const std::wstring longPath(400, L'x');
  const SinkRecorder sink;
  result = TRUE;
  EXPECT_TRUE(SetWorkingDirectory(L"a/\x20AC \\..\\", false));
  EXPECT_TRUE(SetWorkingDirectory(longPath, true));
  result = FALSE;
  EXPECT_FALSE(SetWorkingDirectory(L"", false));
  EXPECT_FALSE(SetWorkingDirectory(L"quiet", true));
  EXPECT_THAT(recorded, ElementsAre(L"a/\x20AC \\..\\", longPath, L"", L"quiet"));
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair(Message("", ERROR_ACCESS_DENIED), 0U)));
}

TEST_F(WorkingDirectoryTest, ThatCannotBeQueriedIsEmpty) {
  const test::ReplacedCall failing(
      VE_IMPORTED(GetCurrentDirectoryW), +[](DWORD, wchar_t*) -> DWORD { return 0; });
  EXPECT_EQ(WorkingDirectory(), L"");
}

TEST_F(WorkingDirectoryTest, QuietReportsNothing) {
  const SinkRecorder sink;
  EXPECT_FALSE(SetWorkingDirectory(L"missing", true));
  EXPECT_TRUE(sink.Messages().empty());
}

}  // namespace
}  // namespace ve
