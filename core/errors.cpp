#include "core/errors.h"

#include <system_error>

namespace ve::file {

void ThrowFilesystemError(const char* operation, std::wstring_view path, std::uint32_t code) {
  // By way of UTF-8: the error's own text cannot be made from a lone surrogate.
  throw std::filesystem::filesystem_error(
      operation, std::filesystem::path(ToWide(ToUtf8(path))),
      std::error_code(static_cast<int>(code), std::system_category()));
}

}  // namespace ve::file
