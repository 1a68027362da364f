// The texts of WinINet's errors.
#pragma once

#include <cstdint>
#include <string>

namespace ve {

/// The calling thread's last WinINet error, read by the constructor: the server's text if it sent
/// one (ERROR_INTERNET_EXTENDED_ERROR), else wininet.dll's text with its trailing line break, else
/// the code in signed decimal. Construct it directly after the failing call.
struct WinINetErrorText {
  WinINetErrorText();

  std::wstring text;      ///< Empty if there was no error.
  std::int32_t code = 0;  ///< 0 if there was no error, -1 otherwise.
};

}  // namespace ve
