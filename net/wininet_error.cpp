#include "net/wininet_error.h"

#include "core/windows.h"

#include <wininet.h>

#include "core/windows_error.h"

namespace ve {
namespace {

/// Sets `text` to the server's last response text. Returns whether there is one.
bool LastResponse(std::wstring& text) {
  DWORD serverError = 0;
  DWORD length = 0;
  InternetGetLastResponseInfoW(&serverError, nullptr, &length);
  std::wstring response(std::size_t{length} + 1, L'\0');
  length = static_cast<DWORD>(response.size());
  if (InternetGetLastResponseInfoW(&serverError, response.data(), &length) == FALSE) return false;
  response.resize(length);
  text = std::move(response);
  return true;
}

}  // namespace

WinINetErrorText::WinINetErrorText() {
  const DWORD error = GetLastError();
  if (error == ERROR_SUCCESS) return;
  code = -1;
  if (error == ERROR_INTERNET_EXTENDED_ERROR && LastResponse(text)) return;
  text = MessageTableText(error, FORMAT_MESSAGE_FROM_HMODULE, GetModuleHandleW(L"wininet.dll"));
}

}  // namespace ve
