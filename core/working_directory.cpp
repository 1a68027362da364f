#include "core/working_directory.h"

#include "core/windows.h"

#include <system_error>

#include "core/message_sink.h"
#include "core/unicode.h"

namespace ve {

bool SetWorkingDirectory(std::wstring_view directory, bool quiet) {
  const std::wstring name(directory);  // Freeing a temporary may change the last error.
  if (SetCurrentDirectoryW(name.c_str()) != FALSE) return true;
  const int code = static_cast<int>(GetLastError());
  if (!quiet) {
    FormatToSink("Failed to set current working directory to '{}': {}", 0, ToUtf8(directory),
                 std::system_category().message(code));
  }
  return false;
}

std::wstring WorkingDirectory() {
  std::wstring directory;
  for (;;) {
    // The length, or, if that is more than there is room for, the room needed. Another thread may
    // change the directory in between, so ask until the answer fits.
    const DWORD length =
        GetCurrentDirectoryW(static_cast<DWORD>(directory.size()), directory.data());
    const bool fits = length < directory.size() || length == 0;
    directory.resize(length);
    if (fits) return directory;
  }
}

}  // namespace ve
