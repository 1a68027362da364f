// MD5 of several buffers side by side. One computation is a chain of dependent steps, which leaves
// most of the processor idle; four independent ones share its vector registers.
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

/// The digest of each buffer, as by `Md5Hex`. When one buffer ends, the next takes its lane; the last
/// one left ends alone. So it is the faster, the more buffers there are.
[[nodiscard]] std::vector<std::string> Md5HexOfEach(
    std::span<const std::span<const std::byte>> buffers);

}  // namespace ve
