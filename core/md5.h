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

/// What is carried from block to block: the words A, B, C and D.
using Md5State = std::array<std::uint32_t, 4>;
inline constexpr Md5State kMd5Start{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
inline constexpr std::size_t kMd5BlockSize = 64;

/// One computation of a digest.
class Md5 {
 public:
  Md5() = default;
  /// Continues a computation after whole blocks of together `length` bytes.
  Md5(const Md5State& state, std::uint32_t length)
      : bitCount_{length << 3, length >> 29}, state_(state) {}

  /// Adds bytes. Their number is taken as an unsigned 32-bit number: of 4 GiB and more only the
  /// length modulo 2^32 counts.
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
  Md5State state_ = kMd5Start;
  std::array<std::byte, 16> digest_{};
};

/// Writes the digest of a finalised computation.
std::ostream& operator<<(std::ostream& out, const Md5& md5);

/// The digest of a buffer, or of a string's bytes.
[[nodiscard]] std::string Md5Hex(std::span<const std::byte> bytes);
[[nodiscard]] std::string Md5Hex(const std::string& bytes);

}  // namespace ve
