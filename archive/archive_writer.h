// Writes binary archives. See archive_format.h for the encoding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <functional>
#include <ostream>
#include <span>
#include <sstream>
#include <string>
#include <string_view>

#include "archive/archive_format.h"

namespace ve::file {

/// Writes one archive, to a file or to memory. Does not check the output's errors: nothing is
/// written to a file that cannot be opened. Not called by the Launcher; part of the support
/// library, used by publish.exe.
class ArchiveWriter {
 public:
  /// Creates or replaces the file (at most 255 characters of the path are used) and writes the
  /// header.
  ArchiveWriter(std::wstring_view path, ArchiveMode mode);
  /// Writes the header to memory; `Bytes` returns what has been written.
  explicit ArchiveWriter(ArchiveMode mode);

  void WriteU32(std::uint32_t value);
  void WriteBool(bool value);
  void WriteBlock16(std::span<const std::byte, 16> block);
  void WriteString(std::string_view text);
  void WriteWideString(std::wstring_view text);
  void WriteData(std::span<const std::byte> data);
  /// Data whose length is known only when `writeContent` has written it through this writer.
  void WriteData(const std::function<void(ArchiveWriter&)>& writeContent);
  /// Ticks of 100 nanoseconds since 1970-01-01 UTC.
  void WriteTime(std::int64_t ticks);

  // Written before a compound value's contents; nothing in plain mode.
  void WriteTupleHeader(std::uint8_t count);
  void WriteArrayHeader();
  void WritePairHeader();
  void WriteMapHeader();
  void WriteSetHeader();

  /// Everything written to memory so far; empty for an archive in a file.
  [[nodiscard]] std::string Bytes() const;

 private:
  [[nodiscard]] std::ostream& Out();
  void WriteHeader();
  void WriteBytes(const void* bytes, std::size_t size);
  template <class Value>
  void WritePrimitive(Value value);
  void WriteWidth(std::uint32_t width);
  void WriteType(ArchiveType type);

  ArchiveMode mode_;
  bool toFile_;
  std::ofstream file_;
  std::ostringstream memory_;
};

}  // namespace ve::file
