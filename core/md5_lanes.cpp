#include "core/md5_lanes.h"

#include <algorithm>
#include <cstdint>
#include <emmintrin.h>

#include "core/md5.h"
#include "core/md5_steps.h"

namespace ve {
namespace {

/// One word of each lane. SSE2 is part of every 64-bit processor.
struct Lanes {
  __m128i words;

  Lanes() = default;
  explicit Lanes(__m128i value) : words(value) {}
  explicit Lanes(std::uint32_t word) : words(_mm_set1_epi32(static_cast<int>(word))) {}

  Lanes operator+(Lanes other) const { return Lanes(_mm_add_epi32(words, other.words)); }
  Lanes operator^(Lanes other) const { return Lanes(_mm_xor_si128(words, other.words)); }
  Lanes operator&(Lanes other) const { return Lanes(_mm_and_si128(words, other.words)); }
  Lanes operator|(Lanes other) const { return Lanes(_mm_or_si128(words, other.words)); }
  Lanes operator~() const { return Lanes(_mm_xor_si128(words, _mm_set1_epi32(-1))); }
};

Lanes RotateLeft(Lanes lanes, int count) {
  return Lanes(
      _mm_or_si128(_mm_slli_epi32(lanes.words, count), _mm_srli_epi32(lanes.words, 32 - count)));
}

Lanes Fixed(Lanes sum) {
#ifdef __GNUC__
  asm("" : "+x"(sum.words));
#endif
  return sum;
}

using Buffers = std::array<std::span<const std::byte>, kMd5Lanes>;

/// The sixteen words of one block of each buffer.
class LaneWords {
 public:
  LaneWords(const Buffers& buffers, std::size_t offset) {
    for (std::size_t group = 0; group < words_.size(); group += 4) {
      const auto load = [&](std::size_t lane) {
        const std::byte* at = buffers[lane].data() + offset + group * sizeof(std::uint32_t);
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
      };
      // Four words of each lane become four registers with one word of every lane.
      const __m128i low01 = _mm_unpacklo_epi32(load(0), load(1));
      const __m128i low23 = _mm_unpacklo_epi32(load(2), load(3));
      const __m128i high01 = _mm_unpackhi_epi32(load(0), load(1));
      const __m128i high23 = _mm_unpackhi_epi32(load(2), load(3));
      words_[group] = Lanes(_mm_unpacklo_epi64(low01, low23));
      words_[group + 1] = Lanes(_mm_unpackhi_epi64(low01, low23));
      words_[group + 2] = Lanes(_mm_unpacklo_epi64(high01, high23));
      words_[group + 3] = Lanes(_mm_unpackhi_epi64(high01, high23));
    }
  }

  Lanes operator[](std::size_t index) const { return words_[index]; }

 private:
  std::array<Lanes, 16> words_;
};

/// The state of each lane, word by word.
using States = std::array<Lanes, 4>;

void AddBlocks(States& states, const Buffers& buffers, std::size_t begin, std::size_t end) {
  auto [a, b, c, d] = states;
  for (std::size_t offset = begin; offset < end; offset += kMd5BlockSize) {
    detail::AddBlock(a, b, c, d, LaneWords(buffers, offset));
  }
  states = {a, b, c, d};
}

Md5State StateOf(const States& states, std::size_t lane) {
  Md5State state;
  for (std::size_t word = 0; word < state.size(); ++word) {
    alignas(16) std::array<std::uint32_t, kMd5Lanes> words;
    _mm_store_si128(reinterpret_cast<__m128i*>(words.data()), states[word].words);
    state[word] = words[lane];
  }
  return state;
}

/// The length of the buffer's whole blocks, of a length that counts modulo 2^32.
std::size_t BlockBytes(std::span<const std::byte> buffer) {
  return static_cast<std::uint32_t>(buffer.size()) / kMd5BlockSize * kMd5BlockSize;
}

}  // namespace

std::array<std::string, kMd5Lanes> Md5HexOfFour(const Buffers& buffers) {
  Buffers running = buffers;  // A lane whose buffer has ended goes on with the longest one.
  States states{Lanes(kMd5Start[0]), Lanes(kMd5Start[1]), Lanes(kMd5Start[2]), Lanes(kMd5Start[3])};

  // All lanes run up to the end of each buffer, from the shortest to the longest but one.
  std::array<std::size_t, kMd5Lanes> order{0, 1, 2, 3};
  std::sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
    return BlockBytes(buffers[left]) < BlockBytes(buffers[right]);
  });
  const std::size_t longest = order.back();
  std::array<std::string, kMd5Lanes> digests;
  std::size_t done = 0;
  for (const std::size_t lane : order) {
    if (lane != longest) {
      AddBlocks(states, running, done, BlockBytes(buffers[lane]));
      done = BlockBytes(buffers[lane]);
    }
    Md5 md5(StateOf(states, lane), static_cast<std::uint32_t>(done));
    md5.Update(
        buffers[lane].subspan(done, static_cast<std::uint32_t>(buffers[lane].size()) - done));
    md5.Finalize();
    digests[lane] = md5.Hex();
    running[lane] = buffers[longest];
  }
  return digests;
}

}  // namespace ve
