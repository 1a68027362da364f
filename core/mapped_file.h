// A read-only memory-mapped view of a whole file.
//
//   const ve::file::MappedFile mapped = ve::file::MappedFile::Open(L"Updater\\GameVersion.vpak");
//   const std::span<const std::byte> content = mapped.Bytes();
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "core/handle.h"

namespace ve::file {

/// Owns a file, its mapping and the view of it. Open exactly when the size is not zero. Movable;
/// the destination of a move owns what was open. Used by one thread at a time.
///
/// While it is open, the file cannot be written or replaced: close it before saving to the same
/// path.
class MappedFile {
 public:
  MappedFile() noexcept = default;
  MappedFile(MappedFile&& other) noexcept;
  MappedFile& operator=(MappedFile&& other) noexcept;
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  ~MappedFile() { Close(); }

  /// Opens a file for shared reading. Tries three times, half a second apart, because a virus
  /// scanner may lock the file for a moment; sends the first two failures to the message sink at
  /// level 1. Throws `MappedFileException`, also for an empty file, which Windows does not map.
  [[nodiscard]] static MappedFile Open(std::wstring_view path);

  /// The content, valid until the file is closed; moving the owner leaves it valid.
  [[nodiscard]] std::span<const std::byte> Bytes() const noexcept;
  [[nodiscard]] bool IsOpen() const noexcept { return size_ != 0; }

  /// Releases everything. Never throws: sends a step's failure to the message sink at level 1 and
  /// goes on with the next step.
  void Close() noexcept;

 private:
  UniqueFileHandle file_;
  UniqueHandle mapping_;
  UniqueMappedView view_;
  std::uint64_t size_ = 0;
};

}  // namespace ve::file
