// How the process ends after std::terminate.
#pragma once

namespace ve {

/// Makes abort(), which std::terminate calls, end the process at once with exit code 3 and without
/// a window: neither the C runtime's error dialog nor Windows Error Reporting, which would keep the
/// player waiting. Does not use SetErrorMode, which the game would inherit.
/// https://learn.microsoft.com/cpp/c-runtime-library/reference/abort
void SuppressCrtErrorDialog() noexcept;

}  // namespace ve
