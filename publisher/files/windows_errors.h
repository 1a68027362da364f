// Errors of Windows in words: what was tried, on which path, why it failed and what to do.
#pragma once

#include <cstdint>
#include <exception>
#include <string_view>

#include "publisher/report/diagnostics.h"

namespace ve::publish {

/// Describes a failed operation, such as "written" in "cannot be written: Access is denied.".
[[nodiscard]] Diagnostic DescribeWindowsError(std::string_view operation, std::wstring_view path,
                                              std::uint32_t code);

/// Throws that description as a `PublishError`.
[[noreturn]] void ThrowWindowsError(std::string_view operation, std::wstring_view path,
                                    std::uint32_t code);

/// Describes any exception: a `PublishError` by its diagnostic, a filesystem error by its path and
/// code, and others by their text.
[[nodiscard]] Diagnostic DescribeException(const std::exception& error);

}  // namespace ve::publish
