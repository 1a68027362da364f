// Watches a program and everything that it starts, as a user sees it, and answers its windows.
//
//   watch.exe run DIRECTORY PROGRAM [ARGUMENTS]   start PROGRAM in DIRECTORY and watch it
//   watch.exe hold FILE none|read                 keep FILE (or a folder) open; others may not
//                                                 open it, or only read it
//   watch.exe occupy DIRECTORY                    keep DIRECTORY as the current directory
//   watch.exe desktop                             keep the desktop alive, so that the next start is
//                                                 quick
//
// Reports are JSON objects, one a line, on standard output. Orders are lines on standard input:
//
//   press WINDOW ID    press the button with that identifier
//   answer WINDOW N    end the message box with the result N, whatever its buttons
//   close WINDOW       ask the window to close
//   block WINDOW       keep the window's thread busy until it is released; reported as "blocked"
//                      once that is so
//   release WINDOW     let it go on
//   quit               end all watched processes
//
// It ends when all watched processes have ended or its input is closed; then no watched process
// stays behind. It never waits on a watched process for longer than half a second.

#include <windows.h>

#include <commctrl.h>
#include <shellapi.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "hook_messages.h"

namespace {

constexpr DWORD kPollMilliseconds = 5;
constexpr UINT kAnswerMilliseconds = 500;

// --- Reports ----------------------------------------------------------------------------------

std::string ToUtf8(const std::wstring& text) {
  if (text.empty()) return {};
  const int size = static_cast<int>(text.size());
  const int needed =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<size_t>(needed), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), size, result.data(), needed, nullptr, nullptr);
  return result;
}

std::string Quoted(const std::wstring& text) {
  std::string result = "\"";
  for (const char c : ToUtf8(text)) {
    if (c == '"' || c == '\\') {
      result += '\\';
      result += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
      result += escape;
    } else {
      result += c;
    }
  }
  return result + "\"";
}

// A JSON object under construction.
class Report {
 public:
  Report() = default;
  explicit Report(const wchar_t* event) { Add("event", std::wstring(event)); }

  Report& Add(const char* name, const std::wstring& text) { return AddRaw(name, Quoted(text)); }
  Report& Add(const char* name, long long number) { return AddRaw(name, std::to_string(number)); }
  Report& AddRaw(const char* name, const std::string& json) {
    text_ += (text_.empty() ? "\"" : ", \"") + std::string(name) + "\": " + json;
    return *this;
  }
  [[nodiscard]] std::string Text() const { return "{" + text_ + "}"; }
  void Send() const {
    const std::string line = Text() + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
  }

 private:
  std::string text_;
};

std::string List(const std::vector<std::string>& items) {
  std::string result = "[";
  for (const std::string& item : items) result += (result.size() > 1 ? ", " : "") + item;
  return result + "]";
}

int Fail(const wchar_t* what) {
  const DWORD code = GetLastError();
  Report(L"failed").Add("what", std::wstring(what)).Add("error", code).Send();
  return 1;
}

// --- Orders -----------------------------------------------------------------------------------

// The lines of standard input. A second thread reads them, because reading blocks.
class Orders {
 public:
  Orders() : reader_([this] { Read(); }) { reader_.detach(); }

  // The lines since the last call; nothing once the input has ended and all lines were taken.
  std::optional<std::vector<std::string>> Take() {
    const std::lock_guard lock(mutex_);
    if (ended_ && lines_.empty()) return std::nullopt;
    return std::exchange(lines_, {});
  }

 private:
  void Read() {
    char line[256];
    while (std::fgets(line, sizeof line, stdin) != nullptr) {
      const std::lock_guard lock(mutex_);
      lines_.emplace_back(line);
    }
    const std::lock_guard lock(mutex_);
    ended_ = true;
  }

  std::mutex mutex_;
  std::vector<std::string> lines_;
  bool ended_ = false;
  std::thread reader_;
};

void WaitForEndOfInput() {
  char line[256];
  while (std::fgets(line, sizeof line, stdin) != nullptr) {
  }
}

// --- Windows ----------------------------------------------------------------------------------

// The answer to a message, or nothing when the window's thread does not answer in time.
std::optional<LRESULT> Ask(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  DWORD_PTR result = 0;
  if (SendMessageTimeoutW(window, message, wParam, lParam, SMTO_ABORTIFHUNG | SMTO_BLOCK,
                          kAnswerMilliseconds, &result) == 0) {
    return std::nullopt;
  }
  return static_cast<LRESULT>(result);
}

