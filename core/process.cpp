#include "core/process.h"

#include "core/windows.h"

#include <shellapi.h>

#include <array>
#include <string>

#include "core/handle.h"
#include "core/message_sink.h"
#include "core/truncated_string.h"
#include "core/unicode.h"
#include "core/windows_error.h"

namespace ve {
namespace {

/// Removes every carriage return but one in the first place: receivers get that one.
std::string_view RemoveCarriageReturns(char* chunk, std::size_t size) {
  std::size_t kept = 1;
  for (std::size_t at = 1; at < size; ++at) {
    if (chunk[at] != '\r') chunk[kept++] = chunk[at];
  }
  return {chunk, kept};
}

/// Forwards what the command writes until the last writer closes the pipe.
void ForwardOutput(HANDLE readEnd, const OutputReceiver& receiver) {
  std::array<char, 1024> chunk;
  DWORD size = 0;
  while (ReadFile(readEnd, chunk.data(), static_cast<DWORD>(chunk.size()), &size, nullptr) !=
             FALSE &&
         size > 0) {
    receiver(RemoveCarriageReturns(chunk.data(), size));
  }
}

}  // namespace

bool StartProcess(std::wstring_view application, std::wstring_view commandLine,
                  std::wstring_view workingDirectory, bool debug) {
  const WidePath applicationText(application);
  WidePath commandLineText(commandLine);

  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION started{};
  const BOOL created = CreateProcessW(applicationText.Get(), commandLineText.GetWritable(), nullptr,
                                      nullptr, FALSE, debug ? DEBUG_ONLY_THIS_PROCESS : 0, nullptr,
                                      workingDirectory.empty() ? nullptr : workingDirectory.data(),
                                      &startup, &started);
  if (created == FALSE) {
    // First, because converting the texts for the message may change the last error.
    const std::wstring error = WindowsErrorText();
    FormatToSink("Failed to create process '{0}' with command-line '{1}'. Error: {2}", 1,
                 ToUtf8(application), ToUtf8(commandLine), ToUtf8(error));
  }
  const UniqueHandle process(started.hProcess);
  const UniqueHandle thread(started.hThread);
  return created != FALSE;
}

bool ShellOpen(const wchar_t* pathOrAddress) {
  // ShellExecuteW returns a number in place of a handle; above 32 it means success.
  const HINSTANCE result =
      ShellExecuteW(nullptr, L"open", pathOrAddress, nullptr, nullptr, SW_SHOW);
  return reinterpret_cast<INT_PTR>(result) > 32;
}

bool SystemCall(std::string_view command, const OutputReceiver& receiver) {
  UniqueHandle readEnd;
  UniqueHandle writeEnd;
  if (receiver) {
    SECURITY_ATTRIBUTES inheritable{};
    inheritable.nLength = sizeof(inheritable);
    inheritable.bInheritHandle = TRUE;
    if (CreatePipe(readEnd.Receive(), writeEnd.Receive(), &inheritable, 0) == FALSE ||
        SetHandleInformation(readEnd.Get(), HANDLE_FLAG_INHERIT, 0) == FALSE) {
      return false;
    }
  }

  TruncatedString<char, 513> commandText(command);
  STARTUPINFOA startup{};
  startup.cb = sizeof(startup);
  if (receiver) {
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writeEnd.Get();
    startup.hStdError = writeEnd.Get();
  }
  PROCESS_INFORMATION started{};
  if (CreateProcessA(nullptr, commandText.GetWritable(), nullptr, nullptr, receiver ? TRUE : FALSE,
                     CREATE_NO_WINDOW, nullptr, nullptr, &startup, &started) == FALSE) {
    const std::wstring error = WindowsErrorText();
    FormatToSink("Failed to perform sysCall '{}': {}", 1, command, ToUtf8(error));
    // Both ends of the pipe stay open on this path.
    static_cast<void>(readEnd.Release());
    static_cast<void>(writeEnd.Release());
    return false;
  }
  const UniqueHandle process(started.hProcess);
  const UniqueHandle thread(started.hThread);

  if (receiver) {
    writeEnd.Reset();
    ForwardOutput(readEnd.Get(), receiver);
    readEnd.Reset();
  } else {
    WaitForSingleObject(process.Get(), INFINITE);
  }

  // STILL_ACTIVE, of a command that has closed its output but still runs, counts as not finished.
  DWORD exitCode = 0;
  if (GetExitCodeProcess(process.Get(), &exitCode) == FALSE) exitCode = 0;
  return exitCode == 0;
}

}  // namespace ve
