// Archives put together by hand, byte by byte, apart from the writer under test.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ve::test {

inline std::string U32(std::uint32_t value) {
  std::string bytes;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift & 0xFFU);
  return bytes;
}

inline std::string U64(std::uint64_t value) {
  return U32(static_cast<std::uint32_t>(value)) + U32(static_cast<std::uint32_t>(value >> 32));
}

inline std::string Utf16(std::wstring_view text) {
  std::string bytes;
  for (const wchar_t unit : text) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

inline const std::string kPlainHeader("\xA1\xFC\x26\x61\1\0\0\0\0", 9);
inline const std::string kCheckedHeader("\xA1\xFC\x26\x61\1\0\0\0\1", 9);

inline std::string PlainString(std::string_view text) {
  return U32(static_cast<std::uint32_t>(text.size())) + std::string(text);
}
inline std::string PlainWide(std::wstring_view text) {
  return U32(static_cast<std::uint32_t>(text.size())) + Utf16(text);
}
inline std::string CheckedU32(std::uint32_t value) { return U32(4) + U32(value); }
inline std::string CheckedString(std::string_view text) {
  return "\xB8\x20\x4C\x2F" + U32(4) + PlainString(text);
}
inline std::string CheckedWide(std::wstring_view text) {
  return "\x32\x7C\x46\x2F" + U32(4) + PlainWide(text);
}

}  // namespace ve::test