std::wstring ClassOf(HWND window) {
  wchar_t name[256] = {};
  GetClassNameW(window, name, 256);
  return name;
}

// A top-level window's caption, without asking its thread.
std::wstring CaptionOf(HWND window) {
  wchar_t text[512] = {};
  InternalGetWindowText(window, text, 512);
  return text;
}

// A control's whole text, from its own thread.
std::optional<std::wstring> TextOf(HWND control) {
  std::wstring text(4096, L'\0');
  const auto length = Ask(control, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()));
  if (!length) return std::nullopt;
  text.resize(static_cast<size_t>(*length));
  return text;
}

std::vector<HWND> ChildrenOf(HWND window) {
  std::vector<HWND> children;
  EnumChildWindows(
      window,
      [](HWND child, LPARAM list) -> BOOL {
        reinterpret_cast<std::vector<HWND>*>(list)->push_back(child);
        return TRUE;
      },
      reinterpret_cast<LPARAM>(&children));
  return children;
}

unsigned StyleOf(HWND window) { return static_cast<unsigned>(GetWindowLongW(window, GWL_STYLE)); }

void AddRectangle(Report& report, const RECT& rectangle) {
  report.Add("x", rectangle.left).Add("y", rectangle.top);
  report.Add("width", rectangle.right - rectangle.left);
  report.Add("height", rectangle.bottom - rectangle.top);
}

// A window's number in reports and orders; window handles have 32 significant bits.
long long NumberOf(HWND window) {
  return static_cast<long long>(reinterpret_cast<ULONG_PTR>(window) & 0xFFFFFFFF);
}
HWND WindowOf(unsigned long number) {
  return reinterpret_cast<HWND>(static_cast<ULONG_PTR>(number));
}

// --- The hook in the watched program ----------------------------------------------------------

// A hook on a window's thread. (A thread started in that process would not do: Wine starts it
// inside whatever the window's thread is doing, and where that is an allocation, both hang.)
class Hook {
 public:
  explicit Hook(HWND window)
      : hook_(SetWindowsHookExW(WH_CALLWNDPROC, Procedure(), Library(),
                                GetWindowThreadProcessId(window, nullptr))) {}
  Hook(const Hook&) = delete;
  Hook& operator=(const Hook&) = delete;
  ~Hook() { UnhookWindowsHookEx(hook_); }

  [[nodiscard]] bool IsSet() const { return hook_ != nullptr; }

 private:
  static HMODULE Library() {
    static const HMODULE library = LoadLibraryW(L"icon_hook.dll");
    return library;
  }
  static HOOKPROC Procedure() {
    return reinterpret_cast<HOOKPROC>(
        reinterpret_cast<void*>(GetProcAddress(Library(), "HandleWatchMessage")));
  }

  HHOOK hook_;
};

// Which icon a message box shows. Icon handles mean something only in the process that owns them.
std::optional<std::wstring> IconOf(HWND dialog, HWND control) {
  const Hook hook(dialog);
  if (!hook.IsSet() || !Ask(control, RegisterWindowMessageW(kIconQuestion), 0, 0)) {
    return std::nullopt;
  }
  switch (reinterpret_cast<uintptr_t>(GetPropW(control, kIconAnswer))) {
    case 32513:
      return L"error";
    case 32514:
      return L"question";
    case 32515:
      return L"warning";
    case 32516:
      return L"information";
    default:
      return L"unknown";
  }
}

void EndDialogWith(HWND dialog, WPARAM result) {
  const Hook hook(dialog);
  Ask(dialog, RegisterWindowMessageW(kEndDialog), result, 0);
}

// A window whose thread waits, from the construction on, for the release.
class BlockedWindow {
 public:
  explicit BlockedWindow(HWND window)
      : window_(window),
        release_(CreateEventW(nullptr, TRUE, FALSE,
                              (kReleaseEvent + std::to_wstring(NumberOf(window))).c_str())),
        hook_(window) {
    SendNotifyMessageW(window_, RegisterWindowMessageW(kBlock), 0, 0);
  }
  BlockedWindow(const BlockedWindow&) = delete;
  BlockedWindow& operator=(const BlockedWindow&) = delete;
  ~BlockedWindow() {
    Release();
    CloseHandle(release_);
  }

  void Release() const { SetEvent(release_); }

  // True once, when the thread has begun to wait.
  bool HasBegun() {
    if (reported_ || GetPropW(window_, kBlocked) == nullptr) return false;
    reported_ = true;
    return true;
  }

