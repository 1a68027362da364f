#include "publisher/files/whole_file.h"

#include "core/windows.h"

#include <algorithm>

#include "core/files.h"
#include "core/format.h"
#include "core/handle.h"
#include "publisher/files/windows_errors.h"

namespace ve::publish {
namespace {

constexpr DWORD kMaxAtOnce = 1U << 30;

std::wstring Beside(const std::wstring& path) { return Format(L"{}{}", path, kBesideSuffix); }

}  // namespace

std::string ReadWholeFile(const std::wstring& path) {
  const UniqueFileHandle file(CreateFileW(
      path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
      OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  LARGE_INTEGER size;
  if (!file || GetFileSizeEx(file.Get(), &size) == FALSE)
    ThrowWindowsError("read", path, GetLastError());
  std::string content(static_cast<std::size_t>(size.QuadPart), '\0');
  for (std::size_t done = 0; done < content.size();) {
    const auto wanted =
        static_cast<DWORD>(std::min<std::size_t>(content.size() - done, kMaxAtOnce));
    DWORD read = 0;
    if (ReadFile(file.Get(), content.data() + done, wanted, &read, nullptr) == FALSE) {
      ThrowWindowsError("read", path, GetLastError());
    }
    if (read == 0) content.resize(done);  // It has become shorter meanwhile.
    done += read;
  }
  return content;
}

void WriteFileAtomically(const std::wstring& path, std::string_view content) {
  UniqueFileHandle file(CreateFileW(Beside(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) ThrowWindowsError("written", path, GetLastError());
  while (!content.empty()) {
    const auto wanted = static_cast<DWORD>(std::min<std::size_t>(content.size(), kMaxAtOnce));
    DWORD written = 0;
    if (WriteFile(file.Get(), content.data(), wanted, &written, nullptr) == FALSE) {
      ThrowWindowsError("written", path, GetLastError());
    }
    content.remove_prefix(written);
  }
  if (FlushFileBuffers(file.Get()) == FALSE || !file.Close())
    ThrowWindowsError("written", path, GetLastError());
  file::Rename(Beside(path), path);
}

}  // namespace ve::publish
