// The errors of file operations as they are thrown, for whoever has to foretell them. (Filesystem
// errors are in errors.h.)
#pragma once

#include <cstdint>
#include <string_view>

namespace ve::file {

/// What `SaveFile` throws when the file cannot be opened; `errorNumber` is the C runtime's.
[[noreturn]] void ThrowSaveError(std::wstring_view path, int errorNumber);

/// What `CopyFileOverwrite` throws; `code` is the Windows error code.
[[noreturn]] void ThrowCopyError(std::wstring_view source, std::wstring_view target,
                                 std::uint32_t code);

}  // namespace ve::file
