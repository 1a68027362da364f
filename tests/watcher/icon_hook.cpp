// The hook that Windows calls on a watched message box's own thread.
#include <windows.h>

#include "icon_question.h"

extern "C" __declspec(dllexport) LRESULT CALLBACK
    AnswerIconQuestion(int code, WPARAM wParam, LPARAM lParam) {
  static const UINT question = RegisterWindowMessageW(kIconQuestion);
  const auto* const message = reinterpret_cast<const CWPSTRUCT*>(lParam);
  if (code == HC_ACTION && message->message == question) {
    const LRESULT shown = SendMessageW(message->hwnd, STM_GETICON, 0, 0);
    constexpr ULONG_PTR kFirst = 32513;  // IDI_ERROR
    constexpr ULONG_PTR kLast = 32516;   // IDI_INFORMATION
    for (ULONG_PTR icon = kFirst; icon <= kLast; ++icon) {
      const HICON candidate = LoadIconW(nullptr, reinterpret_cast<LPCWSTR>(icon));
      if (reinterpret_cast<LRESULT>(candidate) == shown) {
        SetPropW(message->hwnd, kIconAnswer, reinterpret_cast<HANDLE>(icon));
      }
    }
  }
  return CallNextHookEx(nullptr, code, wParam, lParam);
}
