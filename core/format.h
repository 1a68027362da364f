// The placeholder formatter that composes every message, log text, URL and path.
//
// "{}" stands for the next argument, "{N}" for the argument with that index, counted from 0; after
// "{N}" the next "{}" is argument N + 1. A placeholder that cannot be served becomes "{INVALID}".
// Braces cannot be escaped, surplus arguments are ignored, an unclosed "{" is literal text.
// Formatting fails only when memory runs out.
#pragma once

#include <array>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

namespace ve {

/// One byte as one UTF-16 unit, extended by its sign: 0x80 to 0xFF become 0xFF80 to 0xFFFF. This is
/// the one rule by which narrow text becomes wide without being decoded; manifest names use it too.
[[nodiscard]] constexpr wchar_t WidenByte(char byte) noexcept {
  return static_cast<wchar_t>(static_cast<std::int16_t>(static_cast<signed char>(byte)));
}

namespace detail {

/// `format` with its placeholders replaced by `arguments`.
[[nodiscard]] std::string Compose(std::string_view format,
                                  std::initializer_list<std::string_view> arguments);
[[nodiscard]] std::wstring Compose(std::wstring_view format,
                                   std::initializer_list<std::wstring_view> arguments);

/// The integers that are printed as numbers; characters and truth values are none.
template <class T>
concept FormattableInteger = std::integral<T> && !std::same_as<T, bool> && !std::same_as<T, char> &&
                             !std::same_as<T, wchar_t> && !std::same_as<T, char8_t> &&
                             !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

/// A number in decimal, "-" in front when negative.
template <class Char>
class IntegerText {
 public:
  template <FormattableInteger Integer>
  explicit IntegerText(Integer number) noexcept {
    using Widest = std::conditional_t<std::is_signed_v<Integer>, std::int64_t, std::uint64_t>;
    std::array<char, kMaxCharacters> digits;
    const auto end =
        std::to_chars(digits.data(), digits.data() + digits.size(), static_cast<Widest>(number));
    while (digits.data() + length_ != end.ptr) {
      text_[length_] = static_cast<Char>(digits[length_]);
      ++length_;
    }
  }

  explicit operator std::basic_string_view<Char>() const noexcept {
    return {text_.data(), length_};
  }

 private:
  static constexpr std::size_t kMaxCharacters = 20;  // of a signed 64-bit number
  std::array<Char, kMaxCharacters> text_;
  std::size_t length_ = 0;
};

/// One argument as text of the format's width: a view where the argument is such text already, a
/// short-lived owner otherwise.
template <class Char, class Argument>
auto ToText(const Argument& argument) {
  using View = std::basic_string_view<Char>;
  if constexpr (FormattableInteger<Argument>) {
    return IntegerText<Char>(argument);
  } else if constexpr (std::same_as<Argument, std::filesystem::path>) {
    return ToText<Char>(argument.native());
  } else if constexpr (std::convertible_to<const Argument&, View>) {
    return View(argument);
  } else if constexpr (std::same_as<Char, wchar_t>) {
    // Narrow into wide: unit by unit with the byte's sign, not decoded. Callers that mean UTF-8
    // convert with ToWide first.
    const std::string_view narrow(argument);
    std::wstring wide;
    wide.reserve(narrow.size());
    for (const char byte : narrow) wide.push_back(WidenByte(byte));
    return wide;
  } else {
    // Wide into narrow: the low byte of each unit, not encoded. Callers that mean UTF-8 convert
    // with ToUtf8 first.
    const std::wstring_view wide(argument);
    std::string narrow;
    narrow.reserve(wide.size());
    for (const wchar_t unit : wide) narrow.push_back(static_cast<char>(unit & 0xFF));
    return narrow;
  }
}

}  // namespace detail

inline constexpr std::size_t kMaxFormatArguments = 4;

/// Composes narrow text. Arguments: narrow text (as is), wide text and paths (low bytes), integers.
template <class... Arguments>
requires(sizeof...(Arguments) <= kMaxFormatArguments) [[nodiscard]] std::string
    Format(std::string_view format, const Arguments&... arguments) {
  return detail::Compose(format, {std::string_view(detail::ToText<char>(arguments))...});
}

/// Composes wide text. Arguments: wide text and paths (as is), narrow text (widened), integers.
template <class... Arguments>
requires(sizeof...(Arguments) <= kMaxFormatArguments) [[nodiscard]] std::wstring
    Format(std::wstring_view format, const Arguments&... arguments) {
  return detail::Compose(format, {std::wstring_view(detail::ToText<wchar_t>(arguments))...});
}

}  // namespace ve
