// MD5 of several buffers side by side. One computation is a chain of dependent steps, which leaves
// most of the processor idle; four independent ones share its vector registers.
//
//   const std::array<std::string, 4> digests = ve::Md5HexOfFour({first, second, third, {}});
#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>

namespace ve {

/// How many buffers are digested side by side.
inline constexpr std::size_t kMd5Lanes = 4;

/// The digest of each buffer, as by `Md5Hex`. All lanes run until only one buffer is left, which
/// ends alone, so buffers of about the same length are the fastest. Leave unneeded buffers empty:
/// each has the digest of an empty buffer.
[[nodiscard]] std::array<std::string, kMd5Lanes> Md5HexOfFour(
    const std::array<std::span<const std::byte>, kMd5Lanes>& buffers);

}  // namespace ve
