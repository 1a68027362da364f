// A read-only memory-mapped view of a whole file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "core/handle.h"

namespace ve::file {

/// Owns the file, its mapping and the view. Open exactly when its size is not zero. Movable; the
/// destination owns what was open. Used by one thread at a time.
///
/// While it is open, nobody can write or replace the file: close it before saving to the same path.
class MappedFile {
 public:
  MappedFile() noexcept = default;
  MappedFile(MappedFile&& other) noexcept;
  MappedFile& operator=(MappedFile&& other) noexcept;
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  ~MappedFile() { Close(); }

  /// Opens a file that others may read at the same time. A file that cannot be opened is tried
  /// three times, half a second apart, because it may be locked for a moment; the first two
  /// failures go to the message sink at level 1. Throws `MappedFileException`, also for an empty
  /// file, which Windows does not map.
  [[nodiscard]] static MappedFile Open(std::wstring_view path);

  /// The content, valid until the file is closed; moving the owner leaves it valid.
  [[nodiscard]] std::span<const std::byte> Bytes() const noexcept;
  [[nodiscard]] bool IsOpen() const noexcept { return size_ != 0; }

  /// Releases everything. Never throws; a step that fails is told to the message sink at level 1
  /// and does not keep the others from running.
  void Close() noexcept;

 private:
  UniqueFileHandle file_;
  UniqueHandle mapping_;
  UniqueMappedView view_;
  std::uint64_t size_ = 0;
};

}  // namespace ve::file
