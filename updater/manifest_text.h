// The text format that both manifests share: lines, "key: value" pairs and lenient numbers.
//
// Lines, keys and values are views into the manifest's text, which must stay alive and unchanged
// while they are used. There is no malformed input at this level; the readers judge what they get.
#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <emmintrin.h>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace ve::sdk {

/// How many bytes are looked at in one step, which every x86-64 processor can: the C runtime's
/// searches take one by one.
inline constexpr std::ptrdiff_t kStep = sizeof(__m128i);

[[nodiscard]] inline __m128i LoadStep(const char* at) noexcept {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}

/// A bit for each byte of a step: whether it is one of the wanted.
template <char... Wanted>
[[nodiscard]] unsigned Matches(__m128i bytes) noexcept {
  return static_cast<unsigned>(
      (_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(Wanted))) | ...));
}

/// The first of the wanted bytes, or `end`.
template <char... Wanted>
[[nodiscard]] const char* FindByte(const char* at, const char* end) noexcept {
  for (; end - at >= kStep; at += kStep) {
    const unsigned found = Matches<Wanted...>(LoadStep(at));
    if (found != 0) return at + std::countr_zero(found);
  }
  while (at != end && ((*at != Wanted) && ...)) ++at;
  return at;
}

/// Removes every carriage return, wherever it stands. Returns how many lines that are not empty the
/// text then has, which costs nothing on the way.
std::size_t StripCarriageReturns(std::string& text);

/// Yields the lines of a text one by one, untrimmed, and leaves the empty ones out.
class LineReader {
 public:
  explicit LineReader(std::string_view text) noexcept
      : at_(text.data()), end_(text.data() + text.size()) {}

  /// The next line; empty if there is none.
  [[nodiscard]] std::string_view Next() noexcept {
    while (at_ != end_ && *at_ == '\n') ++at_;
    const char* const line = at_;
    at_ = FindByte<'\n'>(line, end_);
    return {line, static_cast<std::size_t>(at_ - line)};
  }

 private:
  const char* at_;
  const char* end_;
};

enum class EmptyPieces { kDrop, kKeep };

/// The pieces between the delimiters, untrimmed. A text that ends with a delimiter yields no empty
/// last piece.
[[nodiscard]] std::vector<std::string_view> SplitLines(std::string_view text, char delimiter,
                                                       EmptyPieces emptyPieces);

struct KeyValue {
  std::string_view key;
  std::string_view value;
};

/// Splits at the first whole separator, trimming nothing; without one the line is all key.
[[nodiscard]] KeyValue SplitKeyValue(std::string_view line, std::string_view separator);

/// The decimal number that the text begins with: an optional "-", then digits up to the first other
/// byte. Overflow wraps in the width of `Integer`, silently; a text without a number reads as 0.
/// `length`, if given, is set to how many bytes were read.
template <std::integral Integer>
[[nodiscard]] Integer ReadDecimal(std::string_view text, std::size_t* length = nullptr) noexcept {
  // In unsigned arithmetic, where wrapping is defined.
  using Unsigned = std::make_unsigned_t<Integer>;
  const bool negative = !text.empty() && text.front() == '-';
  std::size_t at = negative ? 1 : 0;
  Unsigned number = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    number = static_cast<Unsigned>(number * 10U + static_cast<Unsigned>(text[at] - '0'));
  }
  if (length != nullptr) *length = at;
  return static_cast<Integer>(negative ? static_cast<Unsigned>(0U - number) : number);
}

}  // namespace ve::sdk
