// The exceptions of this program. The message is all that an exception carries: the handlers catch
// std::exception and log what(); the classes let code distinguish the areas.
//
//   std::runtime_error
//     ve::VERuntimeError                    the base of the library's own errors
//       ve::sdk::UpdaterException           invalid updater data, failed update steps
//       ve::file::FileException             archive decoding and file operations
//         ve::file::MappedFileException     memory-mapped files
#pragma once

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include "core/format.h"
#include "core/unicode.h"

namespace ve {

class VERuntimeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

namespace detail {

/// Wide values go into messages as UTF-8; everything else is left to the formatter.
template <class Value>
decltype(auto) ForMessage(const Value& value) {
  if constexpr (std::is_convertible_v<const Value&, std::wstring_view>) {
    return ToUtf8(value);
  } else if constexpr (std::is_same_v<Value, std::filesystem::path>) {
    return ToUtf8(value.native());
  } else {
    return (value);
  }
}

}  // namespace detail

namespace file {

class FileException : public VERuntimeError {
 public:
  using VERuntimeError::VERuntimeError;
};

class MappedFileException : public FileException {
 public:
  using FileException::FileException;
};

/// Throws the standard library's filesystem error for a Windows error code. Names that are no valid
/// UTF-16 are shown with replacement characters.
[[noreturn]] void ThrowFilesystemError(const char* operation, std::wstring_view path,
                                       std::uint32_t code);

}  // namespace file

namespace sdk {

struct UpdaterException : public VERuntimeError {
  using VERuntimeError::VERuntimeError;
};

/// Composes the message from one to four values and throws it. Composing cannot fail, so the
/// intended exception is always the one thrown.
template <class... Values>
requires(sizeof...(Values) >= 1 && sizeof...(Values) <= kMaxFormatArguments)
    [[noreturn]] void ThrowUpdaterException(std::string_view format, const Values&... values) {
  throw UpdaterException(Format(format, ve::detail::ForMessage(values)...));
}

}  // namespace sdk
}  // namespace ve
