#include "core/windows_error.h"

#include <cstdint>

#include "core/format.h"
#include "core/handle.h"

namespace ve {

std::wstring WindowsErrorText() {
  const DWORD code = GetLastError();
  if (code == ERROR_SUCCESS) return {};
  return MessageTableText(code, FORMAT_MESSAGE_FROM_SYSTEM, nullptr);
}

std::wstring MessageTableText(DWORD code, DWORD flags, const void* source) {
  constexpr DWORD kNeutralLanguage = MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT);
  // With FORMAT_MESSAGE_ALLOCATE_BUFFER the call takes the address of a pointer where its signature
  // shows the text; on failure it leaves that pointer alone.
  wchar_t* text = nullptr;
  const DWORD length =
      FormatMessageW(flags | FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS, source,
                     code, kNeutralLanguage, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  if (length == 0) return Format(L"{}", static_cast<std::int32_t>(code));
  const UniqueLocalMemory owner(text);
  return std::wstring(text, length);
}

}  // namespace ve
