// Whole files, copies and directories.
//
//   const std::string settings = ve::file::LoadFile(L"Updater\\UpdaterData.vpak");
//   ve::file::SaveFile(L"Updater\\GameVersion.vpak", content);
//
// Paths are wide, or narrow in the process's active code page (the Launcher uses wide ones only). A
// path longer than 255 characters fails like a file that cannot be opened. Failures throw; nothing
// is retried, and a failed write leaves a partial file behind.
#pragma once

#include "core/windows.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ve::file {

/// The whole content, NUL bytes and all. Throws `FileException` if the file cannot be opened, a
/// filesystem error ("file_size") if its size cannot be queried. A short read is not detected.
[[nodiscard]] std::string LoadFile(std::string_view path);
[[nodiscard]] std::string LoadFile(std::wstring_view path);

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
/// Not called by the Launcher; part of the support library.
[[nodiscard]] std::wstring AppendExtension(std::wstring_view name, std::wstring_view extension);

/// When the file was created (not written), in seconds since 1970-01-01 UTC; 0 on failure. Not
/// called by the Launcher; part of the support library.
[[nodiscard]] std::int64_t FileCreationTimeSeconds(std::wstring_view path);

/// When the file was last written, in 100-nanosecond ticks since 1970-01-01 UTC. Throws a
/// filesystem error ("last_write_time").
[[nodiscard]] std::int64_t LastWriteTicks(std::wstring_view path);

/// Whether there is a file or directory at the path, at the end of all links: a link to nothing
/// does not exist. A trailing separator is allowed behind a directory's name only. Throws a
/// filesystem error ("exists") if Windows cannot answer, for example without the right to look.
[[nodiscard]] bool Exists(std::wstring_view path);

/// The size in bytes. Throws a filesystem error ("file_size"), also for a directory.
[[nodiscard]] std::uint64_t FileSize(std::wstring_view path);

/// Removes one file, empty directory or link, whatever the link leads to. A read-only attribute is
/// not cleared. Returns the Windows error code, ERROR_SUCCESS also if there was nothing at the
/// path.
[[nodiscard]] DWORD TryRemove(std::wstring_view path);

/// `TryRemove`, but throws a filesystem error ("remove") with the code.
void Remove(std::wstring_view path);

/// Renames a file, replacing an existing target. Throws a filesystem error ("rename").
void Rename(std::wstring_view from, std::wstring_view to);

}  // namespace ve::file
