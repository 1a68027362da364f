// The binary archive encoding (".vpak"): constants that reader and writer share.
//
// An archive is a 9-byte header (magic, version, checked mode) and the fields of one record in a
// fixed order, little-endian, byte by byte without padding. In checked mode every compound value
// carries its type's identifier and every fixed-width scalar its width in bytes, so that a reader
// can tell a wrong layout from wrong data.
#pragma once

#include <cstdint>

namespace ve::file {

inline constexpr std::uint32_t kArchiveMagic = 0x6126FCA1;
inline constexpr std::uint32_t kArchiveVersion = 1;

/// Identifiers of the value types, present in checked mode only.
enum class ArchiveType : std::uint32_t {
  kString = 0x2F4C20B8,
  kWideString = 0x2F467C32,
  kData = 0xC4DE8933,
  kArray = 0x4E0D1F6E,
  kSystemTime = 0x827E727B,
  kPair = 0x5D109CA1,
  kTuple = 0x3710DF39,
  kMap = 0x1AE59BAB,
  kSet = 0x2581AAA7,
};

/// Whether an archive carries identifiers and widths.
enum class ArchiveMode : std::uint8_t { kPlain = 0, kChecked = 1 };

}  // namespace ve::file