 private:
  HWND window_;
  HANDLE release_;
  Hook hook_;
  bool reported_ = false;
};

// --- What is reported of a window -------------------------------------------------------------

// A message box: its whole text, its buttons from left to right, the default one, its icon.
bool AddDialog(Report& report, HWND window) {
  std::wstring text;
  std::wstring icon = L"none";
  std::wstring defaultButton;
  std::map<LONG, std::string> buttons;
  for (const HWND child : ChildrenOf(window)) {
    if ((StyleOf(child) & WS_VISIBLE) == 0) continue;
    const std::wstring className = ClassOf(child);
    if (_wcsicmp(className.c_str(), L"STATIC") == 0) {
      if ((StyleOf(child) & SS_TYPEMASK) == SS_ICON) {
        const auto handle = Ask(child, STM_GETICON, 0, 0);
        if (!handle) return false;
        if (*handle != 0) {
          const auto shown = IconOf(window, child);
          if (!shown) return false;
          icon = *shown;
        }
      } else {
        const auto part = TextOf(child);
        if (!part) return false;
        text += *part;
      }
    } else if (_wcsicmp(className.c_str(), L"BUTTON") == 0) {
      const auto label = TextOf(child);
      if (!label) return false;
      RECT place = {};
      GetWindowRect(child, &place);
      Report button;
      button.Add("id", GetDlgCtrlID(child)).Add("label", *label);
      if ((StyleOf(child) & BS_TYPEMASK) == BS_DEFPUSHBUTTON) defaultButton = *label;
      buttons[place.left] = button.Text();
    }
  }
  // Every message box has buttons: without one it is still being made.
  if (buttons.empty()) return false;
  std::vector<std::string> list;
  list.reserve(buttons.size());
  for (const auto& [left, button] : buttons) list.push_back(button);
  report.Add("text", text).Add("icon", icon).AddRaw("buttons", List(list));
  report.Add("default", defaultButton);
  return true;
}

// The controls of any other window; a progress bar with its range and position.
std::optional<std::string> ControlsOf(HWND window) {
  std::vector<std::string> controls;
  for (const HWND child : ChildrenOf(window)) {
    const auto text = TextOf(child);
    if (!text) return std::nullopt;
    Report control;
    const std::wstring className = ClassOf(child);
    control.Add("class", className).Add("text", *text).Add("style", StyleOf(child));
    control.Add("id", GetDlgCtrlID(child));
    RECT place = {};
    GetWindowRect(child, &place);
    MapWindowPoints(nullptr, window, reinterpret_cast<POINT*>(&place), 2);
    AddRectangle(control, place);
    if (_wcsicmp(className.c_str(), L"msctls_progress32") == 0) {
      const auto low = Ask(child, PBM_GETRANGE, TRUE, 0);
      const auto high = Ask(child, PBM_GETRANGE, FALSE, 0);
      const auto position = Ask(child, PBM_GETPOS, 0, 0);
      const auto step = Ask(child, PBM_GETSTEP, 0, 0);
      if (!low || !high || !position || !step) return std::nullopt;
      control.Add("low", *low).Add("high", *high).Add("position", *position).Add("step", *step);
    }
    controls.push_back(control.Text());
  }
  return List(controls);
}

// --- The watch --------------------------------------------------------------------------------

struct WatchedProcess {
  HANDLE handle = nullptr;
  std::wstring name;
};

class Watch {
 public:
  Watch(HANDLE job, HANDLE port) : job_(job), port_(port) {}

  // Rounds until everything has ended, or the input has.
  void Run(Orders& orders) {
    for (;;) {
      const auto lines = orders.Take();
      if (!lines) {
        TerminateJobObject(job_, kEndedByWatch);
        return;
      }
      for (const std::string& line : *lines) Obey(line);
      LookAtProcesses();
      LookAtWindows();
      LookAtBlocked();
      if (allEnded_) {
        Report(L"end").Send();
        return;
      }
    }
  }

 private:
  static constexpr UINT kEndedByWatch = 0xDEAD;

