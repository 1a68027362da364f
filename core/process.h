// Starting other programs. Nothing here throws for its own failures or shows a dialog: failures are
// told by the result and, where stated, to the message sink at level 1.
#pragma once

#include <functional>
#include <string_view>

namespace ve {

/// Creates a process and does not wait for it. `application` and `commandLine` are used up to 255
/// characters; `workingDirectory` must be terminated where the view ends, empty means the caller's
/// current directory. `debug` starts it under the caller as its debugger. Handles are not
/// inherited.
/// https://learn.microsoft.com/windows/win32/api/processthreadsapi/nf-processthreadsapi-createprocessw
bool StartProcess(std::wstring_view application, std::wstring_view commandLine,
                  std::wstring_view workingDirectory, bool debug);

/// Hands a path or address to the shell's "open" verb. Reports nothing.
bool ShellOpen(const wchar_t* pathOrAddress);

/// Receives a piece of a command's output, carriage returns removed but for one that
/// comes first.
using OutputReceiver = std::function<void(std::string_view chunk)>;

/// Runs a command line of at most 512 bytes (ANSI code page) without a console. Without a receiver
/// waits for its end. With one, passes on what it writes to its standard output and error, and
/// takes the end of the output for its end. True if it has ended with exit code 0.
bool SystemCall(std::string_view command, const OutputReceiver& receiver = nullptr);

}  // namespace ve
