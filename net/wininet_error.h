// The words that WinINet has for its errors.
#pragma once

#include <cstdint>
#include <string>

namespace ve {

/// The calling thread's last WinINet error, taken when the object is made: the server's own words
/// where it sent some (ERROR_INTERNET_EXTENDED_ERROR), else wininet.dll's with their trailing line
/// break, else the code in signed decimal. Make it directly after the failing call.
struct WinINetErrorText {
  WinINetErrorText();

  std::wstring text;      ///< Empty if there was no error.
  std::int32_t code = 0;  ///< 0 if there was no error, -1 otherwise.
};

}  // namespace ve
