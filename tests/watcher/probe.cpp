// A program with known windows and exit codes, to prove watch.exe with.
//
//   probe.exe box STYLE CAPTION TEXT   a message box; its answer is the exit code
//   probe.exe exit CODE                ends with that code
//   probe.exe abort                    ends through the standard termination handler
//   probe.exe child ARGS...            starts itself with ARGS and ends at once, with code 0
//   probe.exe hang                     a visible window that never handles its messages
//   probe.exe wait                     never ends, without a window

#include <windows.h>

#include <shellapi.h>

#include <cstdlib>
#include <exception>
#include <string>

namespace {

// Hands all arguments from the given one on to a second probe.
int StartChild(const wchar_t* self, int count, wchar_t** arguments) {
  std::wstring line = L"\"" + std::wstring(self) + L"\"";
  for (int i = 0; i < count; ++i) line += L" \"" + std::wstring(arguments[i]) + L"\"";
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(self, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &process)) {
    return 1;
  }
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return 0;
}

int Hang() {
  CreateWindowExW(0, L"STATIC", L"Hanging", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 200, 100,
                  nullptr, nullptr, nullptr, nullptr);
  Sleep(INFINITE);
  return 0;
}

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  int count = 0;
  wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
  const std::wstring what = count > 1 ? arguments[1] : L"";
  if (what == L"box" && count == 5) {
    return MessageBoxW(nullptr, arguments[4], arguments[3],
                       static_cast<UINT>(std::wcstoul(arguments[2], nullptr, 10)));
  }
  if (what == L"exit" && count == 3)
    return static_cast<int>(std::wcstol(arguments[2], nullptr, 10));
  if (what == L"abort") std::terminate();
  if (what == L"child") return StartChild(arguments[0], count - 2, arguments + 2);
  if (what == L"hang") return Hang();
  if (what == L"wait") Sleep(INFINITE);
  return 2;
}
