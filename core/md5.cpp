#include "core/md5.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace ve {
namespace {

constexpr std::size_t kBlockSize = 64;

// How fast MD5 can be is decided by one chain of dependent operations: every step needs the sum of
// the step before, `x`. So each step adds first what does not need it, and the four auxiliary
// functions of RFC 1321, section 3.4, are written so that as little as possible follows it: the
// steps of the rounds take 5, 4, 4 and 5 cycles, 4.5 a byte.

/// Keeps compilers from re-associating a sum, which would put `x` ahead of additions that could be
/// made before it is known (clang does; it costs a quarter of the speed).
std::uint32_t Fixed(std::uint32_t sum) {
#ifdef __GNUC__
  asm("" : "+r"(sum));
#endif
  return sum;
}

struct Round1 {
  static std::uint32_t Mix(std::uint32_t sum, std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    return sum + (((y ^ z) & x) ^ z);
  }
};
struct Round2 {
  // A choice between disjoint bits, so "or" may be "+", and only one of its halves needs `x`.
  static std::uint32_t Mix(std::uint32_t sum, std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    return Fixed(sum + (~z & y)) + (z & x);
  }
};
struct Round3 {
  static std::uint32_t Mix(std::uint32_t sum, std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    return sum + (x ^ (y ^ z));
  }
};
struct Round4 {
  static std::uint32_t Mix(std::uint32_t sum, std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    return sum + (y ^ (x | ~z));
  }
};

template <class Round>
void Step(std::uint32_t& a, std::uint32_t b, std::uint32_t c, std::uint32_t d, std::uint32_t word,
          int shift, std::uint32_t constant) {
  a = std::rotl(Round::Mix(Fixed(a + word + constant), b, c, d), shift) + b;
}

/// The sixteen words of a block, read where they stand.
class Words {
 public:
  explicit Words(const std::byte* block) : block_(block) {}

  std::uint32_t operator[](std::size_t index) const {
    std::uint32_t word = 0;
    // Windows runs little-endian, as MD5 counts.
    std::memcpy(&word, block_ + index * sizeof(word), sizeof(word));
    return word;
  }

 private:
  const std::byte* block_;
};

}  // namespace

void Md5::Update(std::span<const std::byte> bytes) noexcept {
  const std::uint32_t length = static_cast<std::uint32_t>(bytes.size());
  const std::byte* input = bytes.data();
  std::size_t index = bitCount_[0] / 8 % 64;
  bitCount_[0] += length << 3;
  if (bitCount_[0] < length << 3) ++bitCount_[1];
  bitCount_[1] += length >> 29;

  std::size_t at = 0;
  const std::size_t room = kBlockSize - index;
  if (length >= room) {
    std::copy_n(input, room, buffer_.data() + index);
    Transform(buffer_.data(), 1);
    const std::size_t wholeBlocks = (length - room) / kBlockSize;
    Transform(input + room, wholeBlocks);
    at = room + wholeBlocks * kBlockSize;
    index = 0;
  }
  std::copy_n(input + at, length - at, buffer_.data() + index);
}

void Md5::Finalize() noexcept {
  if (finalized_) return;
  std::array<std::byte, 8> count;
  std::memcpy(count.data(), bitCount_.data(), count.size());

  static constexpr std::array<std::byte, 64> kPadding{std::byte{0x80}};
  const std::size_t index = bitCount_[0] / 8 % 64;
  Update({kPadding.data(), index < 56 ? 56 - index : 120 - index});
  Update(count);
  std::memcpy(digest_.data(), state_.data(), digest_.size());

  finalized_ = true;
  buffer_.fill({});
  bitCount_.fill(0);
}

std::string Md5::Hex() const {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  std::string hex;
  hex.reserve(2 * digest_.size());
  for (const std::byte byte : digest_) {
    hex += kDigits[std::to_integer<std::size_t>(byte >> 4)];
    hex += kDigits[std::to_integer<std::size_t>(byte & std::byte{0x0F})];
  }
  return hex;
}

