// Whole files, copies and directories.
//
// Paths may be narrow (in the process's active code page) or wide. A file whose path is longer than
// 255 characters cannot be opened. Failures throw; nothing is retried, and what a failed write left
// behind is not removed.
#pragma once

#include "core/windows.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace ve::file {

/// The whole content, NUL bytes and all. Throws `FileException` if the file cannot be opened, a
/// filesystem error ("file_size") if its size cannot be queried. A short read is not detected.
[[nodiscard]] std::string LoadFile(std::string_view path);
[[nodiscard]] std::string LoadFile(std::wstring_view path);

/// Bytes in one allocation of their size, not cleared at first. The memory of one that goes is kept
/// for the next of this thread, up to `kMaxKept`: the system's heap would take a large block back
/// at once and clear every page of the next one, which takes as long as reading them.
class FileBytes {
 public:
  static constexpr std::size_t kMaxKept = std::size_t{8} << 20;

  explicit FileBytes(std::size_t size);
  FileBytes(FileBytes&&) noexcept = default;
  FileBytes& operator=(FileBytes&&) = delete;
  FileBytes(const FileBytes&) = delete;
  FileBytes& operator=(const FileBytes&) = delete;
  ~FileBytes();

  [[nodiscard]] std::span<std::byte> Get() const noexcept { return {block_.data.get(), size_}; }

 private:
  struct Block {
    std::unique_ptr<std::byte[]> data;
    std::size_t capacity = 0;
  };
  static Block& Kept() noexcept;

  Block block_;
  std::size_t size_;
};

/// The same content as `LoadFile`, with the same errors.
[[nodiscard]] FileBytes LoadFileBytes(std::wstring_view path);

/// Creates or replaces the file. Throws `FileException` if it cannot be opened. A short write is
/// not detected.
void SaveFile(std::string_view path, std::string_view content);
void SaveFile(std::wstring_view path, std::string_view content);
void SaveFile(std::string_view path, const void* content, std::size_t size);
void SaveFile(std::wstring_view path, const void* content, std::size_t size);

/// Copies one file, replacing an existing target. Throws `FileException`.
void CopyFileOverwrite(std::wstring_view source, std::wstring_view target);

/// Creates one directory; an existing one is no error. Failures go to the message sink at level 1
/// and are thrown as a filesystem error ("create_directory").
void MakeDirectory(std::wstring_view path);

/// Creates all missing directories of the path, in the same way ("create_directories").
void MakeDirectories(std::wstring_view path);

/// Calls `MakeDirectory` if nothing exists at the path; a file there is left alone, and enough.
void EnsureDirectory(std::wstring_view path);
/// Calls `MakeDirectories` if nothing exists at the path.
void EnsureDirectories(std::wstring_view path);

/// The name with the extension, which may be given with or without its dot and must not be empty.
[[nodiscard]] std::wstring AppendExtension(std::wstring_view name, std::wstring_view extension);

/// When the file was created (not written), in seconds since 1970-01-01 UTC; 0 if that cannot be
/// told.
[[nodiscard]] std::int64_t FileCreationTimeSeconds(std::wstring_view path);

/// When the file was last written, in 100-nanosecond ticks since 1970-01-01 UTC. Throws a
/// filesystem error ("last_write_time").
[[nodiscard]] std::int64_t LastWriteTicks(std::wstring_view path);

/// Whether there is a file or directory at the path. Separators behind a directory's name do no
/// harm; behind a file's name they make it another name.
[[nodiscard]] bool Exists(std::wstring_view path);

/// The size in bytes. Throws a filesystem error ("file_size"), also for a directory.
[[nodiscard]] std::uint64_t FileSize(std::wstring_view path);

/// Removes one file or empty directory; attributes are not changed for it. Returns the Windows
/// error code, ERROR_SUCCESS also if there was nothing at the path.
[[nodiscard]] DWORD TryRemove(std::wstring_view path);

/// The same where it is known already whether the path names a directory, which saves asking.
[[nodiscard]] DWORD TryRemoveKnown(std::wstring_view path, bool isDirectory);

/// The same, but throws a filesystem error ("remove") that carries the code.
void Remove(std::wstring_view path);

/// Renames a file, replacing an existing target. Throws a filesystem error ("rename").
void Rename(std::wstring_view from, std::wstring_view to);

}  // namespace ve::file
