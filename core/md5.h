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

/// One computation of a digest.
class Md5 {
 public:
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
  std::array<std::byte, 64> buffer_{};
  std::array<std::uint32_t, 2> bitCount_{};  // low word first
  std::array<std::uint32_t, 4> state_{0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  std::array<std::byte, 16> digest_{};
};

/// Writes the digest of a finalised computation.
std::ostream& operator<<(std::ostream& out, const Md5& md5);

/// The digest of a buffer, or of a string's bytes.
[[nodiscard]] std::string Md5Hex(std::span<const std::byte> bytes);
[[nodiscard]] std::string Md5Hex(const std::string& bytes);

}  // namespace ve
