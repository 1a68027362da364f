#include "core/mapped_file.h"

#include "core/windows.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "core/errors.h"
#include "core/format.h"
#include "core/message_sink.h"
#include "support/replaced_call.h"
#include "support/sink_recorder.h"
#include "support/system_text.h"
#include "support/temp_folder.h"

extern "C" void* VE_IMPORTED(CreateFileW);
extern "C" void* VE_IMPORTED(GetFileSizeEx);
extern "C" void* VE_IMPORTED(MapViewOfFile);
extern "C" void* VE_IMPORTED(Sleep);

namespace ve::file {
namespace {

using test::ReplacedCall;
using test::SinkRecorder;
using test::SystemText;
using testing::ElementsAre;
using testing::Pair;

std::string_view TextOf(const MappedFile& file) {
  return {reinterpret_cast<const char*>(file.Bytes().data()), file.Bytes().size()};
}

std::string OpenError(std::wstring_view path) {
  try {
    static_cast<void>(MappedFile::Open(path));
  } catch (const MappedFileException& error) {
    return error.what();
  }
  return "nothing was thrown";
}

std::string Retry(const std::string& path, int attempt, DWORD code) {
  return Format("Failed to CreateFile when trying to open mapped file '{}' (trying again {}): {}",
                path, attempt, SystemText(code));
}

/// Nobody holds the file open: it can be opened alone.
void ExpectReleased(const wchar_t* path) {
  const UniqueFileHandle alone(
      CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  EXPECT_TRUE(alone);
}

/// A message sink that lets the file at "file" be opened after as many messages as wanted.
class Available {
 public:
  Available(std::size_t messages, void (*makeAvailable)()) {
    messages_.clear();
    wanted_ = messages;
    makeAvailable_ = makeAvailable;
    InstallMessageSink([](std::string_view message, unsigned) {
      messages_.emplace_back(message);
      if (messages_.size() == wanted_) makeAvailable_();
    });
  }
  Available(const Available&) = delete;
  Available& operator=(const Available&) = delete;
  ~Available() { InstallMessageSink(nullptr); }

  [[nodiscard]] const std::vector<std::string>& Messages() const { return messages_; }

 private:
  inline static std::vector<std::string> messages_;
  inline static std::size_t wanted_ = 0;
  inline static void (*makeAvailable_)() = nullptr;
};

class Mapped : public test::TempFolder {
 protected:
  Mapped() { waits_.clear(); }

  /// The waits asked for, in milliseconds. None of them takes place.
  [[nodiscard]] static const std::vector<DWORD>& Waits() { return waits_; }

 private:
  inline static std::vector<DWORD> waits_;
  ReplacedCall sleep_{VE_IMPORTED(Sleep),
                      +[](DWORD milliseconds) { waits_.push_back(milliseconds); }};
};

TEST_F(Mapped, AFileShowsItsWholeContent) {
  const SinkRecorder sink;
  const std::string content("a\0b\r\n\x1A end", 10);
  test::WriteWhole(L"file", content);
  {
    const MappedFile file = MappedFile::Open(L"file");
    EXPECT_TRUE(file.IsOpen());
    EXPECT_EQ(TextOf(file), content);
  }
  ExpectReleased(L"file");
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Mapped, AFileOfManyPagesShowsItsWholeContent) {
  std::string content;
  while (content.size() < 300'001) content += Format("{} ", content.size());
  test::WriteWhole(L"file", content);
  EXPECT_EQ(TextOf(MappedFile::Open(L"file")), content);
}

TEST_F(Mapped, AFileIsOpenedForReadingInSequence) {
  using Arguments = std::tuple<std::wstring, DWORD, DWORD, void*, DWORD, DWORD, HANDLE>;
  static std::vector<Arguments> asked;
  asked.clear();
  const SinkRecorder sink;
  {
    const ReplacedCall recording(
        VE_IMPORTED(CreateFileW),
        +[](const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
            DWORD disposition, DWORD flags, HANDLE like) -> HANDLE {
          asked.emplace_back(path, access, share, security, disposition, flags, like);
          SetLastError(ERROR_ACCESS_DENIED);
          return INVALID_HANDLE_VALUE;
        });
    EXPECT_EQ(OpenError(L"file"), "Failed to CreateFile when trying to open mapped file 'file': " +
                                      SystemText(ERROR_ACCESS_DENIED));
  }
  const Arguments expected(L"file", 0x80000000, 1, nullptr, 3, 0x08000001, nullptr);
  EXPECT_THAT(asked, ElementsAre(expected, expected, expected));
}

TEST_F(Mapped, OthersMayReadTheOpenFileButNotWriteOrRemoveIt) {
  test::WriteWhole(L"file", "abc");
  const MappedFile file = MappedFile::Open(L"file");
  // With everything shared from this side, only the open file can refuse.
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  const UniqueFileHandle reader(
      CreateFileW(L"file", GENERIC_READ, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
  EXPECT_TRUE(reader);
  const UniqueFileHandle writer(
      CreateFileW(L"file", GENERIC_WRITE, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
  EXPECT_FALSE(writer);
  const UniqueFileHandle remover(
      CreateFileW(L"file", DELETE, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr));
  EXPECT_FALSE(remover);
}

TEST_F(Mapped, AMissingFileIsTriedThreeTimes) {
  const SinkRecorder sink;
  EXPECT_EQ(OpenError(L"missing"),
            "Failed to CreateFile when trying to open mapped file 'missing': " +
                SystemText(ERROR_FILE_NOT_FOUND));
  EXPECT_THAT(Waits(), ElementsAre(500U, 500U));
  // The counter begins with 0.
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair(Retry("missing", 0, ERROR_FILE_NOT_FOUND), 1U),
                                           Pair(Retry("missing", 1, ERROR_FILE_NOT_FOUND), 1U)));
}

TEST_F(Mapped, APathBeyondAsciiIsReportedAsUtf8) {
  const SinkRecorder sink;
  EXPECT_EQ(OpenError(L"\x20AC"),
            "Failed to CreateFile when trying to open mapped file '\xE2\x82\xAC': " +
                SystemText(ERROR_FILE_NOT_FOUND));
  EXPECT_THAT(sink.Messages(),
              ElementsAre(Pair(Retry("\xE2\x82\xAC", 0, ERROR_FILE_NOT_FOUND), 1U),
                          Pair(Retry("\xE2\x82\xAC", 1, ERROR_FILE_NOT_FOUND), 1U)));
}

TEST_F(Mapped, AFileThatAppearsAfterTheFirstAttemptIsOpened) {
  const Available sink(1, [] { test::WriteWhole(L"file", "abc"); });
  EXPECT_EQ(TextOf(MappedFile::Open(L"file")), "abc");
  EXPECT_THAT(Waits(), ElementsAre(500U));
  EXPECT_THAT(sink.Messages(), ElementsAre(Retry("file", 0, ERROR_FILE_NOT_FOUND)));
}

TEST_F(Mapped, AFileThatAppearsAfterTheSecondAttemptIsOpened) {
  const Available sink(2, [] { test::WriteWhole(L"file", "abc"); });
  EXPECT_EQ(TextOf(MappedFile::Open(L"file")), "abc");
  EXPECT_THAT(sink.Messages(), ElementsAre(Retry("file", 0, ERROR_FILE_NOT_FOUND),
                                           Retry("file", 1, ERROR_FILE_NOT_FOUND)));
}

TEST_F(Mapped, AFileThatAWriterHoldsForAMomentIsOpened) {
  test::WriteWhole(L"file", "abc");
  static UniqueFileHandle writer;
  writer.Reset(
      CreateFileW(L"file", GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(writer);
  const Available sink(1, [] { writer.Reset(); });
  EXPECT_EQ(TextOf(MappedFile::Open(L"file")), "abc");
  EXPECT_THAT(sink.Messages(), ElementsAre(Retry("file", 0, ERROR_SHARING_VIOLATION)));
}

TEST_F(Mapped, AnEmptyFileFailsAtTheMapping) {
  const SinkRecorder sink;
  test::WriteWhole(L"empty", "");
  EXPECT_EQ(OpenError(L"empty"),
            "Failed to CreateFileMapping when trying to open mapped file 'empty': " +
                SystemText(ERROR_FILE_INVALID));
  ExpectReleased(L"empty");
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Mapped, ASizeThatCannotBeQueriedIsReportedAndTheFileReleased) {
  test::WriteWhole(L"file", "abc");
  {
    const ReplacedCall failing(
        VE_IMPORTED(GetFileSizeEx), +[](HANDLE, LARGE_INTEGER*) -> BOOL {
          SetLastError(ERROR_ACCESS_DENIED);
          return FALSE;
        });
    EXPECT_EQ(OpenError(L"file"),
              "Failed to GetFileSizeEx when trying to open mapped file 'file': " +
                  SystemText(ERROR_ACCESS_DENIED));
  }
  ExpectReleased(L"file");
}

TEST_F(Mapped, AViewThatCannotBeMappedIsReportedAndTheFileReleased) {
  test::WriteWhole(L"file", "abc");
  {
    const ReplacedCall failing(
        VE_IMPORTED(MapViewOfFile), +[](HANDLE, DWORD, DWORD, DWORD, SIZE_T) -> void* {
          SetLastError(ERROR_NOT_ENOUGH_MEMORY);
          return nullptr;
        });
    EXPECT_EQ(OpenError(L"file"),
              "Failed to MapViewOfFile when trying to open mapped file 'file': " +
                  SystemText(ERROR_NOT_ENOUGH_MEMORY));
  }
  ExpectReleased(L"file");
}

TEST_F(Mapped, ClosingWhatWasNeverOpenedDoesNothing) {
  const SinkRecorder sink;
  MappedFile file;
  EXPECT_FALSE(file.IsOpen());
  EXPECT_TRUE(file.Bytes().empty());
  file.Close();
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Mapped, ClosingTwiceClosesOnce) {
  const SinkRecorder sink;
  test::WriteWhole(L"file", "abc");
  MappedFile file = MappedFile::Open(L"file");
  file.Close();
  EXPECT_FALSE(file.IsOpen());
  file.Close();
  ExpectReleased(L"file");
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Mapped, TheDestinationOfAMoveOwnsTheFile) {
  const SinkRecorder sink;
  test::WriteWhole(L"file", "abc");
  MappedFile source = MappedFile::Open(L"file");
  const MappedFile destination(std::move(source));
  source.Close();  // NOLINT(bugprone-use-after-move)
  EXPECT_FALSE(source.IsOpen());
  EXPECT_EQ(TextOf(destination), "abc");
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(Mapped, AMoveOntoAnOpenFileClosesThatOne) {
  test::WriteWhole(L"one", "abc");
  test::WriteWhole(L"two", "defg");
  MappedFile file = MappedFile::Open(L"one");
  file = MappedFile::Open(L"two");
  ExpectReleased(L"one");
  EXPECT_EQ(TextOf(file), "defg");
}

TEST_F(Mapped, EveryStepOfClosingRunsAndReportsItsFailure) {
  const auto handles = [] {
    std::vector<HANDLE> open;
    for (ULONG_PTR value = 4; value < 0x4000; value += 4) {
      DWORD flags = 0;
      auto* const handle = reinterpret_cast<HANDLE>(value);
      if (GetHandleInformation(handle, &flags) != FALSE) open.push_back(handle);
    }
    return open;
  };
  const SinkRecorder sink;
  test::WriteWhole(L"file", "abc");
  const std::vector<HANDLE> before = handles();
  MappedFile file = MappedFile::Open(L"file");
  // Take from the owner everything that it is going to close.
  ASSERT_TRUE(UnmapViewOfFile(file.Bytes().data()));
  int taken = 0;
  for (HANDLE handle : handles()) {
    if (std::find(before.begin(), before.end(), handle) != before.end()) continue;
    CloseHandle(handle);
    ++taken;
  }
  ASSERT_EQ(taken, 2);
  file.Close();
  EXPECT_THAT(
      sink.Messages(),
      ElementsAre(Pair("Failed to close memory-mapped file (at UnmapingViewOfFile), error : " +
                           SystemText(ERROR_INVALID_ADDRESS),
                       1U),
                  Pair("Failed to close memory-mapped file (at CloseHandle(Mapping)), error : " +
                           SystemText(ERROR_INVALID_HANDLE),
                       1U),
                  Pair("Failed to close memory-mapped file (at CloseHandle(File)), error : " +
                           SystemText(ERROR_INVALID_HANDLE),
                       1U)));
}

}  // namespace
}  // namespace ve::file
