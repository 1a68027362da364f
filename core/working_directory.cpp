#include "core/working_directory.h"

#include "core/windows.h"

#include <system_error>

#include "core/message_sink.h"
#include "core/unicode.h"

namespace ve {

bool SetWorkingDirectory(std::wstring_view directory, bool quiet) {
  if (SetCurrentDirectoryW(std::wstring(directory).c_str()) != FALSE) return true;
  const int code = static_cast<int>(GetLastError());
  if (!quiet) {
    FormatToSink("Failed to set current working directory to '{}': {}", 0, ToUtf8(directory),
                 std::system_category().message(code));
  }
  return false;
}

std::wstring WorkingDirectory() {
  std::wstring directory;
  // Another thread may change the directory between the calls, so ask until the answer fits.
  for (DWORD needed = GetCurrentDirectoryW(0, nullptr); needed > directory.size();) {
    directory.resize(needed);
    needed = GetCurrentDirectoryW(needed, directory.data());
    if (needed < directory.size()) {
      directory.resize(needed);
      break;
    }
  }
  return directory;
}

}  // namespace ve
