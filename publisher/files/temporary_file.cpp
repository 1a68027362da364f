#include "publisher/files/temporary_file.h"

#include "core/windows.h"

#include <array>

#include "publisher/files/whole_file.h"
#include "publisher/files/windows_errors.h"

namespace ve::publish {

TemporaryFile::TemporaryFile(std::string_view content) {
  std::array<wchar_t, MAX_PATH + 1> folder{};
  std::array<wchar_t, MAX_PATH + 1> path{};
  if (GetTempPathW(static_cast<DWORD>(folder.size()), folder.data()) == 0 ||
      GetTempFileNameW(folder.data(), L"pub", 0, path.data()) == 0) {
    ThrowWindowsError("used for temporary files", folder.data(), GetLastError());
  }
  path_ = path.data();
  WriteFileAtomically(path_, content);
}

TemporaryFile::~TemporaryFile() { DeleteFileW(path_.c_str()); }

}  // namespace ve::publish
