#include "publisher/files/whole_file.h"

#include "core/windows.h"

#include <array>

#include "core/files.h"
#include "core/format.h"
#include "core/handle.h"
#include "publisher/files/windows_errors.h"

namespace ve::publish {
std::string ReadWholeFile(const std::wstring& path) {
  const UniqueFileHandle file(CreateFileW(
      path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
      OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  LARGE_INTEGER size;
  if (!file || GetFileSizeEx(file.Get(), &size) == FALSE) {
    ThrowWindowsError("read", path, GetLastError());
  }
  if (size.HighPart != 0) ThrowWindowsError("read", path, ERROR_FILE_TOO_LARGE);
  std::string content(size.LowPart, '\0');
  DWORD read = 0;
  if (ReadFile(file.Get(), content.data(), size.LowPart, &read, nullptr) == FALSE) {
    ThrowWindowsError("read", path, GetLastError());
  }
  content.resize(read);
  return content;
}

void WriteFileAtomically(const std::wstring& path, std::string_view content) {
  const std::wstring beside = Format(L"{}{}", path, kBesideSuffix);
  UniqueFileHandle file(CreateFileW(beside.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  DWORD written = 0;
  if (!file ||
      WriteFile(file.Get(), content.data(), static_cast<DWORD>(content.size()), &written,
                nullptr) == FALSE ||
      FlushFileBuffers(file.Get()) == FALSE || !file.Close()) {
    ThrowWindowsError("written", path, GetLastError());
  }
  file::Rename(beside, path);
}

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
