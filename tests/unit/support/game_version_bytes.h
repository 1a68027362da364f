// Game version files, put together byte by byte.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "support/archive_bytes.h"

namespace ve::test {

[[nodiscard]] inline std::string Words(const std::array<std::int32_t, 4>& words) {
  std::string bytes;
  for (const std::int32_t word : words) bytes += U32(static_cast<std::uint32_t>(word));
  return bytes;
}

[[nodiscard]] inline std::string VersionBytes(const std::array<std::int32_t, 4>& words,
                                              std::string_view header = "GameVersion",
                                              std::uint32_t fileVersion = 1) {
  return kPlainHeader + PlainString(header) + U32(fileVersion) + Words(words);
}

[[nodiscard]] inline std::string CheckedVersionBytes(const std::array<std::int32_t, 4>& words) {
  return kCheckedHeader + CheckedString("GameVersion") + CheckedU32(1) + U32(16) + Words(words);
}

}  // namespace ve::test
