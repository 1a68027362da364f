// Windows error codes as text.
#pragma once

#include "core/windows.h"

#include <string>

namespace ve {

/// The system's text for the calling thread's last Windows error, with its trailing line break; the
/// code in signed decimal if the system has no text; empty if there is no error. Call it directly
/// after the failing call: nearly every other call may change the last error.
[[nodiscard]] std::wstring WindowsErrorText();

/// The text for `code` that FormatMessageW finds with `flags` (the allocation and insert flags are
/// added) in `source`, in the neutral language; the code in signed decimal when it finds none.
/// https://learn.microsoft.com/windows/win32/api/winbase/nf-winbase-formatmessagew
[[nodiscard]] std::wstring MessageTableText(DWORD code, DWORD flags, const void* source);

}  // namespace ve
