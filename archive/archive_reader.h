// Reads binary archives. See archive_format.h for the encoding.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "archive/archive_format.h"
#include "core/mapped_file.h"

namespace ve::file {

/// Reads the values of one archive in their order. Strings and data are views into the archive's
/// bytes, which must outlive them; they may be unaligned.
///
/// Data that ends too early is no error here: a number reads as 0 and moves to the end; a string or
/// data longer than the rest reads as empty and stays behind its length. The readers of the records
/// reject such values with messages of their own. In checked mode a wrong identifier
/// or width throws `FileException`; a plain archive's layout is trusted.
class ArchiveReader {
 public:
  using Block16 = std::array<std::byte, 16>;

  /// Reads the header. Throws `FileException` for a wrong magic or version.
  explicit ArchiveReader(std::span<const std::byte> bytes);
  explicit ArchiveReader(std::string_view bytes);

  /// Reads from a mapped file and keeps it open; if the header is rejected, the file is closed.
  explicit ArchiveReader(MappedFile mappedFile);

  [[nodiscard]] ArchiveMode Mode() const noexcept { return mode_; }

  std::uint32_t ReadU32();
  bool ReadBool();
  Block16 ReadBlock16();
  std::string_view ReadString();
  std::wstring_view ReadWideString();
  std::span<const std::byte> ReadData();
  /// Ticks of 100 nanoseconds since 1970-01-01 UTC.
  std::int64_t ReadTime();

  // Read before a compound value's contents; nothing in plain mode. Not called by the Launcher,
  // like `ReadBool`, `ReadData` and `ReadTime`; part of the support library.
  void ExpectTuple(std::uint8_t count);
  void ExpectArray();
  void ExpectPair();
  void ExpectMap();
  void ExpectSet();

 private:
  void ReadHeader();
  template <class Value>
  Value ReadPrimitive();
  void ExpectWidth(std::uint32_t width);
  void ExpectType(ArchiveType type, std::string_view message);
  std::span<const std::byte> ReadBytes(std::uint32_t count);

  MappedFile mappedFile_;
  std::span<const std::byte> bytes_;
  std::size_t position_ = 0;
  ArchiveMode mode_ = ArchiveMode::kPlain;
};

}  // namespace ve::file
