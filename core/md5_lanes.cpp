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

Lanes KeepSum(Lanes sum) {
#if defined(__GNUC__) || defined(__clang__)
  asm("" : "+x"(sum.words));
#endif
  return sum;
}

using Bytes = std::span<const std::byte>;

/// Where the blocks of each lane begin.
using Blocks = std::array<const std::byte*, kMd5Lanes>;

/// The sixteen words of one block of each lane.
class LaneWords {
 public:
  LaneWords(const Blocks& blocks, std::size_t offset) {
    for (std::size_t group = 0; group < words_.size(); group += 4) {
      const auto load = [&](std::size_t lane) {
        const std::byte* at = blocks[lane] + offset + group * sizeof(std::uint32_t);
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

/// One buffer on its way through a lane.
struct Run {
  Bytes buffer;
  std::string* digest;
  std::size_t done = 0;  ///< In bytes, of whole blocks.
  Md5State state = kMd5InitialState;

  /// The length counts modulo 2^32.
  [[nodiscard]] std::size_t Length() const { return static_cast<std::uint32_t>(buffer.size()); }
  /// In bytes, of whole blocks.
  [[nodiscard]] std::size_t BlocksLeft() const {
    return (Length() - done) / kMd5BlockSize * kMd5BlockSize;
  }

  /// Computes what is left of the digest alone.
  void Finish() const {
    Md5 md5(state, static_cast<std::uint32_t>(done));
    md5.Update(buffer.subspan(done, Length() - done));
    md5.Finalize();
    *digest = md5.Hex();
  }
};

/// Adds the next `size` bytes, whole blocks, of each run. There are two to four runs.
void AddBlocks(std::span<Run> runs, std::size_t size) {
  Blocks blocks;
  alignas(16) std::array<std::array<std::uint32_t, kMd5Lanes>, 4> words;  // Of the states.
  for (std::size_t lane = 0; lane < kMd5Lanes; ++lane) {
    const Run& run = runs[std::min(lane, runs.size() - 1)];  // An unused lane repeats the last one.
    blocks[lane] = run.buffer.data() + run.done;
    for (std::size_t word = 0; word < words.size(); ++word) words[word][lane] = run.state[word];
  }
  std::array<Lanes, 4> state;
  for (std::size_t word = 0; word < words.size(); ++word) {
    state[word] = Lanes(_mm_load_si128(reinterpret_cast<const __m128i*>(words[word].data())));
  }
  auto [a, b, c, d] = state;
  for (std::size_t offset = 0; offset < size; offset += kMd5BlockSize) {
    detail::AddBlock(a, b, c, d, LaneWords(blocks, offset));
  }
  state = {a, b, c, d};
  for (std::size_t word = 0; word < words.size(); ++word) {
    _mm_store_si128(reinterpret_cast<__m128i*>(words[word].data()), state[word].words);
  }
  for (std::size_t lane = 0; lane < runs.size(); ++lane) {
    runs[lane].done += size;
    for (std::size_t word = 0; word < words.size(); ++word)
      runs[lane].state[word] = words[word][lane];
  }
}

}  // namespace

std::vector<std::string> Md5HexOfEach(std::span<const Bytes> buffers) {
  std::vector<std::string> digests(buffers.size());
  std::vector<Run> runs;
  std::size_t next = 0;
  const auto fillLanes = [&] {
    for (; runs.size() < kMd5Lanes && next < buffers.size(); ++next) {
      runs.push_back({buffers[next], &digests[next]});
    }
  };
  for (fillLanes(); runs.size() > 1; fillLanes()) {
    AddBlocks(runs, std::ranges::min(runs, {}, &Run::BlocksLeft).BlocksLeft());
    const auto isDone = [](const Run& run) { return run.BlocksLeft() == 0; };
    for (const Run& run : runs) {
      if (isDone(run)) run.Finish();
    }
    std::erase_if(runs, isDone);
  }
  if (!runs.empty()) runs.front().Finish();
  return digests;
}

}  // namespace ve
