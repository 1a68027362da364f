// Starts other programs.
//
//   ve::StartProcess(L"bin\\Game.exe", L"", L"bin\\", /*debug=*/false);
//
// Nothing here throws or shows a dialog. Failures are reported by the return value and, where
// noted, by a level-1 message to the message sink.
#pragma once

#include <functional>
#include <string_view>

namespace ve {

/// Starts a process without waiting for it. Returns whether it was started; on failure sends
/// "Failed to create process ..." to the message sink.
///
/// application, commandLine   truncated to 255 characters
/// workingDirectory           null-terminated; empty: the caller's current directory
/// debug                      attach the caller as the debugger
///
/// Handles are not inherited.
/// https://learn.microsoft.com/windows/win32/api/processthreadsapi/nf-processthreadsapi-createprocessw
bool StartProcess(std::wstring_view application, std::wstring_view commandLine,
                  std::wstring_view workingDirectory, bool debug);

/// Opens a file or an address with the program that the shell has for it. Returns whether the shell
/// accepted it; sends no message. Not called by the Launcher; part of the support library.
/// https://learn.microsoft.com/windows/win32/api/shellapi/nf-shellapi-shellexecutew
bool ShellOpen(const wchar_t* pathOrAddress);

/// Receives a piece of a command's output, of at most 1024 bytes, without its carriage returns; one
/// that is the first byte of a piece is passed on.
using OutputReceiver = std::function<void(std::string_view chunk)>;

/// Runs a command line (ANSI, at most 512 bytes) in a hidden console. Not called by the Launcher;
/// part of the support library.
///
/// Without a receiver, waits for the process to exit. With one, forwards stdout and stderr to it
/// and returns at end of output, possibly before the process exits. Returns true if the process has
/// exited with code 0.
bool SystemCall(std::string_view command, const OutputReceiver& receiver = nullptr);

}  // namespace ve
