#include "archive/archive_reader.h"

#include <cstring>
#include <utility>

#include "core/errors.h"
#include "core/format.h"

namespace ve::file {

ArchiveReader::ArchiveReader(std::span<const std::byte> bytes) : bytes_(bytes) { ReadHeader(); }

ArchiveReader::ArchiveReader(std::string_view bytes)
    : ArchiveReader(std::as_bytes(std::span(bytes))) {}

ArchiveReader::ArchiveReader(MappedFile mappedFile)
    : mappedFile_(std::move(mappedFile)), bytes_(mappedFile_.Bytes()) {
  ReadHeader();
}

std::uint32_t ArchiveReader::ReadU32() {
  ExpectWidth(sizeof(std::uint32_t));
  return ReadPrimitive<std::uint32_t>();
}

bool ArchiveReader::ReadBool() { return ReadPrimitive<std::uint8_t>() != 0; }

ArchiveReader::Block16 ArchiveReader::ReadBlock16() {
  ExpectWidth(sizeof(Block16));
  return ReadPrimitive<Block16>();
}

std::string_view ArchiveReader::ReadString() {
  ExpectType(ArchiveType::kString, "Invalid string-identifier {} (was expecting {}).");
  const std::span<const std::byte> text = ReadBytes(ReadU32());
  return {reinterpret_cast<const char*>(text.data()), text.size()};
}

std::wstring_view ArchiveReader::ReadWideString() {
  ExpectType(ArchiveType::kWideString, "Invalid wstring-identifier {} (was expecting {}).");
  // Doubled in 32 bits: an absurd length wraps. The view is made of the bytes really there.
  const std::uint32_t byteCount = 2 * ReadU32();
  const std::span<const std::byte> text = ReadBytes(byteCount);
  return {reinterpret_cast<const wchar_t*>(text.data()), text.size() / sizeof(wchar_t)};
}

std::span<const std::byte> ArchiveReader::ReadData() {
  ExpectType(ArchiveType::kData, "Invalid data-identifier {} (was expecting {}).");
  return ReadBytes(ReadU32());
}

std::int64_t ArchiveReader::ReadTime() {
  ExpectType(ArchiveType::kSystemTime, "Invalid system-time-identifier {} (was expecting {}).");
  return ReadPrimitive<std::int64_t>();  // The only scalar without a width: writers write none.
}

void ArchiveReader::ExpectTuple(std::uint8_t count) {
  if (mode_ == ArchiveMode::kPlain) return;
  ExpectType(ArchiveType::kTuple, "Invalid tuple-identifier {} (was expecting {}).");
  const std::uint8_t found = ReadPrimitive<std::uint8_t>();
  if (found != count) {
    throw FileException(Format("Invalid size of tuple {} (was expecting {}).", found, count));
  }
}

void ArchiveReader::ExpectArray() {
  ExpectType(ArchiveType::kArray, "Invalid array-identifier {} (was expecting {}).");
}
void ArchiveReader::ExpectPair() {
  ExpectType(ArchiveType::kPair, "Invalid pair-identifier {} (was expecting {}).");
}
void ArchiveReader::ExpectMap() {
  ExpectType(ArchiveType::kMap, "Invalid map-identifier {} (was expecting {}).");
}
void ArchiveReader::ExpectSet() {
  ExpectType(ArchiveType::kSet, "Invalid set-identifier {} (was expecting {}).");
}

void ArchiveReader::ReadHeader() {
  const auto magic = ReadPrimitive<std::uint32_t>();
  if (magic != kArchiveMagic) {
    throw FileException(Format("Invalid header {} for binary file.", magic));
  }
  const auto version = ReadPrimitive<std::uint32_t>();
  if (version != kArchiveVersion) {
    throw FileException(Format("Invalid version {} for binary file (supported: 1).", version));
  }
  mode_ = ReadPrimitive<std::uint8_t>() != 0 ? ArchiveMode::kChecked : ArchiveMode::kPlain;
}

template <class Value>
Value ArchiveReader::ReadPrimitive() {
  Value value{};
  if (bytes_.size() - position_ < sizeof(value)) {
    position_ = bytes_.size();
    return value;
  }
  std::memcpy(&value, bytes_.data() + position_, sizeof(value));
  position_ += sizeof(value);
  return value;
}

void ArchiveReader::ExpectWidth(std::uint32_t width) {
  if (mode_ == ArchiveMode::kPlain) return;
  const auto found = ReadPrimitive<std::uint32_t>();
  if (found != width) {
    throw FileException(Format("Invalid debug-size for type. Was {}, expected {}.", found, width));
  }
}

void ArchiveReader::ExpectType(ArchiveType type, std::string_view message) {
  if (mode_ == ArchiveMode::kPlain) return;
  const auto expected = static_cast<std::uint32_t>(type);
  const auto found = ReadPrimitive<std::uint32_t>();
  if (found != expected) throw FileException(Format(message, found, expected));
}

std::span<const std::byte> ArchiveReader::ReadBytes(std::uint32_t count) {
  // The position stays: the next value is read from behind the length.
  if (bytes_.size() - position_ < count) return {};
  const auto bytes = bytes_.subspan(position_, count);
  position_ += count;
  return bytes;
}

}  // namespace ve::file