void Md5::Transform(const std::byte* blocks, std::size_t count) noexcept {
  // The state stays in registers from block to block.
  auto [stateA, stateB, stateC, stateD] = state_;
  for (const std::byte* block = blocks; block != blocks + count * kBlockSize; block += kBlockSize) {
    const Words x(block);
    std::uint32_t a = stateA;
    std::uint32_t b = stateB;
    std::uint32_t c = stateC;
    std::uint32_t d = stateD;

    // Round 1.
    Step<Round1>(a, b, c, d, x[0], 7, 0xd76aa478);
    Step<Round1>(d, a, b, c, x[1], 12, 0xe8c7b756);
    Step<Round1>(c, d, a, b, x[2], 17, 0x242070db);
    Step<Round1>(b, c, d, a, x[3], 22, 0xc1bdceee);
    Step<Round1>(a, b, c, d, x[4], 7, 0xf57c0faf);
    Step<Round1>(d, a, b, c, x[5], 12, 0x4787c62a);
    Step<Round1>(c, d, a, b, x[6], 17, 0xa8304613);
    Step<Round1>(b, c, d, a, x[7], 22, 0xfd469501);
    Step<Round1>(a, b, c, d, x[8], 7, 0x698098d8);
    Step<Round1>(d, a, b, c, x[9], 12, 0x8b44f7af);
    Step<Round1>(c, d, a, b, x[10], 17, 0xffff5bb1);
    Step<Round1>(b, c, d, a, x[11], 22, 0x895cd7be);
    Step<Round1>(a, b, c, d, x[12], 7, 0x6b901122);
    Step<Round1>(d, a, b, c, x[13], 12, 0xfd987193);
    Step<Round1>(c, d, a, b, x[14], 17, 0xa679438e);
    Step<Round1>(b, c, d, a, x[15], 22, 0x49b40821);
    // Round 2.
    Step<Round2>(a, b, c, d, x[1], 5, 0xf61e2562);
    Step<Round2>(d, a, b, c, x[6], 9, 0xc040b340);
    Step<Round2>(c, d, a, b, x[11], 14, 0x265e5a51);
    Step<Round2>(b, c, d, a, x[0], 20, 0xe9b6c7aa);
    Step<Round2>(a, b, c, d, x[5], 5, 0xd62f105d);
    Step<Round2>(d, a, b, c, x[10], 9, 0x02441453);
    Step<Round2>(c, d, a, b, x[15], 14, 0xd8a1e681);
    Step<Round2>(b, c, d, a, x[4], 20, 0xe7d3fbc8);
    Step<Round2>(a, b, c, d, x[9], 5, 0x21e1cde6);
    Step<Round2>(d, a, b, c, x[14], 9, 0xc33707d6);
    Step<Round2>(c, d, a, b, x[3], 14, 0xf4d50d87);
    Step<Round2>(b, c, d, a, x[8], 20, 0x455a14ed);
    Step<Round2>(a, b, c, d, x[13], 5, 0xa9e3e905);
    Step<Round2>(d, a, b, c, x[2], 9, 0xfcefa3f8);
    Step<Round2>(c, d, a, b, x[7], 14, 0x676f02d9);
    Step<Round2>(b, c, d, a, x[12], 20, 0x8d2a4c8a);
    // Round 3.
    Step<Round3>(a, b, c, d, x[5], 4, 0xfffa3942);
    Step<Round3>(d, a, b, c, x[8], 11, 0x8771f681);
    Step<Round3>(c, d, a, b, x[11], 16, 0x6d9d6122);
    Step<Round3>(b, c, d, a, x[14], 23, 0xfde5380c);
    Step<Round3>(a, b, c, d, x[1], 4, 0xa4beea44);
    Step<Round3>(d, a, b, c, x[4], 11, 0x4bdecfa9);
    Step<Round3>(c, d, a, b, x[7], 16, 0xf6bb4b60);
    Step<Round3>(b, c, d, a, x[10], 23, 0xbebfbc70);
    Step<Round3>(a, b, c, d, x[13], 4, 0x289b7ec6);
    Step<Round3>(d, a, b, c, x[0], 11, 0xeaa127fa);
    Step<Round3>(c, d, a, b, x[3], 16, 0xd4ef3085);
    Step<Round3>(b, c, d, a, x[6], 23, 0x04881d05);
    Step<Round3>(a, b, c, d, x[9], 4, 0xd9d4d039);
    Step<Round3>(d, a, b, c, x[12], 11, 0xe6db99e5);
    Step<Round3>(c, d, a, b, x[15], 16, 0x1fa27cf8);
    Step<Round3>(b, c, d, a, x[2], 23, 0xc4ac5665);
    // Round 4.
    Step<Round4>(a, b, c, d, x[0], 6, 0xf4292244);
    Step<Round4>(d, a, b, c, x[7], 10, 0x432aff97);
    Step<Round4>(c, d, a, b, x[14], 15, 0xab9423a7);
    Step<Round4>(b, c, d, a, x[5], 21, 0xfc93a039);
    Step<Round4>(a, b, c, d, x[12], 6, 0x655b59c3);
    Step<Round4>(d, a, b, c, x[3], 10, 0x8f0ccc92);
    Step<Round4>(c, d, a, b, x[10], 15, 0xffeff47d);
    Step<Round4>(b, c, d, a, x[1], 21, 0x85845dd1);
    Step<Round4>(a, b, c, d, x[8], 6, 0x6fa87e4f);
    Step<Round4>(d, a, b, c, x[15], 10, 0xfe2ce6e0);
    Step<Round4>(c, d, a, b, x[6], 15, 0xa3014314);
    Step<Round4>(b, c, d, a, x[13], 21, 0x4e0811a1);
    Step<Round4>(a, b, c, d, x[4], 6, 0xf7537e82);
    Step<Round4>(d, a, b, c, x[11], 10, 0xbd3af235);
    Step<Round4>(c, d, a, b, x[2], 15, 0x2ad7d2bb);
    Step<Round4>(b, c, d, a, x[9], 21, 0xeb86d391);

    stateA += a;
    stateB += b;
    stateC += c;
    stateD += d;
  }
  state_ = {stateA, stateB, stateC, stateD};
}

std::ostream& operator<<(std::ostream& out, const Md5& md5) { return out << md5.Hex(); }

std::string Md5Hex(std::span<const std::byte> bytes) {
  Md5 md5;
  md5.Update(bytes);
  md5.Finalize();
  return md5.Hex();
}

std::string Md5Hex(const std::string& bytes) {
  return Md5Hex(std::as_bytes(std::span(bytes.data(), bytes.size())));
}

}  // namespace ve
