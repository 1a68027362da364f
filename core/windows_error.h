// Windows error codes as text.
#pragma once

#include "core/windows.h"

#include <string>

namespace ve {

/// The calling thread's last Windows error as the system words it, trailing line break included;
/// the code in signed decimal when the system has no words for it; empty when there is no error.
/// Call it directly after the failing call: nearly everything else may change the last error.
[[nodiscard]] std::wstring WindowsErrorText();

/// The text for `code` that FormatMessageW finds with `flags` (the allocation and insert flags are
/// added) in `source`, in the neutral language; the code in signed decimal when it finds none.
/// https://learn.microsoft.com/windows/win32/api/winbase/nf-winbase-formatmessagew
[[nodiscard]] std::wstring MessageTableText(DWORD code, DWORD flags, const void* source);

}  // namespace ve
