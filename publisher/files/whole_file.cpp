#include "publisher/files/whole_file.h"

#include "core/windows.h"

#include <array>
#include <limits>

#include "core/files.h"
#include "core/format.h"
#include "publisher/files/windows_errors.h"

namespace ve::publish {

InputFile::InputFile(const std::wstring& path)
    : path_(path),
      file_(CreateFileW(path.c_str(), GENERIC_READ,
                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                        OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr)) {
  if (!file_) ThrowWindowsError("read", path, GetLastError());
}

std::uint64_t InputFile::Size() const {
  LARGE_INTEGER size;
  if (GetFileSizeEx(file_.Get(), &size) == FALSE) ThrowWindowsError("read", path_, GetLastError());
  return static_cast<std::uint64_t>(size.QuadPart);
}

std::span<const std::byte> InputFile::Read(std::span<std::byte> buffer) {
  DWORD read = 0;
  if (ReadFile(file_.Get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr) ==
      FALSE) {
    ThrowWindowsError("read", path_, GetLastError());
  }
  return buffer.first(read);
}

OutputFile::OutputFile(const std::wstring& path, DWORD disposition)
    : path_(path),
      file_(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL,
                        nullptr)) {
  if (!file_) ThrowWindowsError("written", path, GetLastError());
}

void OutputFile::Write(std::span<const std::byte> bytes) {
  DWORD written = 0;
  if (WriteFile(file_.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) ==
          FALSE ||
      written != bytes.size()) {
    ThrowWindowsError("written", path_, GetLastError());
  }
}

void OutputFile::Finish() {
  if (FlushFileBuffers(file_.Get()) == FALSE || !file_.Close()) {
    ThrowWindowsError("written", path_, GetLastError());
  }
}

std::string ReadWholeFile(const std::wstring& path) {
  InputFile file(path);
  const std::uint64_t size = file.Size();
  if (size > std::numeric_limits<DWORD>::max()) {
    ThrowWindowsError("read", path, ERROR_FILE_TOO_LARGE);
  }
  std::string content(static_cast<std::size_t>(size), '\0');
  content.resize(file.Read(std::as_writable_bytes(std::span(content))).size());
  return content;
}

void WriteFileAtomically(const std::wstring& path, std::string_view content) {
  const std::wstring beside = Format(L"{}{}", path, kBesideSuffix);
  OutputFile file(beside, CREATE_ALWAYS);
  file.Write(std::as_bytes(std::span(content)));
  file.Finish();
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
