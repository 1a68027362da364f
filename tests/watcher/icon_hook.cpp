// The hook that Windows calls on the thread of a watched window.
#include <windows.h>

#include <string>

#include "hook_messages.h"

namespace {

void AnswerIconQuestion(HWND control) {
  const LRESULT shown = SendMessageW(control, STM_GETICON, 0, 0);
  constexpr ULONG_PTR kFirst = 32513;  // IDI_ERROR
  constexpr ULONG_PTR kLast = 32516;   // IDI_INFORMATION
  for (ULONG_PTR icon = kFirst; icon <= kLast; ++icon) {
    const HICON candidate = LoadIconW(nullptr, reinterpret_cast<LPCWSTR>(icon));
    if (reinterpret_cast<LRESULT>(candidate) == shown) {
      SetPropW(control, kIconAnswer, reinterpret_cast<HANDLE>(icon));
    }
  }
}

void Block(HWND window) {
  const auto number = reinterpret_cast<ULONG_PTR>(window) & 0xFFFFFFFF;
  const HANDLE release =
      OpenEventW(SYNCHRONIZE, FALSE, (kReleaseEvent + std::to_wstring(number)).c_str());
  SetPropW(window, kBlocked, reinterpret_cast<HANDLE>(1));
  WaitForSingleObject(release, INFINITE);
  CloseHandle(release);
}

}  // namespace

extern "C" __declspec(dllexport) LRESULT CALLBACK
    HandleWatchMessage(int code, WPARAM wParam, LPARAM lParam) {
  static const UINT question = RegisterWindowMessageW(kIconQuestion);
  static const UINT endDialog = RegisterWindowMessageW(kEndDialog);
  static const UINT block = RegisterWindowMessageW(kBlock);
  const auto* const message = reinterpret_cast<const CWPSTRUCT*>(lParam);
  if (code == HC_ACTION) {
    if (message->message == question) AnswerIconQuestion(message->hwnd);
    if (message->message == endDialog) {
      EndDialog(message->hwnd, static_cast<INT_PTR>(message->wParam));
    }
    if (message->message == block) Block(message->hwnd);
  }
  return CallNextHookEx(nullptr, code, wParam, lParam);
}
