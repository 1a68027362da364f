// MD5 of several buffers side by side (multi-buffer hashing). One computation is a chain of
// dependent steps, which leaves most of the processor idle; four independent ones share its vector
// registers.
//
//   const std::vector<std::string> digests = ve::Md5HexOfEach({{first, second, third}});
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace ve {

/// How many buffers are digested side by side.
inline constexpr std::size_t kMd5Lanes = 4;

/// The digest of each buffer, as by `Md5Hex`: lengths count modulo 2^32. When one buffer ends, the
/// next takes its lane; when only one is left, it is finished alone, without the others' speed.
[[nodiscard]] std::vector<std::string> Md5HexOfEach(
    std::span<const std::span<const std::byte>> buffers);

}  // namespace ve
