#include "core/mapped_file.h"

#include "core/windows.h"

#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
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

extern "C" {
extern void* VE_IMPORTED(CloseHandle);
extern void* VE_IMPORTED(CreateFileMappingW);
extern void* VE_IMPORTED(CreateFileW);
extern void* VE_IMPORTED(GetFileSizeEx);
extern void* VE_IMPORTED(MapViewOfFile);
extern void* VE_IMPORTED(Sleep);
extern void* VE_IMPORTED(UnmapViewOfFile);
}

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

/// Expects that the file can be opened without sharing, so that no handle to it is left.
void ExpectReleased(const wchar_t* path) {
  const UniqueFileHandle alone(
      CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  EXPECT_TRUE(alone);
}

/// A message sink that makes the file at "file" available after a number of messages.
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

/// Records the calls of opening and closing in their order, with their arguments. The handles are
/// numbers, the view is the text "abc".
class Calls {
 public:
  /// Every call named in `failing` fails, with a code of its own.
  explicit Calls(std::set<std::string> failing = {}) {
    calls_.clear();
    failing_ = std::move(failing);
  }
  Calls(const Calls&) = delete;
  Calls& operator=(const Calls&) = delete;

  [[nodiscard]] static const std::vector<std::string>& Made() { return calls_; }

 private:
  static constexpr ULONG_PTR kFile = 0x70000001;
  static constexpr ULONG_PTR kMapping = 0x70000002;

  static std::string Name(HANDLE handle) {
    if (reinterpret_cast<ULONG_PTR>(handle) == kFile) return "file";
    return reinterpret_cast<ULONG_PTR>(handle) == kMapping ? "mapping" : "another handle";
  }
  /// Whether the call succeeds.
  static bool Record(const char* name, DWORD error, const std::string& arguments) {
    calls_.push_back(std::string(name) + " " + arguments);
    const bool succeeds = !failing_.contains(name);
    SetLastError(succeeds ? ERROR_SUCCESS : error);
    return succeeds;
  }

  static HANDLE WINAPI Open(const wchar_t*, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD, DWORD,
                            HANDLE) {
    return reinterpret_cast<HANDLE>(kFile);
  }
  static HANDLE WINAPI Map(HANDLE file, SECURITY_ATTRIBUTES* security, DWORD protection,
                           DWORD sizeHigh, DWORD sizeLow, const wchar_t* name) {
    const std::string sizes = Format("{} {}", sizeHigh, sizeLow);
    const bool succeeds =
        Record("map", ERROR_ACCESS_DENIED,
               Name(file) + Format(" {} {} {} {}", security == nullptr ? "null" : "given",
                                   protection, sizes, name == nullptr ? "null" : "given"));
    return succeeds ? reinterpret_cast<HANDLE>(kMapping) : nullptr;
  }
  static BOOL WINAPI Size(HANDLE file, LARGE_INTEGER* size) {
    size->QuadPart = 3;
    return Record("size", ERROR_INVALID_FUNCTION, Name(file)) ? TRUE : FALSE;
  }
  static void* WINAPI View(HANDLE mapping, DWORD access, DWORD offsetHigh, DWORD offsetLow,
                           SIZE_T size) {
    const bool succeeds =
        Record("view", ERROR_NOT_ENOUGH_MEMORY,
               Name(mapping) + Format(" {} {} {} {}", access, offsetHigh, offsetLow, size));
    return succeeds ? view_.data() : nullptr;
  }
  static BOOL WINAPI Unview(const void* view) {
    return Record("unmap", ERROR_INVALID_ADDRESS, view == view_.data() ? "view" : "another view")
               ? TRUE
               : FALSE;
  }
  static BOOL WINAPI Close(HANDLE handle) {
    return Record("close", ERROR_INVALID_HANDLE, Name(handle)) ? TRUE : FALSE;
  }

  inline static std::vector<std::string> calls_;
  inline static std::set<std::string> failing_;
  inline static std::array<char, 3> view_ = {'a', 'b', 'c'};
  ReplacedCall open_{VE_IMPORTED(CreateFileW), &Open};
  ReplacedCall map_{VE_IMPORTED(CreateFileMappingW), &Map};
  ReplacedCall size_{VE_IMPORTED(GetFileSizeEx), &Size};
  ReplacedCall mapView_{VE_IMPORTED(MapViewOfFile), &View};
  ReplacedCall unview_{VE_IMPORTED(UnmapViewOfFile), &Unview};
  ReplacedCall close_{VE_IMPORTED(CloseHandle), &Close};
};

constexpr const char* kMap = "map file null 2 0 0 null";
constexpr const char* kSize = "size file";
constexpr const char* kView = "view mapping 4 0 0 0";
constexpr const char* kCloseMapping = "close mapping";
constexpr const char* kCloseFile = "close file";

TEST(MappedCalls, TheWholeFileIsMappedForReadingAndClosedInTheReverseOrder) {
  const Calls calls;
  {
    const MappedFile file = MappedFile::Open(L"file");
    EXPECT_EQ(TextOf(file), "abc");
  }
  EXPECT_THAT(Calls::Made(),
              ElementsAre(kMap, kSize, kView, "unmap view", kCloseMapping, kCloseFile));
}

/// The message of a failure and the calls until it was thrown, when each of these calls fails.
std::pair<std::string, std::vector<std::string>> FailingAt(std::set<std::string> failing) {
  const Calls calls(std::move(failing));
  std::string error = OpenError(L"file");
  return {std::move(error), Calls::Made()};
}

TEST(MappedCalls, AFailedMappingClosesTheFile) {
  EXPECT_THAT(FailingAt({"map"}),
              Pair("Failed to CreateFileMapping when trying to open mapped file 'file': " +
                       SystemText(ERROR_ACCESS_DENIED),
                   ElementsAre(kMap, kCloseFile)));
}

TEST(MappedCalls, AFailedSizeQueryClosesTheMappingThenTheFile) {
  EXPECT_THAT(FailingAt({"size"}),
              Pair("Failed to GetFileSizeEx when trying to open mapped file 'file': " +
                       SystemText(ERROR_INVALID_FUNCTION),
                   ElementsAre(kMap, kSize, kCloseMapping, kCloseFile)));
}

TEST(MappedCalls, AFailedViewClosesTheMappingThenTheFile) {
  EXPECT_THAT(FailingAt({"view"}),
              Pair("Failed to MapViewOfFile when trying to open mapped file 'file': " +
                       SystemText(ERROR_NOT_ENOUGH_MEMORY),
                   ElementsAre(kMap, kSize, kView, kCloseMapping, kCloseFile)));
}

TEST(MappedCalls, OfTwoFailuresTheFirstInTheOrderOfTheCallsIsReported) {
  EXPECT_TRUE(FailingAt({"map", "size"}).first.starts_with("Failed to CreateFileMapping"));
  EXPECT_TRUE(FailingAt({"size", "view"}).first.starts_with("Failed to GetFileSizeEx"));
}

TEST(MappedCalls, AFailureToCloseAfterAFailedOpeningIsNotReported) {
  const SinkRecorder sink;
  EXPECT_TRUE(FailingAt({"size", "close"}).first.starts_with("Failed to GetFileSizeEx"));
  EXPECT_TRUE(sink.Messages().empty());
}

TEST(MappedCalls, EveryStepOfClosingRunsAndReportsItsFailure) {
  const SinkRecorder sink;
  const Calls calls({"unmap", "close"});
  {
    MappedFile file = MappedFile::Open(L"file");
    file.Close();
    file.Close();
  }
  EXPECT_THAT(Calls::Made(),
              ElementsAre(kMap, kSize, kView, "unmap view", kCloseMapping, kCloseFile));
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

}  // namespace
}  // namespace ve::file
