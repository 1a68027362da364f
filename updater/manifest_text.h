// The text format that both manifests share: lines, "key: value" pairs and lenient numbers.
//
// Lines, keys and values are views into the manifest's text, which must stay alive and unchanged
// while they are used. There is no malformed input at this level; the readers judge what they get.
#pragma once

#include <concepts>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace ve::sdk {

/// Removes every carriage return, wherever it stands.
void StripCarriageReturns(std::string& text);

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
template <std::integral Integer>
[[nodiscard]] Integer ReadDecimal(std::string_view text) noexcept {
  // In unsigned arithmetic, where wrapping is defined.
  using Unsigned = std::make_unsigned_t<Integer>;
  const bool negative = !text.empty() && text.front() == '-';
  if (negative) text.remove_prefix(1);
  Unsigned number = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') break;
    number = static_cast<Unsigned>(number * 10U + static_cast<Unsigned>(c - '0'));
  }
  return static_cast<Integer>(negative ? static_cast<Unsigned>(0U - number) : number);
}

}  // namespace ve::sdk
