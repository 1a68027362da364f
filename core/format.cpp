#include "core/format.h"

#include <algorithm>
#include <optional>

namespace ve::detail {
namespace {

template <class Char>
using View = std::basic_string_view<Char>;

template <class Char>
constexpr auto kInvalid = [] {
  constexpr std::string_view text = "{INVALID}";
  std::array<Char, text.size()> units{};
  std::copy(text.begin(), text.end(), units.begin());
  return units;
}();

/// The text up to its first placeholder, that placeholder, and what follows it.
template <class Char>
struct Piece {
  View<Char> literal;
  std::optional<View<Char>> placeholder;  ///< What stands between its braces.
  View<Char> rest;
};

template <class Char>
Piece<Char> SplitAtPlaceholder(View<Char> text) {
  const std::size_t open = text.find(Char{'{'});
  if (open == View<Char>::npos) return {text, {}, {}};

  std::size_t depth = 0;
  for (std::size_t at = open + 1; at < text.size(); ++at) {
    if (text[at] == Char{'{'}) {
      ++depth;
    } else if (text[at] == Char{'}'}) {
      if (depth == 0) {
        return {text.substr(0, open), text.substr(open + 1, at - open - 1), text.substr(at + 1)};
      }
      --depth;
    }
  }
  return {text, {}, {}};
}

/// The index in a placeholder. All arithmetic wraps in 8 bits: "256" is 0, "-1" is 255; content
/// that does not begin with a number is 0.
template <class Char>
std::uint8_t ParseIndex(View<Char> content) {
  const bool negative = content.front() == Char{'-'};
  if (negative) content.remove_prefix(1);
  unsigned index = 0;
  for (const Char c : content) {
    if (c < Char{'0'} || c > Char{'9'}) break;
    index = (index * 10 + static_cast<unsigned>(c - Char{'0'})) & 0xFFU;
  }
  return static_cast<std::uint8_t>(negative ? 0U - index : index);
}

/// How long the result will be, counting three characters for each argument's placeholder: an
/// estimate, which may be too high or too low.
template <class Char>
std::size_t EstimateLength(View<Char> format, std::initializer_list<View<Char>> arguments) {
  std::size_t length = format.size();
  for (const View<Char>& argument : arguments) length += argument.size();
  const std::size_t placeholders = 3 * arguments.size();
  return length > placeholders ? length - placeholders : 0;
}

template <class Char>
std::basic_string<Char> ComposeText(View<Char> format,
                                    std::initializer_list<View<Char>> arguments) {
  std::basic_string<Char> out;
  out.reserve(EstimateLength(format, arguments));
  std::uint8_t next = 0;
  while (!format.empty()) {
    const Piece<Char> piece = SplitAtPlaceholder(format);
    out.append(piece.literal);
    if (piece.placeholder) {
      const std::uint8_t index = piece.placeholder->empty() ? next : ParseIndex(*piece.placeholder);
      next = static_cast<std::uint8_t>(index + 1);
      if (index < arguments.size()) {
        out.append(arguments.begin()[index]);
      } else {
        out.append(kInvalid<Char>.data(), kInvalid<Char>.size());
      }
    }
    format = piece.rest;
  }
  return out;
}

}  // namespace

std::string Compose(std::string_view format, std::initializer_list<std::string_view> arguments) {
  return ComposeText(format, arguments);
}

std::wstring Compose(std::wstring_view format, std::initializer_list<std::wstring_view> arguments) {
  return ComposeText(format, arguments);
}

}  // namespace ve::detail
