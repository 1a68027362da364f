// Windows' file times as Unix time.
#pragma once

#include "core/windows.h"

#include <cstdint>

namespace ve {

inline constexpr std::int64_t kTicksPerSecond = 10'000'000;

/// 100-nanosecond ticks since 1970-01-01 UTC.
/// https://learn.microsoft.com/windows/win32/api/minwinbase/ns-minwinbase-filetime
[[nodiscard]] constexpr std::int64_t UnixTicks(const FILETIME& time) noexcept {
  constexpr std::int64_t kSecondsFrom1601To1970 = 11'644'473'600;
  const std::uint64_t ticks = std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
  return static_cast<std::int64_t>(ticks) - kSecondsFrom1601To1970 * kTicksPerSecond;
}

}  // namespace ve
