// A terminated text in a buffer of fixed size, for the calls that the platform wrappers hand
// path-like arguments to.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace ve {

/// Holds at most `Capacity` - 1 characters of the text it is made from, and a terminator. Longer
/// text is cut, never written past the end.
template <class Char, std::size_t Capacity>
class TruncatedString {
 public:
  static constexpr std::size_t kMaxCharacters = Capacity - 1;

  explicit TruncatedString(std::basic_string_view<Char> text) noexcept {
    const std::size_t length = std::min(text.size(), kMaxCharacters);
    std::copy_n(text.data(), length, buffer_.data());
    buffer_[length] = Char{};
  }

  [[nodiscard]] const Char* Get() const noexcept { return buffer_.data(); }
  /// For calls that write into the text they are given, such as CreateProcessW.
  [[nodiscard]] Char* GetWritable() noexcept { return buffer_.data(); }

 private:
  std::array<Char, Capacity> buffer_;
};

using NarrowPath = TruncatedString<char, 256>;   ///< At most 255 bytes.
using WidePath = TruncatedString<wchar_t, 256>;  ///< At most 255 UTF-16 units.

}  // namespace ve
