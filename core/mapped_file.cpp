#include "core/mapped_file.h"

#include <string>
#include <utility>

#include "core/errors.h"
#include "core/format.h"
#include "core/message_sink.h"
#include "core/unicode.h"
#include "core/windows_error.h"

namespace ve::file {
namespace {

constexpr int kLastAttempt = 2;
constexpr DWORD kMillisecondsBetweenAttempts = 500;

/// Throws what the last Windows error says of the failed call. Call it before anything is closed.
[[noreturn]] void ThrowMappedFileException(std::string_view format, std::wstring_view path) {
  const std::wstring error = WindowsErrorText();
  throw MappedFileException(Format(format, ToUtf8(path), ToUtf8(error)));
}

UniqueFileHandle OpenForReading(std::wstring_view path) {
  const std::wstring name(path);
  for (int attempt = 0;; ++attempt) {
    UniqueFileHandle file(
        CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                    FILE_ATTRIBUTE_READONLY | FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
    if (file) return file;
    if (attempt == kLastAttempt) {
      ThrowMappedFileException("Failed to CreateFile when trying to open mapped file '{}': {}",
                               path);
    }
    const std::wstring error = WindowsErrorText();
    // The message counts the failed attempts from 0; those who collect messages rely on it.
    FormatToSink("Failed to CreateFile when trying to open mapped file '{}' (trying again {}): {}",
                 1, ToUtf8(path), attempt, ToUtf8(error));
    Sleep(kMillisecondsBetweenAttempts);
  }
}

void ReportClose(bool closed, std::string_view step) {
  if (closed) return;
  const std::wstring error = WindowsErrorText();
  FormatToSink("Failed to close memory-mapped file (at {}), error : {}", 1, step, ToUtf8(error));
}

}  // namespace

MappedFile::MappedFile(MappedFile&& other) noexcept
    : file_(std::move(other.file_)),
      mapping_(std::move(other.mapping_)),
      view_(std::move(other.view_)),
      size_(std::exchange(other.size_, 0)) {}

MappedFile& MappedFile::operator=(MappedFile&& other) noexcept {
  if (this == &other) return *this;
  Close();
  file_ = std::move(other.file_);
  mapping_ = std::move(other.mapping_);
  view_ = std::move(other.view_);
  size_ = std::exchange(other.size_, 0);
  return *this;
}

MappedFile MappedFile::Open(std::wstring_view path) {
  MappedFile opened;
  opened.file_ = OpenForReading(path);

  opened.mapping_.Reset(
      CreateFileMappingW(opened.file_.Get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
  if (!opened.mapping_) {
    ThrowMappedFileException("Failed to CreateFileMapping when trying to open mapped file '{}': {}",
                             path);
  }

  LARGE_INTEGER size{};
  if (GetFileSizeEx(opened.file_.Get(), &size) == FALSE) {
    ThrowMappedFileException("Failed to GetFileSizeEx when trying to open mapped file '{}': {}",
                             path);
  }

  opened.view_.Reset(MapViewOfFile(opened.mapping_.Get(), FILE_MAP_READ, 0, 0, 0));
  if (!opened.view_) {
    ThrowMappedFileException("Failed to MapViewOfFile when trying to open mapped file '{}': {}",
                             path);
  }
  opened.size_ = static_cast<std::uint64_t>(size.QuadPart);
  return opened;
}

std::span<const std::byte> MappedFile::Bytes() const noexcept {
  return {static_cast<const std::byte*>(view_.Get()), static_cast<std::size_t>(size_)};
}

void MappedFile::Close() noexcept {
  if (!IsOpen()) return;
  size_ = 0;
  // The first step's name is misspelled in the message, which is fixed.
  ReportClose(view_.Close(), "UnmapingViewOfFile");
  ReportClose(mapping_.Close(), "CloseHandle(Mapping)");
  ReportClose(file_.Close(), "CloseHandle(File)");
}

}  // namespace ve::file
