#include "core/md5.h"

#include <algorithm>
#include <cstring>

#include "core/md5_steps.h"

namespace ve {
namespace {

/// The sixteen words of a block, read in place.
class Words {
 public:
  explicit Words(const std::byte* block) : block_(block) {}

  std::uint32_t operator[](std::size_t index) const {
    std::uint32_t word = 0;
    // MD5 words are little-endian (RFC 1321, section 2), as Windows is.
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
  const std::size_t room = kMd5BlockSize - index;
  if (length >= room) {
    std::copy_n(input, room, buffer_.data() + index);
    Transform(buffer_.data(), 1);
    const std::size_t wholeBlocks = (length - room) / kMd5BlockSize;
    Transform(input + room, wholeBlocks);
    at = room + wholeBlocks * kMd5BlockSize;
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
  for (const std::byte* block = blocks; block != blocks + count * kMd5BlockSize;
       block += kMd5BlockSize) {
    detail::AddBlock(stateA, stateB, stateC, stateD, Words(block));
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