  void Obey(const std::string& line) {
    std::istringstream words(line);
    std::string verb;
    unsigned long window = 0;
    unsigned id = 0;
    words >> verb >> window >> id;
    if (verb == "press") {
      const HWND button = GetDlgItem(WindowOf(window), static_cast<int>(id));
      PostMessageW(WindowOf(window), WM_COMMAND, id, reinterpret_cast<LPARAM>(button));
    } else if (verb == "close") {
      PostMessageW(WindowOf(window), WM_CLOSE, 0, 0);
    } else if (verb == "answer") {
      EndDialogWith(WindowOf(window), id);
    } else if (verb == "block") {
      blocked_.try_emplace(WindowOf(window), WindowOf(window));
    } else if (verb == "release") {
      blocked_.at(WindowOf(window)).Release();
    } else if (verb == "quit") {
      TerminateJobObject(job_, kEndedByWatch);
    }
  }

  // The job reports every process in it, however short-lived. Waiting for its next message paces
  // the rounds.
  void LookAtProcesses() {
    DWORD wait = kPollMilliseconds;
    DWORD message = 0;
    ULONG_PTR key = 0;
    OVERLAPPED* detail = nullptr;
    while (GetQueuedCompletionStatus(port_, &message, &key, &detail, wait)) {
      wait = 0;
      const DWORD process = static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(detail));
      if (message == JOB_OBJECT_MSG_NEW_PROCESS) Enter(process);
      if (message == JOB_OBJECT_MSG_EXIT_PROCESS || message == JOB_OBJECT_MSG_ABNORMAL_EXIT_PROCESS)
        Leave(process);
      if (message == JOB_OBJECT_MSG_ACTIVE_PROCESS_ZERO) allEnded_ = true;
    }
    // Processes that were ended together with their job may have sent no message of their own.
    while (allEnded_ && !processes_.empty()) Leave(processes_.begin()->first);
  }

  void Enter(DWORD process) {
    WatchedProcess entry;
    entry.handle = OpenProcess(PROCESS_QUERY_INFORMATION | SYNCHRONIZE, FALSE, process);
    Report(L"process").Add("process", process).Send();
    processes_[process] = entry;
  }

  void Leave(DWORD process) {
    Report report(L"exit");
    report.Add("process", process).Add("name", NameOf(process));
    const WatchedProcess entry = processes_[process];
    processes_.erase(process);
    DWORD code = 0;
    if (entry.handle != nullptr) {
      WaitForSingleObject(entry.handle, kAnswerMilliseconds);
      if (GetExitCodeProcess(entry.handle, &code)) report.Add("code", code);
      CloseHandle(entry.handle);
    }
    report.Send();
  }

  // A new process has its name only some time after its birth; it keeps it in death.
  const std::wstring& NameOf(DWORD process) {
    WatchedProcess& entry = processes_[process];
    if (entry.name.empty() && entry.handle != nullptr) {
      wchar_t path[MAX_PATH] = {};
      DWORD size = MAX_PATH;
      QueryFullProcessImageNameW(entry.handle, 0, path, &size);
      entry.name = path;
      entry.name.erase(0, entry.name.find_last_of(L'\\') + 1);
    }
    return entry.name;
  }

  void LookAtWindows() {
    std::vector<HWND> windows;
    EnumWindows(
        [](HWND window, LPARAM list) -> BOOL {
          reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
          return TRUE;
        },
        reinterpret_cast<LPARAM>(&windows));
    std::set<HWND> present;
    for (const HWND window : windows) {
      DWORD process = 0;
      GetWindowThreadProcessId(window, &process);
      if (processes_.count(process) == 0) continue;
      if (controls_.count(window) == 0 && !IsWindowVisible(window)) continue;
      present.insert(window);
      LookAt(window, process);
    }
    for (auto known = controls_.begin(); known != controls_.end();) {
      if (present.count(known->first) != 0) {
        ++known;
        continue;
      }
      Report(L"gone").Add("window", NumberOf(known->first)).Send();
      known = controls_.erase(known);
    }
  }

  void LookAt(HWND window, DWORD process) {
    const std::wstring className = ClassOf(window);
    const bool isDialog = className == L"#32770";
    if (controls_.count(window) == 0) {
      Report report(isDialog ? L"dialog" : L"window");
      report.Add("window", NumberOf(window)).Add("process", process);
      report.Add("name", NameOf(process)).Add("class", className);
      report.Add("caption", CaptionOf(window)).Add("style", StyleOf(window));
      report.Add("extendedStyle", static_cast<unsigned>(GetWindowLongW(window, GWL_EXSTYLE)));
      report.Add("owner", NumberOf(GetWindow(window, GW_OWNER)));
      RECT place = {};
      GetWindowRect(window, &place);
      AddRectangle(report, place);
      RECT client = {};
      GetClientRect(window, &client);
      report.Add("clientWidth", client.right).Add("clientHeight", client.bottom);
      report.Add("screenWidth", GetSystemMetrics(SM_CXSCREEN));
      report.Add("screenHeight", GetSystemMetrics(SM_CYSCREEN));
      report.Add("arrowHeight", GetSystemMetrics(SM_CYVSCROLL));
      // A box that does not answer yet is looked at again in the next round.
      if (isDialog && !AddDialog(report, window)) return;
      // One that was destroyed while it was looked at answered with nothing: it was not seen.
      if (!IsWindow(window)) return;
      controls_[window] = "";
      report.Send();
    }
    // A blocked thread does not answer.
    if (isDialog || blocked_.count(window) != 0) return;
    const auto controls = ControlsOf(window);
    if (!controls || *controls == controls_[window]) return;
    controls_[window] = *controls;
    Report(L"controls").Add("window", NumberOf(window)).AddRaw("controls", *controls).Send();
  }

  void LookAtBlocked() {
    for (auto& [window, blocked] : blocked_) {
      if (blocked.HasBegun()) Report(L"blocked").Add("window", NumberOf(window)).Send();
    }
  }

  HANDLE job_;
  HANDLE port_;
  bool allEnded_ = false;
  std::map<DWORD, WatchedProcess> processes_;
  std::map<HWND, BlockedWindow> blocked_;
  std::map<HWND, std::string> controls_;  // what was last reported of each known window
};

