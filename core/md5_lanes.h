// MD5 of several buffers side by side: four independent computations fill the registers that one,
// a chain of dependent steps, leaves idle.
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

/// The digest of each buffer, as by `Md5Hex`. Side by side runs what all of them have; the rest of
/// each runs alone, so buffers of about the same length are the fastest. Buffers that are not needed
/// are left empty, and have the digest of an empty buffer.
[[nodiscard]] std::array<std::string, kMd5Lanes> Md5HexOfFour(
    const std::array<std::span<const std::byte>, kMd5Lanes>& buffers);

}  // namespace ve
