// MD5 (RFC 1321) in the form that manifests use: 32 lowercase hexadecimal characters.
//
//   const std::string digest = ve::Md5Hex(content);
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

namespace ve {

/// The words A, B, C and D, which each block changes (RFC 1321, section 3.3).
using Md5State = std::array<std::uint32_t, 4>;
inline constexpr Md5State kMd5InitialState{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
inline constexpr std::size_t kMd5BlockSize = 64;

/// One computation of a digest.
class Md5 {
 public:
  Md5() = default;
  /// Continues after `length` bytes, a multiple of 64, that led to `state`.
  Md5(const Md5State& state, std::uint32_t length)
      : bitCount_{length << 3, length >> 29}, state_(state) {}

  /// Adds the first `bytes.size()` modulo 2^32 bytes: of 4 GiB or more, the rest is not read.
  void Update(std::span<const std::byte> bytes) noexcept;

  /// Produces the digest. Nothing may be added afterwards; a second call changes nothing.
  void Finalize() noexcept;

  /// The digest's 32 characters, of a finalised computation.
  [[nodiscard]] std::string Hex() const;

 private:
  /// Adds `count` whole blocks of 64 bytes.
  void Transform(const std::byte* blocks, std::size_t count) noexcept;

  bool finalized_ = false;
  std::array<std::byte, kMd5BlockSize> buffer_{};
  std::array<std::uint32_t, 2> bitCount_{};  // low word first
  Md5State state_ = kMd5InitialState;
  std::array<std::byte, 16> digest_{};
};

/// Writes the digest of a finalised computation.
std::ostream& operator<<(std::ostream& out, const Md5& md5);

/// The digest of a buffer, or of a string's bytes.
[[nodiscard]] std::string Md5Hex(std::span<const std::byte> bytes);
[[nodiscard]] std::string Md5Hex(const std::string& bytes);

}  // namespace ve
