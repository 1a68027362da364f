// The text format that both manifests share: lines, "key: value" pairs and lenient numbers.
//
//   StripCarriageReturns(text);
//   for (std::string_view line : SplitLines(text, '\n', EmptyPieces::kDrop)) {
//     const auto [key, value] = SplitKeyValue(line, ": ");
//     const auto number = ReadDecimal<std::uint32_t>(value);
//   }
//
// Lines, keys and values are views into the text, which must stay alive and unchanged while they
// are used. Nothing here fails: the manifests' readers decide what is an error.
#pragma once

#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace ve::sdk {

/// Removes every carriage return, wherever it stands.
void StripCarriageReturns(std::string& text);

enum class EmptyPieces { kDrop, kKeep };

/// The pieces between the delimiters, untrimmed and in order. A text that ends with a delimiter
/// yields no empty last piece.
[[nodiscard]] std::vector<std::string_view> SplitLines(std::string_view text, char delimiter,
                                                       EmptyPieces emptyPieces);

struct KeyValue {
  std::string_view key;
  std::string_view value;
};

/// Splits at the first whole separator and trims nothing. Without a separator the whole line is the
/// key.
[[nodiscard]] KeyValue SplitKeyValue(std::string_view line, std::string_view separator);

/// Reads the decimal number that the text begins with: an optional "-", then digits up to the first
/// other byte. Overflow wraps in the width of `Integer`. A text without a number reads as 0.
template <std::integral Integer>
[[nodiscard]] Integer ReadDecimal(std::string_view text) noexcept {
  // In unsigned arithmetic, where wrapping is defined.
  using Unsigned = std::make_unsigned_t<Integer>;
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  Unsigned number = 0;
  for (const char digit : text) {
    if (digit < '0' || digit > '9') break;
    number = static_cast<Unsigned>(number * 10U + static_cast<Unsigned>(digit - '0'));
  }
  return static_cast<Integer>(negative ? static_cast<Unsigned>(0U - number) : number);
}

}  // namespace ve::sdk
