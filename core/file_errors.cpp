#include "core/file_errors.h"

#include <array>
#include <cstring>
#include <system_error>

#include "core/errors.h"
#include "core/format.h"
#include "core/unicode.h"

namespace ve::file {

void ThrowOpenError(std::string_view failure, std::string_view path, int errorNumber) {
  std::array<char, 95> text{};
  strerror_s(text.data(), text.size(), errorNumber);
  throw FileException(
      Format("{}. File '{}'. Error: {} ({})", failure, path, text.data(), errorNumber));
}

void ThrowCopyError(std::wstring_view source, std::wstring_view target, std::uint32_t code) {
  throw FileException(Format("Failed to copy file from '{}' to '{}': {}", ToUtf8(source),
                             ToUtf8(target),
                             std::system_category().message(static_cast<int>(code))));
}

}  // namespace ve::file
