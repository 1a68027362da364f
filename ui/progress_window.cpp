#include "ui/progress_window.h"

#include <commctrl.h>

#include <string>

#include "core/format.h"

namespace ve {
namespace {

constexpr const wchar_t* kClassName = L"UpdaterWindow";
// 0x8 would mean topmost as an extended style; as a style it has no effect, and it is kept.
constexpr DWORD kWindowStyle = WS_VISIBLE | 0x8;
constexpr DWORD kControlStyle = WS_CHILD | WS_VISIBLE;

void RegisterWindowClassOnce() {
  static bool registered = false;
  if (registered) return;
  registered = true;
  WNDCLASSW windowClass{};
  windowClass.lpfnWndProc = DefWindowProcW;
  windowClass.hInstance = GetModuleHandleW(nullptr);
  windowClass.lpszClassName = kClassName;
  RegisterClassW(&windowClass);
}

void InitializeProgressBarClassOnce() {
  static bool initialized = false;
  if (initialized) return;
  initialized = true;
  const INITCOMMONCONTROLSEX controls{sizeof(controls), ICC_PROGRESS_CLASS};
  InitCommonControlsEx(&controls);
}

RECT Adjusted(int width, int height) {
  RECT rectangle{0, 0, width, height};
  AdjustWindowRect(&rectangle, 0, FALSE);
  return rectangle;
}

/// Where a window or control is put.
struct Placement {
  int x;
  int y;
  int width;
  int height;
};

/// Centres a rectangle that `AdjustWindowRect` has adjusted in an area. Takes its right and bottom
/// for its size: what the frame adds at the left and at the top (the negative left and top) does
/// not count. Players know the window in this size.
Placement Centered(int areaWidth, int areaHeight, const RECT& adjusted) noexcept {
  return {(areaWidth - static_cast<int>(adjusted.right)) / 2,
          (areaHeight - static_cast<int>(adjusted.bottom)) / 2, static_cast<int>(adjusted.right),
          static_cast<int>(adjusted.bottom)};
}

UniqueWindow MakeWindow(const wchar_t* className, const wchar_t* text, DWORD style,
                        const Placement& placement, HWND parent) {
  return UniqueWindow(CreateWindowExW(0, className, text, style, placement.x, placement.y,
                                      placement.width, placement.height, parent, nullptr,
                                      GetModuleHandleW(nullptr), nullptr));
}

UniqueWindow MakeTopWindow() {
  RegisterWindowClassOnce();
  const Placement placement =
      Centered(GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN), Adjusted(386, 160));
  return MakeWindow(kClassName, L"Downloading...", kWindowStyle, placement, nullptr);
}

}  // namespace

ProgressWindow::ProgressWindow(std::uint32_t total) : total_(total) {
  window_ = MakeTopWindow();
  bar_ = MakeBar();
  label_ = MakeLabel();
}

ProgressWindow::~ProgressWindow() {
  // Destroying the window destroys its children; closing their handles again has no effect.
  window_.Reset();
  label_.Reset();
  bar_.Reset();
}

UniqueWindow ProgressWindow::MakeBar() const {
  InitializeProgressBarClassOnce();
  RECT client{};
  GetClientRect(window_.Get(), &client);
  const Placement placement = Centered(client.right, client.bottom,
                                       Adjusted(client.right - 16, GetSystemMetrics(SM_CYVSCROLL)));
  UniqueWindow bar = MakeWindow(PROGRESS_CLASSW, nullptr, kControlStyle, placement, window_.Get());
  // PBM_SETRANGE takes 16 bits: with 70000 files the bar is full after 4464. Only the label counts
  // further.
  SendMessageW(bar.Get(), PBM_SETRANGE, 0, MAKELPARAM(0, total_ & 0xFFFF));
  SendMessageW(bar.Get(), PBM_SETSTEP, 1, 0);
  return bar;
}

UniqueWindow ProgressWindow::MakeLabel() const {
  return MakeWindow(L"STATIC", Format(L"0 / {}", total_).c_str(), kControlStyle,
                    Placement{16, 16, 300, 32}, window_.Get());
}

void ProgressWindow::Step() {
  ++shown_;
  SetWindowTextW(label_.Get(), Format(L"{} / {}", shown_, total_).c_str());
  SendMessageW(bar_.Get(), PBM_STEPIT, 0, 0);
}

bool PumpMessages() {
  bool quit = false;
  MSG message{};
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) != FALSE) {
    if (message.message == WM_QUIT) quit = true;
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  return quit;
}

void RunProgressWindow(std::uint32_t total, const std::atomic<bool>& finished,
                       std::atomic<std::uint32_t>& counter) {
  ProgressWindow window(total);
  while (!finished) {
    PumpMessages();  // WM_QUIT is ignored: the update goes on.
    Sleep(10);
    const auto done = static_cast<std::int32_t>(counter.exchange(0));
    for (std::int32_t file = 0; file < done; ++file) window.Step();
  }
}

}  // namespace ve
