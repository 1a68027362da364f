#include "core/files.h"

#include "core/windows.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

#include "core/errors.h"
#include "core/file_time.h"
#include "core/format.h"
#include "core/handle.h"
#include "core/message_sink.h"
#include "core/truncated_string.h"
#include "core/unicode.h"

namespace ve::file {
namespace {

// The standard library's own filesystem functions are not used: the one of mingw takes every
// existing target of a copy for its source, knows write times to the second only, reports C error
// numbers in place of Windows codes, and words its operations in its own way.

// What is wrong when a file cannot be opened.
constexpr std::string_view kLoadFailure = "Failed to open file for loading";
constexpr std::string_view kSaveFailure = "Failed to open file for saving";

/// Throws the error of a file that cannot be opened. `errorNumber` is the C runtime's.
[[noreturn]] void ThrowOpenError(std::string_view failure, std::string_view path, int errorNumber) {
  std::array<char, 95> text{};
  strerror_s(text.data(), text.size(), errorNumber);
  throw FileException(
      Format("{}. File '{}'. Error: {} ({})", failure, path, text.data(), errorNumber));
}

/// A mode of opening, in the widths of the two functions that take it.
struct OpenMode {
  const char* narrow;
  const wchar_t* wide;
};
constexpr OpenMode kRead{"rb", L"rb"};
constexpr OpenMode kWrite{"wb", L"wb"};

/// Opening a longer path fails: cut to size it would name another file.
template <class Char>
bool IsTooLong(std::basic_string_view<Char> path) {
  if (path.size() <= TruncatedString<Char, 256>::kMaxCharacters) return false;
  errno = ENAMETOOLONG;
  return true;
}

UniqueStream OpenStream(std::string_view path, OpenMode mode) {
  if (IsTooLong(path)) return {};
  return UniqueStream(std::fopen(NarrowPath(path).Get(), mode.narrow));
}

UniqueStream OpenStream(std::wstring_view path, OpenMode mode) {
  if (IsTooLong(path)) return {};
  return UniqueStream(_wfopen(WidePath(path).Get(), mode.wide));
}

std::wstring AsWidePath(std::string_view path) { return AnsiToWide(path); }
std::wstring AsWidePath(std::wstring_view path) { return std::wstring(path); }

/// Reads the file in one block of the size just queried. A file that shrinks in between keeps that
/// size, with zeros at its end: the length is the queried one, however much was read.
template <class Path>
std::string Load(Path path) {
  const UniqueStream stream = OpenStream(path, kRead);
  // At once: nearly every other call may change the error number.
  const int openError = errno;
  if (!stream) ThrowOpenError(kLoadFailure, detail::ForMessage(path), openError);

  std::string content(static_cast<std::size_t>(FileSize(AsWidePath(path))), '\0');
  static_cast<void>(std::fread(content.data(), content.size(), 1, stream.Get()));
  return content;
}

template <class Path>
void Save(Path path, const void* content, std::size_t size) {
  const UniqueStream stream = OpenStream(path, kWrite);
  const int openError = errno;
  if (!stream) ThrowOpenError(kSaveFailure, detail::ForMessage(path), openError);
  // Nothing may be given as a null pointer, which fwrite must not get.
  if (size != 0) static_cast<void>(std::fwrite(content, 1, size, stream.Get()));
}

bool IsDirectory(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

/// Returns ERROR_SUCCESS if the directory exists afterwards.
DWORD CreateOne(const std::wstring& path) {
  if (CreateDirectoryW(path.c_str(), nullptr) != FALSE) return ERROR_SUCCESS;
  const DWORD code = GetLastError();
  // An existing file fails with the same code as an existing directory.
  if (code == ERROR_ALREADY_EXISTS && IsDirectory(path)) return ERROR_SUCCESS;
  return code;
}

/// The path without its last component; empty if that is all there is.
std::wstring ParentOf(const std::wstring& path) {
  constexpr const wchar_t* kSeparators = L"\\/";
  const std::size_t nameEnd = path.find_last_not_of(kSeparators);
  const std::size_t separator = path.find_last_of(kSeparators, nameEnd);
  if (nameEnd == std::wstring::npos || separator == std::wstring::npos) return {};
  return path.substr(0, path.find_last_not_of(kSeparators, separator) + 1);
}

DWORD CreateAll(const std::wstring& path) {
  const DWORD code = CreateOne(path);
  if (code != ERROR_PATH_NOT_FOUND) return code;
  const std::wstring parent = ParentOf(path);
  if (parent.empty()) return code;
  const DWORD parentCode = CreateAll(parent);
  return parentCode == ERROR_SUCCESS ? CreateOne(path) : parentCode;
}

/// Throws the filesystem error of a creation that failed with `code`, after sending `message` to
/// the sink.
void ReportCreation(DWORD code, const char* operation, std::string_view message,
                    std::wstring_view path) {
  if (code == ERROR_SUCCESS) return;
  try {
    ThrowFilesystemError(operation, path, code);
  } catch (const std::exception& error) {
    FormatToSink(message, 1, ToUtf8(path), error.what());
    throw;
  }
}

/// Queries what a path names, at the end of all links. Returns the Windows error code; only
/// ERROR_SUCCESS fills `data`.
DWORD QueryAttributes(std::wstring_view path, WIN32_FILE_ATTRIBUTE_DATA& data) {
  const std::wstring name(path);
  if (GetFileAttributesExW(name.c_str(), GetFileExInfoStandard, &data) == FALSE) {
    return GetLastError();
  }
  if ((data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return ERROR_SUCCESS;

  // These are the link's own attributes; opening it opens its target.
  const UniqueFileHandle target(
      CreateFileW(name.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                  OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  BY_HANDLE_FILE_INFORMATION info;
  if (!target || GetFileInformationByHandle(target.Get(), &info) == FALSE) return GetLastError();
  data = {info.dwFileAttributes, info.ftCreationTime, info.ftLastAccessTime,
          info.ftLastWriteTime,  info.nFileSizeHigh,  info.nFileSizeLow};
  return ERROR_SUCCESS;
}

/// Whether the code says that there is nothing at a path, as the standard library's existence query
/// understands it.
bool IsNotFound(DWORD code) {
  switch (code) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_DIRECTORY:
    case ERROR_BAD_NETPATH:
      return true;
    default:
      return false;
  }
}

}  // namespace

std::string LoadFile(std::string_view path) { return Load(path); }
std::string LoadFile(std::wstring_view path) { return Load(path); }

void SaveFile(std::string_view path, std::string_view content) {
  Save(path, content.data(), content.size());
}
void SaveFile(std::wstring_view path, std::string_view content) {
  Save(path, content.data(), content.size());
}
void SaveFile(std::string_view path, const void* content, std::size_t size) {
  Save(path, content, size);
}
void SaveFile(std::wstring_view path, const void* content, std::size_t size) {
  Save(path, content, size);
}

void CopyFileOverwrite(std::wstring_view source, std::wstring_view target) {
  // Named, because freeing a temporary may change the last error.
  const std::wstring from(source);
  const std::wstring to(target);
  if (CopyFileW(from.c_str(), to.c_str(), FALSE) == FALSE) {
    const auto code = static_cast<int>(GetLastError());
    throw FileException(Format("Failed to copy file from '{}' to '{}': {}", ToUtf8(source),
                               ToUtf8(target), std::system_category().message(code)));
  }
}

void MakeDirectory(std::wstring_view path) {
  ReportCreation(CreateOne(std::wstring(path)), "create_directory",
                 "Failed to create directory '{}': {}", path);
}

void MakeDirectories(std::wstring_view path) {
  ReportCreation(CreateAll(std::wstring(path)), "create_directories",
                 "Failed to create all directories on path '{}': {}", path);
}

void EnsureDirectory(std::wstring_view path) {
  if (!Exists(path)) MakeDirectory(path);
}

void EnsureDirectories(std::wstring_view path) {
  if (!Exists(path)) MakeDirectories(path);
}

std::wstring AppendExtension(std::wstring_view name, std::wstring_view extension) {
  return Format(extension.front() == L'.' ? L"{}{}" : L"{}.{}", name, extension);
}

std::int64_t FileCreationTimeSeconds(std::wstring_view path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (QueryAttributes(path, data) != ERROR_SUCCESS) return 0;
  return UnixTicks(data.ftCreationTime) / kTicksPerSecond;
}

std::int64_t LastWriteTicks(std::wstring_view path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  const DWORD code = QueryAttributes(path, data);
  if (code != ERROR_SUCCESS) ThrowFilesystemError("last_write_time", path, code);
  return UnixTicks(data.ftLastWriteTime);
}

bool Exists(std::wstring_view path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  const DWORD code = QueryAttributes(path, data);
  if (code != ERROR_SUCCESS && !IsNotFound(code)) ThrowFilesystemError("exists", path, code);
  return code == ERROR_SUCCESS;
}

std::uint64_t FileSize(std::wstring_view path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  const DWORD code = QueryAttributes(path, data);
  if (code != ERROR_SUCCESS) ThrowFilesystemError("file_size", path, code);
  if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    ThrowFilesystemError("file_size", path, ERROR_ACCESS_DENIED);
  }
  return std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
}

DWORD TryRemove(std::wstring_view path) {
  const std::wstring name(path);
  const BOOL removed =
      IsDirectory(name) ? RemoveDirectoryW(name.c_str()) : DeleteFileW(name.c_str());
  if (removed != FALSE) return ERROR_SUCCESS;
  const DWORD code = GetLastError();
  return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND ? ERROR_SUCCESS : code;
}

void Remove(std::wstring_view path) {
  const DWORD code = TryRemove(path);
  if (code != ERROR_SUCCESS) ThrowFilesystemError("remove", path, code);
}

void Rename(std::wstring_view from, std::wstring_view to) {
  const std::wstring source(from);
  const std::wstring target(to);
  if (MoveFileExW(source.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING) == FALSE) {
    ThrowFilesystemError("rename", from, GetLastError());
  }
}

}  // namespace ve::file