std::wstring CommandLine(int count, wchar_t** arguments) {
  std::wstring line;
  for (int i = 0; i < count; ++i) {
    line += (i > 0 ? L" \"" : L"\"") + std::wstring(arguments[i]) + L"\"";
  }
  return line;
}

int RunAndWatch(const wchar_t* directory, int count, wchar_t** arguments) {
  // The first program that asks for the desktop becomes its parent: it must not be the watched one.
  GetDesktopWindow();
  const HANDLE port = CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 1);
  const HANDLE job = CreateJobObjectW(nullptr, nullptr);
  JOBOBJECT_ASSOCIATE_COMPLETION_PORT association = {nullptr, port};
  SetInformationJobObject(job, JobObjectAssociateCompletionPortInformation, &association,
                          sizeof association);
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);

  std::wstring line = CommandLine(count, arguments);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(arguments[0], line.data(), nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr,
                      directory, &startup, &process)) {
    return Fail(L"CreateProcess");
  }
  if (!AssignProcessToJobObject(job, process.hProcess)) {
    TerminateProcess(process.hProcess, 1);
    return Fail(L"AssignProcessToJobObject");
  }
  Report(L"started").Add("process", process.dwProcessId).Send();
  ResumeThread(process.hThread);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);

  Orders orders;
  Watch(job, port).Run(orders);
  // The reading thread may still be blocked in its read: end without unwinding under it.
  std::fflush(stdout);
  std::_Exit(0);
}

int Hold(const wchar_t* path, DWORD share) {
  const HANDLE file = CreateFileW(path, GENERIC_READ, share, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file == INVALID_HANDLE_VALUE) return Fail(L"CreateFile");
  Report(L"held").Send();
  WaitForEndOfInput();
  CloseHandle(file);
  return 0;
}

int Occupy(const wchar_t* directory) {
  if (!SetCurrentDirectoryW(directory)) return Fail(L"SetCurrentDirectory");
  Report(L"held").Send();
  WaitForEndOfInput();
  return 0;
}

int KeepDesktop() {
  GetDesktopWindow();
  Report(L"ready").Send();
  WaitForEndOfInput();
  return 0;
}

}  // namespace

int main(int, char**) {
  int count = 0;
  wchar_t** arguments = CommandLineToArgvW(GetCommandLineW(), &count);
  const std::wstring mode = count > 1 ? arguments[1] : L"";
  if (mode == L"run" && count >= 4) return RunAndWatch(arguments[2], count - 3, arguments + 3);
  if (mode == L"hold" && count == 4) {
    return Hold(arguments[2], std::wstring(arguments[3]) == L"read" ? FILE_SHARE_READ : 0);
  }
  if (mode == L"occupy" && count == 3) return Occupy(arguments[2]);
  if (mode == L"desktop") return KeepDesktop();
  std::fputs(
      "usage: watch.exe run DIRECTORY PROGRAM [ARGUMENTS] | hold FILE none|read |\n"
      "                 occupy DIRECTORY | desktop\n",
      stderr);
  return 2;
}
