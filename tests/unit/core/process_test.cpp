#include "core/process.h"

#include "core/windows.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "core/format.h"
#include "core/handle.h"
#include "core/unicode.h"
#include "support/replaced_call.h"
#include "support/sink_recorder.h"
#include "support/system_text.h"
#include "support/temp_folder.h"

extern "C" {
extern void* VE_IMPORTED(CloseHandle);
extern void* VE_IMPORTED(CreatePipe);
extern void* VE_IMPORTED(CreateProcessA);
extern void* VE_IMPORTED(CreateProcessW);
extern void* VE_IMPORTED(GetExitCodeProcess);
extern void* VE_IMPORTED(ReadFile);
extern void* VE_IMPORTED(SetHandleInformation);
extern void* VE_IMPORTED(ShellExecuteW);
extern void* VE_IMPORTED(WaitForSingleObject);
}

namespace ve {
namespace {

using test::ReplacedCall;
using test::SinkRecorder;
using test::SystemText;
using testing::ElementsAre;
using testing::Pair;

constexpr DWORD kTimeout = 120'000;  // Milliseconds; only a hang takes this long.

// The child of these tests is this program. Environment variables say what it does; it ends before
// any test could run.
constexpr const wchar_t* kRole = L"VE_TEST_CHILD";
constexpr const char* kText = "VE_TEST_CHILD_TEXT";

/// What a reporting child writes about itself into memory that it shares with the test.
struct Report {
  DWORD processId;
  BOOL isDebugged;
  std::array<wchar_t, 512> directory;
  std::array<wchar_t, 512> commandLine;
  std::array<wchar_t, 512> image;
};

std::string ChildText() {
  std::array<char, 4096> text{};
  return {text.data(), GetEnvironmentVariableA(kText, text.data(), text.size())};
}

void Write(DWORD stream, std::string_view text) {
  DWORD written = 0;
  WriteFile(GetStdHandle(stream), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

/// Fills in the report and stays until the test sets an event.
void ReportAndWait() {
  const std::string name = ChildText();
  const UniqueHandle memory(OpenFileMappingA(FILE_MAP_WRITE, FALSE, name.c_str()));
  auto* report =
      static_cast<Report*>(MapViewOfFile(memory.Get(), FILE_MAP_WRITE, 0, 0, sizeof(Report)));
  const UniqueHandle reported(OpenEventA(EVENT_MODIFY_STATE, FALSE, (name + "-ready").c_str()));
  const UniqueHandle leave(OpenEventA(SYNCHRONIZE, FALSE, (name + "-leave").c_str()));
  if (report == nullptr) return;
  report->processId = GetCurrentProcessId();
  report->isDebugged = IsDebuggerPresent();
  GetCurrentDirectoryW(512, report->directory.data());
  std::wstring_view(GetCommandLineW()).copy(report->commandLine.data(), 511);
  GetModuleFileNameW(nullptr, report->image.data(), 512);
  SetEvent(reported.Get());
  WaitForSingleObject(leave.Get(), kTimeout);
}

[[maybe_unused]] const bool kIsNoChild = [] {
  std::array<wchar_t, 64> buffer{};
  GetEnvironmentVariableW(kRole, buffer.data(), buffer.size());
  const std::wstring_view role = buffer.data();
  if (role.empty()) return true;
  if (role == L"report") ReportAndWait();
  if (role == L"write") Write(STD_OUTPUT_HANDLE, ChildText());
  if (role == L"write error") Write(STD_ERROR_HANDLE, ChildText());
  if (role == L"write command line") Write(STD_OUTPUT_HANDLE, GetCommandLineA());
  if (role == L"close output") {
    // The hidden console may have inherited the output too; it ends with its last user.
    FreeConsole();
    HANDLE const output = GetStdHandle(STD_OUTPUT_HANDLE);
    HANDLE const error = GetStdHandle(STD_ERROR_HANDLE);
    CloseHandle(output);
    if (error != output) CloseHandle(error);
    ReportAndWait();
  }
  ExitProcess(role == L"exit" ? static_cast<UINT>(std::stoul(ChildText())) : 0);
}();

/// What the children started while it exists do.
class Role {
 public:
  explicit Role(const wchar_t* role, const std::string& text = "") {
    SetEnvironmentVariableW(kRole, role);
    SetEnvironmentVariableA(kText, text.c_str());
  }
  Role(const Role&) = delete;
  Role& operator=(const Role&) = delete;
  ~Role() {
    SetEnvironmentVariableW(kRole, nullptr);
    SetEnvironmentVariableA(kText, nullptr);
  }
};

/// A child that reports. The end of the scope waits for its end.
class ReportingChild {
 public:
  explicit ReportingChild(const wchar_t* role = L"report")
      : name_(Format("ve-test-{}-{}", GetCurrentProcessId(), ++number_)),
        memory_(CreateFileMappingA(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Report),
                                   name_.c_str())),
        ready_(CreateEventA(nullptr, TRUE, FALSE, (name_ + "-ready").c_str())),
        leave_(CreateEventA(nullptr, TRUE, FALSE, (name_ + "-leave").c_str())),
        view_(MapViewOfFile(memory_.Get(), FILE_MAP_READ, 0, 0, 0)),
        role_(role, name_) {}
  ReportingChild(const ReportingChild&) = delete;
  ReportingChild& operator=(const ReportingChild&) = delete;
  ~ReportingChild() {
    const UniqueHandle process(started_ ? OpenProcess(SYNCHRONIZE, FALSE, Received().processId)
                                        : nullptr);
    SetEvent(leave_.Get());
    if (process) WaitForSingleObject(process.Get(), kTimeout);
  }

  /// Waits for the report.
  const Report& Await() {
    started_ = WaitForSingleObject(ready_.Get(), kTimeout) == WAIT_OBJECT_0;
    EXPECT_TRUE(started_);
    return Received();
  }

 private:
  const Report& Received() const { return *static_cast<const Report*>(view_.Get()); }

  inline static int number_ = 0;
  std::string name_;
  UniqueHandle memory_;
  UniqueHandle ready_;
  UniqueHandle leave_;
  UniqueMappedView view_;
  Role role_;
  bool started_ = false;
};

std::wstring OwnImage() {
  std::array<wchar_t, 512> image{};
  GetModuleFileNameW(nullptr, image.data(), image.size());
  return image.data();
}

std::string OwnCommand() { return "\"" + ToUtf8(OwnImage()) + "\""; }

/// Records the arguments of CreateProcessA and CreateProcessW while it exists. The calls create
/// nothing and hand out no handles.
class Creation {
 public:
  struct Arguments {
    std::string application;  ///< In UTF-8; "(null)" for a null pointer, as the next two.
    std::string commandLine;
    std::string directory;
    bool hasSecurity;  ///< Of the process or the thread.
    bool inheritHandles;
    DWORD flags;
    bool hasEnvironment;
    DWORD startupSize;
    DWORD startupFlags;
    HANDLE input;
    HANDLE output;
    HANDLE error;
    bool isOutputInheritablePipe;
    bool isStartupElseZero;  ///< All of it but the size, the flags and the three handles.
    bool isResultZero;       ///< The PROCESS_INFORMATION, before the call.
  };

  Creation() { recorded_.reset(); }
  Creation(const Creation&) = delete;
  Creation& operator=(const Creation&) = delete;

  [[nodiscard]] static const std::optional<Arguments>& Recorded() { return recorded_; }

 private:
  static std::string Text(const char* text) { return text == nullptr ? "(null)" : text; }
  static std::string Text(const wchar_t* text) { return text == nullptr ? "(null)" : ToUtf8(text); }

  template <class Struct>
  static bool IsZero(const Struct& data) {
    return std::ranges::all_of(std::as_bytes(std::span(&data, 1)),
                               [](std::byte byte) { return byte == std::byte{0}; });
  }

  template <class Char, class Startup>
  static BOOL WINAPI Record(const Char* application, Char* commandLine,
                            SECURITY_ATTRIBUTES* processSecurity,
                            SECURITY_ATTRIBUTES* threadSecurity, BOOL inheritHandles, DWORD flags,
                            void* environment, const Char* directory, Startup* startup,
                            PROCESS_INFORMATION* result) {
    DWORD handleFlags = 0;
    const bool isInheritable = GetHandleInformation(startup->hStdOutput, &handleFlags) != FALSE &&
                               (handleFlags & HANDLE_FLAG_INHERIT) != 0;
    Startup rest = *startup;
    rest.cb = rest.dwFlags = 0;
    rest.hStdInput = rest.hStdOutput = rest.hStdError = nullptr;
    recorded_ = {Text(application),
                 Text(commandLine),
                 Text(directory),
                 processSecurity != nullptr || threadSecurity != nullptr,
                 inheritHandles != FALSE,
                 flags,
                 environment != nullptr,
                 startup->cb,
                 startup->dwFlags,
                 startup->hStdInput,
                 startup->hStdOutput,
                 startup->hStdError,
                 isInheritable && GetFileType(startup->hStdOutput) == FILE_TYPE_PIPE,
                 IsZero(rest),
                 IsZero(*result)};
    if (commandLine != nullptr) *commandLine = Char{'#'};  // As CreateProcessW may.
    return TRUE;
  }

  inline static std::optional<Arguments> recorded_;
  ReplacedCall narrow_{VE_IMPORTED(CreateProcessA), &Record<char, STARTUPINFOA>};
  ReplacedCall wide_{VE_IMPORTED(CreateProcessW), &Record<wchar_t, STARTUPINFOW>};
};

using Process = test::TempFolder;

TEST_F(Process, StartsInTheCallersDirectoryWhenNoneIsGiven) {
  ReportingChild child;
  ASSERT_TRUE(StartProcess(OwnImage(), L"", L"", false));
  EXPECT_EQ(std::wstring_view(child.Await().directory.data()), Folder());
}

TEST_F(Process, StartsInTheDirectoryGiven) {
  ASSERT_TRUE(CreateDirectoryW(L"bin", nullptr));
  ReportingChild child;
  ASSERT_TRUE(StartProcess(OwnImage(), L"", L"bin\\", false));
  const std::wstring directory = child.Await().directory.data();
  EXPECT_EQ(directory.substr(0, Folder().size() + 4), Folder() + L"\\bin");
}

TEST_F(Process, HandsOverTheCommandLine) {
  ReportingChild child;
  ASSERT_TRUE(StartProcess(OwnImage(), L"name one \"two three\"", L"", false));
  EXPECT_STREQ(child.Await().commandLine.data(), L"name one \"two three\"");
}

TEST_F(Process, UsesACommandLineOf255CharactersWhole) {
  const std::wstring longest = L"name " + std::wstring(250, L'x');
  ReportingChild child;
  ASSERT_TRUE(StartProcess(OwnImage(), longest, L"", false));
  EXPECT_EQ(std::wstring_view(child.Await().commandLine.data()), longest);
}

TEST_F(Process, UsesAnApplicationPathOf255CharactersWhole) {
  std::wstring path = Folder() + L"\\";
  path += std::wstring(255 - path.size() - 4, L'x') + L".exe";
  ASSERT_EQ(path.size(), 255U);
  ASSERT_TRUE(CopyFileW(OwnImage().c_str(), path.c_str(), TRUE));
  ReportingChild child;
  ASSERT_TRUE(StartProcess(path, L"", L"", false));
  EXPECT_EQ(std::wstring_view(child.Await().image.data()), path);
}

TEST_F(Process, IsNotDebuggedWithoutTheFlag) {
  ReportingChild child;
  ASSERT_TRUE(StartProcess(OwnImage(), L"", L"", false));
  EXPECT_FALSE(child.Await().isDebugged);
}

TEST_F(Process, IsDebuggedByTheCallerWithTheFlag) {
  const Role role(L"exit", "42");
  ASSERT_TRUE(StartProcess(OwnImage(), L"", L"", true));
  bool created = false;
  DWORD exitCode = 0;
  DEBUG_EVENT event{};
  do {
    ASSERT_TRUE(WaitForDebugEvent(&event, kTimeout));
    if (event.dwDebugEventCode == CREATE_PROCESS_DEBUG_EVENT) {
      created = true;
      CloseHandle(event.u.CreateProcessInfo.hFile);
    }
    if (event.dwDebugEventCode == LOAD_DLL_DEBUG_EVENT) CloseHandle(event.u.LoadDll.hFile);
    if (event.dwDebugEventCode == EXIT_PROCESS_DEBUG_EVENT) {
      exitCode = event.u.ExitProcess.dwExitCode;
    }
    ContinueDebugEvent(event.dwProcessId, event.dwThreadId, DBG_CONTINUE);
  } while (event.dwDebugEventCode != EXIT_PROCESS_DEBUG_EVENT);
  EXPECT_TRUE(created);
  EXPECT_EQ(exitCode, 42U);
}

TEST_F(Process, IsCreatedWithPlainArguments) {
  const Creation creation;
  EXPECT_TRUE(StartProcess(L"game.exe", L"one \x20AC", L"bin\\", false));
  ASSERT_TRUE(creation.Recorded().has_value());
  const Creation::Arguments& recorded = *creation.Recorded();
  EXPECT_EQ(recorded.application, "game.exe");
  EXPECT_EQ(recorded.commandLine, "one \xE2\x82\xAC");
  EXPECT_EQ(recorded.directory, "bin\\");
  EXPECT_FALSE(recorded.hasSecurity);
  EXPECT_FALSE(recorded.inheritHandles);
  EXPECT_EQ(recorded.flags, 0U);
  EXPECT_FALSE(recorded.hasEnvironment);
  EXPECT_EQ(recorded.startupSize, sizeof(STARTUPINFOW));
  EXPECT_EQ(recorded.startupFlags, 0U);
  EXPECT_EQ(recorded.input, nullptr);
  EXPECT_EQ(recorded.output, nullptr);
  EXPECT_EQ(recorded.error, nullptr);
  EXPECT_TRUE(recorded.isStartupElseZero);
  EXPECT_TRUE(recorded.isResultZero);
}

TEST_F(Process, AnEmptyDirectoryIsPassedAsNullAndAnEmptyCommandLineAsEmpty) {
  const Creation creation;
  EXPECT_TRUE(StartProcess(L"game.exe", L"", L"", false));
  ASSERT_TRUE(creation.Recorded().has_value());
  EXPECT_EQ(creation.Recorded()->directory, "(null)");
  EXPECT_EQ(creation.Recorded()->commandLine, "");
}

TEST_F(Process, TheDebugFlagIsTheOnlyCreationFlag) {
  const Creation creation;
  EXPECT_TRUE(StartProcess(L"game.exe", L"", L"", true));
  ASSERT_TRUE(creation.Recorded().has_value());
  EXPECT_EQ(creation.Recorded()->flags, 2U);
}

TEST_F(Process, TheApplicationAndTheCommandLineAreCutAt255CharactersTheDirectoryIsNot) {
  const Creation creation;
  const std::wstring directory(300, L'd');
  EXPECT_TRUE(StartProcess(std::wstring(256, L'a'), std::wstring(300, L'c'), directory, false));
  ASSERT_TRUE(creation.Recorded().has_value());
  EXPECT_EQ(creation.Recorded()->application, std::string(255, 'a'));
  EXPECT_EQ(creation.Recorded()->commandLine, std::string(255, 'c'));
  EXPECT_EQ(creation.Recorded()->directory, std::string(300, 'd'));
}

TEST_F(Process, TheMessageOfAFailureShowsTheTextsUncut) {
  const SinkRecorder sink;
  const ReplacedCall failing(
      VE_IMPORTED(CreateProcessW),
      +[](const wchar_t*, wchar_t*, SECURITY_ATTRIBUTES*, SECURITY_ATTRIBUTES*, BOOL, DWORD, void*,
          const wchar_t*, STARTUPINFOW*, PROCESS_INFORMATION*) -> BOOL {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
      });
  EXPECT_FALSE(StartProcess(std::wstring(300, L'a'), std::wstring(300, L'c'), L"", false));
  EXPECT_THAT(sink.Messages(),
              ElementsAre(Pair("Failed to create process '" + std::string(300, 'a') +
                                   "' with command-line '" + std::string(300, 'c') +
                                   "'. Error: " + SystemText(ERROR_ACCESS_DENIED),
                               1U)));
}

TEST_F(Process, InheritsNoHandles) {
  SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
  UniqueHandle readEnd;
  UniqueHandle writeEnd;
  ASSERT_TRUE(CreatePipe(readEnd.Receive(), writeEnd.Receive(), &inheritable, 0));
  ReportingChild child;
  ASSERT_TRUE(StartProcess(OwnImage(), L"", L"", false));
  child.Await();
  writeEnd.Reset();
  // The pipe has no writer left, though the child still runs.
  EXPECT_FALSE(PeekNamedPipe(readEnd.Get(), nullptr, 0, nullptr, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
}

TEST_F(Process, ItsHandlesAreClosedAtOnce) {
  static std::vector<HANDLE> closed;
  closed.clear();
  static auto* const process = reinterpret_cast<HANDLE>(ULONG_PTR{0x70000001});
  static auto* const thread = reinterpret_cast<HANDLE>(ULONG_PTR{0x70000002});
  {
    const ReplacedCall creating(
        VE_IMPORTED(CreateProcessW),
        +[](const wchar_t*, wchar_t*, SECURITY_ATTRIBUTES*, SECURITY_ATTRIBUTES*, BOOL, DWORD,
            void*, const wchar_t*, STARTUPINFOW*, PROCESS_INFORMATION* result) -> BOOL {
          result->hProcess = process;
          result->hThread = thread;
          return TRUE;
        });
    const ReplacedCall closing(
        VE_IMPORTED(CloseHandle), +[](HANDLE handle) -> BOOL {
          closed.push_back(handle);
          return TRUE;
        });
    EXPECT_TRUE(StartProcess(L"game.exe", L"", L"", false));
  }
  EXPECT_THAT(closed, testing::UnorderedElementsAre(process, thread));
}

TEST_F(Process, AMissingApplicationIsReportedWithTheSystemsTextAndItsLineBreak) {
  const SinkRecorder sink;
  // With an empty command line: converting it for the message must not replace the last error.
  EXPECT_FALSE(StartProcess(L"bin\\Velmorant Player.exe", L"", L"", false));
  EXPECT_FALSE(StartProcess(L"missing.exe", L"missing \x20AC", L"", false));
  EXPECT_TRUE(SystemText(ERROR_FILE_NOT_FOUND).ends_with("\r\n"));
  EXPECT_THAT(sink.Messages(),
              ElementsAre(Pair("Failed to create process 'bin\\Velmorant Player.exe' with "
                               "command-line ''. Error: " +
                                   SystemText(ERROR_PATH_NOT_FOUND),
                               1U),
                          Pair("Failed to create process 'missing.exe' with command-line "
                               "'missing \xE2\x82\xAC'. Error: " +
                                   SystemText(ERROR_FILE_NOT_FOUND),
                               1U)));
}

TEST_F(Process, AMissingApplicationWithAnEmptyCommandLineIsError2) {
  const SinkRecorder sink;
  EXPECT_FALSE(StartProcess(L"missing.exe", L"", L"", false));
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair("Failed to create process 'missing.exe' with "
                                                "command-line ''. Error: " +
                                                    SystemText(ERROR_FILE_NOT_FOUND),
                                                1U)));
}

TEST(ShellOpen, AFailureIsReturnedAndNotReported) {
  const SinkRecorder sink;
  EXPECT_FALSE(ShellOpen(L"missing file.exe"));
  EXPECT_TRUE(sink.Messages().empty());
}

TEST(ShellOpen, ThePathIsOpenedAndShownWithoutAnOwner) {
  using Arguments =
      std::tuple<HWND, std::wstring, std::wstring, const wchar_t*, const wchar_t*, int>;
  static std::vector<Arguments> recorded;
  recorded.clear();
  const ReplacedCall recording(
      VE_IMPORTED(ShellExecuteW),
      +[](HWND owner, const wchar_t* verb, const wchar_t* path, const wchar_t* parameters,
          const wchar_t* directory, int show) -> HINSTANCE {
        recorded.emplace_back(owner, verb == nullptr ? L"(null)" : verb, path, parameters,
                              directory, show);
        return reinterpret_cast<HINSTANCE>(42);
      });
  EXPECT_TRUE(ShellOpen(L"https://example.com/"));
  EXPECT_THAT(recorded, ElementsAre(Arguments(nullptr, L"open", L"https://example.com/", nullptr,
                                              nullptr, 5)));
}

TEST(ShellOpen, OnlyAResultAbove32IsSuccess) {
  static INT_PTR result;
  const ReplacedCall answering(
      VE_IMPORTED(ShellExecuteW),
      +[](HWND, const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*, int) -> HINSTANCE {
        return reinterpret_cast<HINSTANCE>(result);
      });
  for (result = 0; result <= 32; ++result) EXPECT_FALSE(ShellOpen(L"path")) << result;
  for (result = 33; result <= 42; ++result) EXPECT_TRUE(ShellOpen(L"path")) << result;
}

TEST_F(Process, ShellOpenStartsAProgram) {
  // Elsewhere: the shell may hold the current directory for a moment longer than the child runs.
  ASSERT_TRUE(SetCurrentDirectoryW(L"C:\\"));
  ReportingChild child;
  ASSERT_TRUE(ShellOpen(OwnImage().c_str()));
  EXPECT_EQ(std::wstring_view(child.Await().image.data()), OwnImage());
}

class SystemCallTest : public test::TempFolder {
 protected:
  // Elsewhere than in the folder that is going to be removed: the console that comes with a command
  // runs in the current directory, and a moment longer than the command.
  SystemCallTest() { SetCurrentDirectoryW(L"C:\\"); }

  /// Runs a child that writes `output` in one piece.
  std::vector<std::string> ChunksOf(const std::string& output, const wchar_t* role = L"write") {
    const Role doing(role, output);
    std::vector<std::string> chunks;
    EXPECT_TRUE(SystemCall(OwnCommand(),
                           [&chunks](std::string_view chunk) { chunks.emplace_back(chunk); }));
    return chunks;
  }
};

TEST_F(SystemCallTest, TheReceiverGetsTheOutputWithoutCarriageReturns) {
  EXPECT_THAT(ChunksOf("a\r\nb\r\n"), ElementsAre("a\nb\n"));
}

TEST_F(SystemCallTest, EveryCarriageReturnInARowIsRemoved) {
  EXPECT_THAT(ChunksOf("a\r\r\r\nb\r"), ElementsAre("a\nb"));
}

TEST_F(SystemCallTest, ACarriageReturnInFrontIsKept) {
  EXPECT_THAT(ChunksOf("\r\na\r\n"), ElementsAre("\r\na\n"));
  EXPECT_THAT(ChunksOf("\r"), ElementsAre("\r"));
  EXPECT_THAT(ChunksOf("\r\r"), ElementsAre("\r"));
}

TEST_F(SystemCallTest, OutputComesInChunksOfAtMost1024Bytes) {
  const std::string x(1023, 'x');
  EXPECT_THAT(ChunksOf(x + "\r\ny\r"), ElementsAre(x, "\ny"));
  EXPECT_THAT(ChunksOf(x + "x\ry\r"), ElementsAre(x + "x", "\ry"));
}

/// Expects what is the same for every command.
void ExpectPlainCommand(const Creation::Arguments& recorded) {
  EXPECT_EQ(recorded.application, "(null)");
  EXPECT_EQ(recorded.directory, "(null)");
  EXPECT_FALSE(recorded.hasSecurity);
  EXPECT_FALSE(recorded.hasEnvironment);
  EXPECT_EQ(recorded.flags, 0x08000000U);  // No window.
  EXPECT_EQ(recorded.startupSize, sizeof(STARTUPINFOA));
  EXPECT_EQ(recorded.input, nullptr);
  EXPECT_TRUE(recorded.isStartupElseZero);
  EXPECT_TRUE(recorded.isResultZero);
}

TEST_F(SystemCallTest, WithoutAReceiverTheCommandInheritsNothing) {
  const Creation creation;
  SystemCall("command");
  ASSERT_TRUE(creation.Recorded().has_value());
  ExpectPlainCommand(*creation.Recorded());
  EXPECT_EQ(creation.Recorded()->commandLine, "command");
  EXPECT_FALSE(creation.Recorded()->inheritHandles);
  EXPECT_EQ(creation.Recorded()->startupFlags, 0U);
  EXPECT_EQ(creation.Recorded()->output, nullptr);
  EXPECT_EQ(creation.Recorded()->error, nullptr);
}

TEST_F(SystemCallTest, WithAReceiverTheCommandInheritsThePipeForBothOutputs) {
  const Creation creation;
  // Fails, so that a mistake about the ends of the pipe cannot make the test wait for output.
  const ReplacedCall read(
      VE_IMPORTED(ReadFile),
      +[](HANDLE, void*, DWORD, DWORD*, OVERLAPPED*) -> BOOL { return FALSE; });
  SystemCall("command \xE9", [](std::string_view) {});
  ASSERT_TRUE(creation.Recorded().has_value());
  ExpectPlainCommand(*creation.Recorded());
  EXPECT_EQ(creation.Recorded()->commandLine, "command \xE9");
  EXPECT_TRUE(creation.Recorded()->inheritHandles);
  EXPECT_EQ(creation.Recorded()->startupFlags, 0x00000100U);  // These standard handles.
  EXPECT_TRUE(creation.Recorded()->isOutputInheritablePipe);
  EXPECT_EQ(creation.Recorded()->error, creation.Recorded()->output);
}

/// Records the calls about the pipe and the process in their order. The ends of the pipe and the
/// process are numbers that stand for handles; the output of the command is "text".
class PipeCalls {
 public:
  PipeCalls() { calls_.clear(); }
  PipeCalls(const PipeCalls&) = delete;
  PipeCalls& operator=(const PipeCalls&) = delete;

  [[nodiscard]] static const std::vector<std::string>& Made() { return calls_; }

 private:
  static constexpr std::array<const char*, 4> kNames = {"read end", "write end", "process",
                                                        "thread"};
  static constexpr ULONG_PTR kFirst = 0x70000001;

  static HANDLE Handle(ULONG_PTR index) { return reinterpret_cast<HANDLE>(kFirst + index); }
  static std::string Name(HANDLE handle) {
    const ULONG_PTR index = reinterpret_cast<ULONG_PTR>(handle) - kFirst;
    return index < kNames.size() ? kNames.at(index) : "another handle";
  }

  static BOOL WINAPI Create(HANDLE* readEnd, HANDLE* writeEnd, SECURITY_ATTRIBUTES* security,
                            DWORD size) {
    *readEnd = Handle(0);
    *writeEnd = Handle(1);
    if (security == nullptr) {
      calls_.emplace_back("pipe without security attributes");
      return TRUE;
    }
    calls_.push_back(Format("pipe of size {}, length {}, descriptor {}, ", size,
                            security->nLength == sizeof(SECURITY_ATTRIBUTES) ? "right" : "wrong",
                            security->lpSecurityDescriptor == nullptr ? "null" : "given") +
                     (security->bInheritHandle != FALSE ? "inheritable" : "not inheritable"));
    return TRUE;
  }
  static BOOL WINAPI SetInformation(HANDLE handle, DWORD mask, DWORD flags) {
    calls_.push_back(Format("{}: mask {}, flags {}", Name(handle), mask, flags));
    return TRUE;
  }
  static BOOL WINAPI CreateProcess(const char*, char*, SECURITY_ATTRIBUTES*, SECURITY_ATTRIBUTES*,
                                   BOOL, DWORD, void*, const char*, STARTUPINFOA* startup,
                                   PROCESS_INFORMATION* result) {
    calls_.push_back(
        Format("create, output {}, error {}", Name(startup->hStdOutput), Name(startup->hStdError)));
    result->hProcess = Handle(2);
    result->hThread = Handle(3);
    return TRUE;
  }
  static BOOL WINAPI Read(HANDLE handle, void* buffer, DWORD size, DWORD* read,
                          OVERLAPPED* overlapped) {
    const std::string call =
        Format("read {} bytes from {}{}", size, Name(handle), overlapped == nullptr ? "" : "!");
    *read = calls_.back() != call ? 4 : 0;
    std::memcpy(buffer, "text", *read);
    calls_.push_back(call);
    return TRUE;
  }
  static DWORD WINAPI Wait(HANDLE handle, DWORD milliseconds) {
    calls_.push_back(Format("wait for {} {}", Name(handle), milliseconds));
    return WAIT_OBJECT_0;
  }
  static BOOL WINAPI ExitCode(HANDLE handle, DWORD* code) {
    calls_.push_back(Format("exit code of {}", Name(handle)));
    *code = 0;
    return TRUE;
  }
  static BOOL WINAPI Close(HANDLE handle) {
    calls_.push_back(Format("close {}", Name(handle)));
    return TRUE;
  }

  inline static std::vector<std::string> calls_;
  ReplacedCall create_{VE_IMPORTED(CreatePipe), &Create};
  ReplacedCall setInformation_{VE_IMPORTED(SetHandleInformation), &SetInformation};
  ReplacedCall createProcess_{VE_IMPORTED(CreateProcessA), &CreateProcess};
  ReplacedCall read_{VE_IMPORTED(ReadFile), &Read};
  ReplacedCall wait_{VE_IMPORTED(WaitForSingleObject), &Wait};
  ReplacedCall exitCode_{VE_IMPORTED(GetExitCodeProcess), &ExitCode};
  ReplacedCall close_{VE_IMPORTED(CloseHandle), &Close};
};

TEST_F(SystemCallTest, WithAReceiverReadsUntilTheEndOfTheOutputAndDoesNotWait) {
  std::string received;
  std::vector<std::string> made;
  {
    const PipeCalls calls;
    EXPECT_TRUE(SystemCall("command", [&received](std::string_view chunk) { received += chunk; }));
    made = PipeCalls::Made();
  }
  EXPECT_EQ(received, "text");
  // The write end is closed before the first read: with it open, the output would never end.
  EXPECT_THAT(made,
              ElementsAre("pipe of size 0, length right, descriptor null, inheritable",
                          "read end: mask 1, flags 0", "create, output write end, error write end",
                          "close write end", "read 1024 bytes from read end",
                          "read 1024 bytes from read end", "close read end", "exit code of process",
                          "close thread", "close process"));
}

TEST_F(SystemCallTest, WithoutAReceiverWaitsForTheProcessWithoutATimeOut) {
  std::vector<std::string> made;
  {
    const PipeCalls calls;
    EXPECT_TRUE(SystemCall("command"));
    made = PipeCalls::Made();
  }
  EXPECT_THAT(made, ElementsAre("create, output another handle, error another handle",
                                "wait for process 4294967295", "exit code of process",
                                "close thread", "close process"));
}

TEST_F(SystemCallTest, TheReceiverGetsTheErrorOutputToo) {
  EXPECT_THAT(ChunksOf("oh\r\n", L"write error"), ElementsAre("oh\n"));
}

TEST_F(SystemCallTest, NoOutputIsNoChunk) { EXPECT_TRUE(ChunksOf("").empty()); }

TEST_F(SystemCallTest, TheExitCodeDecides) {
  for (const auto& [code, succeeds] :
       {std::pair("0", true), std::pair("1", false), std::pair("259", false)}) {
    const Role role(L"exit", code);
    EXPECT_EQ(SystemCall(OwnCommand()), succeeds) << code;
    EXPECT_EQ(SystemCall(OwnCommand(), [](std::string_view) {}), succeeds) << code;
  }
}

TEST_F(SystemCallTest, ReturnsAfterTheCommandHasEnded) {
  const SinkRecorder sink;
  const std::wstring file = Folder() + L"\\ended.txt";
  EXPECT_FALSE(SystemCall("cmd /c \"echo x> " + ToUtf8(file) + " & exit 1\""));
  EXPECT_TRUE(test::ReadWhole(file).starts_with("x"));
  EXPECT_TRUE(sink.Messages().empty());
}

TEST_F(SystemCallTest, ACommandThatHasClosedItsOutputButRunsCountsAsNotFinished) {
  ReportingChild child(L"close output");
  // The output ends while the child still runs.
  EXPECT_FALSE(SystemCall(OwnCommand(), [](std::string_view) {}));
  child.Await();
}

TEST_F(SystemCallTest, AnExitCodeThatCannotBeReadIsZero) {
  const Role role(L"exit", "1");
  const ReplacedCall failing(
      VE_IMPORTED(GetExitCodeProcess), +[](HANDLE, DWORD* code) -> BOOL {
        *code = 7;
        return FALSE;
      });
  EXPECT_TRUE(SystemCall(OwnCommand()));
}

TEST_F(SystemCallTest, UsesACommandOf512BytesWholeAndCutsALongerOne) {
  const Role role(L"write command line");
  std::string longest = OwnCommand() + " ";
  ASSERT_LT(longest.size(), 512U);
  longest += std::string(512 - longest.size(), 'x');
  for (const std::string& command : {longest, longest + "yz"}) {
    std::string received;
    EXPECT_TRUE(
        SystemCall(command, [&received](std::string_view chunk) { received.append(chunk); }));
    EXPECT_EQ(received, longest);
  }
}

TEST_F(SystemCallTest, ACommandThatCannotBeStartedIsReported) {
  const SinkRecorder sink;
  EXPECT_FALSE(SystemCall("no-such-program one \xE9"));
  EXPECT_THAT(sink.Messages(),
              ElementsAre(Pair("Failed to perform sysCall 'no-such-program one \xE9': " +
                                   SystemText(ERROR_FILE_NOT_FOUND),
                               1U)));
}

TEST_F(SystemCallTest, ACommandThatCannotBeStartedLeavesItsPipeOpen) {
  const SinkRecorder sink;
  static std::vector<HANDLE> ends;
  ends.clear();
  static void* const realCreatePipe = VE_IMPORTED(CreatePipe);
  const ReplacedCall recording(
      VE_IMPORTED(CreatePipe),
      +[](HANDLE* readEnd, HANDLE* writeEnd, SECURITY_ATTRIBUTES* security, DWORD size) -> BOOL {
        const BOOL created = reinterpret_cast<decltype(&CreatePipe)>(realCreatePipe)(
            readEnd, writeEnd, security, size);
        ends = {*readEnd, *writeEnd};
        return created;
      });
  EXPECT_FALSE(SystemCall("no-such-program", [](std::string_view) {}));
  EXPECT_THAT(sink.Messages(), ElementsAre(Pair("Failed to perform sysCall 'no-such-program': " +
                                                    SystemText(ERROR_FILE_NOT_FOUND),
                                                1U)));
  ASSERT_EQ(ends.size(), 2U);
  // Closing an end succeeds, so it was open.
  EXPECT_TRUE(CloseHandle(ends[0]));
  EXPECT_TRUE(CloseHandle(ends[1]));
}

TEST_F(SystemCallTest, APipeThatCannotBeMadeIsNotReported) {
  const SinkRecorder sink;
  const Role role(L"exit", "0");
  {
    const ReplacedCall failing(
        VE_IMPORTED(CreatePipe),
        +[](HANDLE*, HANDLE*, SECURITY_ATTRIBUTES*, DWORD) -> BOOL { return FALSE; });
    EXPECT_FALSE(SystemCall(OwnCommand(), [](std::string_view) {}));
  }
  {
    const ReplacedCall failing(
        VE_IMPORTED(SetHandleInformation), +[](HANDLE, DWORD, DWORD) -> BOOL { return FALSE; });
    EXPECT_FALSE(SystemCall(OwnCommand(), [](std::string_view) {}));
  }
  EXPECT_TRUE(sink.Messages().empty());
}

}  // namespace
}  // namespace ve
