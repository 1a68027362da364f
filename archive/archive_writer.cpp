#include "archive/archive_writer.h"

#include <filesystem>

#include "core/truncated_string.h"

namespace ve::file {

ArchiveWriter::ArchiveWriter(std::wstring_view path, ArchiveMode mode)
    : mode_(mode),
      toFile_(true),
      file_(std::filesystem::path(WidePath(path).Get()), std::ios::out | std::ios::binary) {
  WriteHeader();
}

ArchiveWriter::ArchiveWriter(ArchiveMode mode)
    : mode_(mode), toFile_(false), memory_(std::ios::out | std::ios::binary) {
  WriteHeader();
}

void ArchiveWriter::WriteU32(std::uint32_t value) {
  WriteWidth(sizeof(value));
  WritePrimitive(value);
}

void ArchiveWriter::WriteBool(bool value) { WritePrimitive(std::uint8_t{value}); }

void ArchiveWriter::WriteBlock16(std::span<const std::byte, 16> block) {
  WriteWidth(16);
  WriteBytes(block.data(), block.size());
}

void ArchiveWriter::WriteString(std::string_view text) {
  WriteType(ArchiveType::kString);
  WriteU32(static_cast<std::uint32_t>(text.size()));
  WriteBytes(text.data(), text.size());
}

void ArchiveWriter::WriteWideString(std::wstring_view text) {
  WriteType(ArchiveType::kWideString);
  WriteU32(static_cast<std::uint32_t>(text.size()));
  WriteBytes(text.data(), text.size() * sizeof(wchar_t));
}

void ArchiveWriter::WriteData(std::span<const std::byte> data) {
  WriteType(ArchiveType::kData);
  WriteU32(static_cast<std::uint32_t>(data.size()));
  WriteBytes(data.data(), data.size());
}

void ArchiveWriter::WriteData(const std::function<void(ArchiveWriter&)>& writeContent) {
  WriteType(ArchiveType::kData);
  WriteWidth(sizeof(std::uint32_t));
  const std::ostream::pos_type lengthAt = Out().tellp();
  WritePrimitive(std::uint32_t{0});
  const std::ostream::pos_type begin = Out().tellp();
  writeContent(*this);
  const std::ostream::pos_type end = Out().tellp();
  Out().seekp(lengthAt);
  WritePrimitive(static_cast<std::uint32_t>(end - begin));
  Out().seekp(end);
}

void ArchiveWriter::WriteTime(std::int64_t ticks) {
  WriteType(ArchiveType::kSystemTime);
  WritePrimitive(ticks);  // The only scalar without a width: readers expect none.
}

void ArchiveWriter::WriteTupleHeader(std::uint8_t count) {
  if (mode_ == ArchiveMode::kPlain) return;
  WriteType(ArchiveType::kTuple);
  WritePrimitive(count);
}

void ArchiveWriter::WriteArrayHeader() { WriteType(ArchiveType::kArray); }
void ArchiveWriter::WritePairHeader() { WriteType(ArchiveType::kPair); }
void ArchiveWriter::WriteMapHeader() { WriteType(ArchiveType::kMap); }
void ArchiveWriter::WriteSetHeader() { WriteType(ArchiveType::kSet); }

std::string ArchiveWriter::Bytes() const { return memory_.str(); }

std::ostream& ArchiveWriter::Out() {
  if (toFile_) return file_;
  return memory_;
}

void ArchiveWriter::WriteHeader() {
  WritePrimitive(kArchiveMagic);
  WritePrimitive(kArchiveVersion);
  WritePrimitive(static_cast<std::uint8_t>(mode_));
}

void ArchiveWriter::WriteBytes(const void* bytes, std::size_t size) {
  Out().write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
}

template <class Value>
void ArchiveWriter::WritePrimitive(Value value) {
  WriteBytes(&value, sizeof(value));
}

void ArchiveWriter::WriteWidth(std::uint32_t width) {
  if (mode_ == ArchiveMode::kChecked) WritePrimitive(width);
}

void ArchiveWriter::WriteType(ArchiveType type) {
  if (mode_ == ArchiveMode::kChecked) WritePrimitive(static_cast<std::uint32_t>(type));
}

}  // namespace ve::file
