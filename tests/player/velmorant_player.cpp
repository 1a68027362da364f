// A small game for the tests and the demo: it records how it was started, shows a window for a few
// seconds and ends.
//
// VELMORANT_PLAYER_RECORD   file that the start is appended to; without it "PlayerStarts.txt"
//                           in the folder above the executable's own
// VELMORANT_PLAYER_SECONDS  how long the window stays (default 4); 0 ends at once, without a window

#include <windows.h>

#include <cstdlib>
#include <string>

namespace {

std::string ToUtf8(const std::wstring& text) {
  if (text.empty()) return {};
  const int size = static_cast<int>(text.size());
  const int needed =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<size_t>(needed), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), size, result.data(), needed, nullptr, nullptr);
  return result;
}

std::wstring CurrentDirectory() {
  std::wstring path(GetCurrentDirectoryW(0, nullptr), L'\0');
  path.resize(GetCurrentDirectoryW(static_cast<DWORD>(path.size()), path.data()));
  return path;
}

std::wstring ProgramPath() {
  std::wstring path(32768, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  return path;
}

std::wstring Environment(const wchar_t* name) {
  std::wstring value(GetEnvironmentVariableW(name, nullptr, 0), L'\0');
  if (value.empty()) return value;
  value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
  return value;
}

std::wstring FolderOf(const std::wstring& path) {
  return path.substr(0, path.find_last_of(L"\\/"));
}

// One write for one start, so that two games that start together do not mix their lines.
// Returns a Windows error code.
DWORD RecordStart(const std::wstring& program) {
  std::wstring file = Environment(L"VELMORANT_PLAYER_RECORD");
  if (file.empty()) file = FolderOf(FolderOf(program)) + L"\\PlayerStarts.txt";
  const std::string record = "directory=" + ToUtf8(CurrentDirectory()) +
                             "\ncommandLine=" + ToUtf8(GetCommandLineW()) +
                             "\nprogram=" + ToUtf8(program) +
                             "\nprocess=" + std::to_string(GetCurrentProcessId()) + "\n\n";
  const HANDLE out = CreateFileW(file.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                 nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (out == INVALID_HANDLE_VALUE) return GetLastError();
  DWORD written = 0;
  const BOOL done =
      WriteFile(out, record.data(), static_cast<DWORD>(record.size()), &written, nullptr);
  const DWORD error = done != FALSE ? DWORD{ERROR_SUCCESS} : GetLastError();
  CloseHandle(out);
  return error;
}

// The game's data: the window shows the content of version.txt in the working directory.
std::wstring VersionText() {
  const HANDLE in = CreateFileW(L"version.txt", GENERIC_READ, FILE_SHARE_READ, nullptr,
                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (in == INVALID_HANDLE_VALUE) return L"(no version.txt)";
  char text[200] = {};
  DWORD size = 0;
  ReadFile(in, text, sizeof text, &size, nullptr);
  CloseHandle(in);
  return std::wstring(text, text + size);
}

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_TIMER) DestroyWindow(window);
  if (message == WM_DESTROY) PostQuitMessage(0);
  return DefWindowProcW(window, message, wParam, lParam);
}

void ShowGame(HINSTANCE instance, unsigned seconds) {
  WNDCLASSW windowClass = {};
  windowClass.lpfnWndProc = Procedure;
  windowClass.hInstance = instance;
  windowClass.hbrBackground = GetSysColorBrush(COLOR_WINDOW);
  windowClass.lpszClassName = L"VelmorantPlayer";
  RegisterClassW(&windowClass);
  const int width = 420;
  const int height = 200;
  const HWND window = CreateWindowExW(
      0, L"VelmorantPlayer", L"Velmorant Player", WS_OVERLAPPEDWINDOW | WS_VISIBLE,
      (GetSystemMetrics(SM_CXSCREEN) - width) / 2, (GetSystemMetrics(SM_CYSCREEN) - height) / 2,
      width, height, nullptr, nullptr, instance, nullptr);
  const std::wstring text = L"The game is running.\n\n" + VersionText();
  CreateWindowExW(0, L"STATIC", text.c_str(), WS_CHILD | WS_VISIBLE, 16, 16, width - 48,
                  height - 72, window, nullptr, instance, nullptr);
  SetTimer(window, 1, seconds * 1000, nullptr);
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
}

}  // namespace

int WINAPI WinMain(HINSTANCE instance, HINSTANCE, LPSTR, int) {
  // A start that cannot be recorded fails, so that it differs from no start.
  if (const DWORD error = RecordStart(ProgramPath())) return static_cast<int>(error);
  const std::wstring setting = Environment(L"VELMORANT_PLAYER_SECONDS");
  const unsigned seconds = setting.empty() ? 4u : std::wcstoul(setting.c_str(), nullptr, 10);
  if (seconds > 0) ShowGame(instance, seconds);
  return 0;
}
