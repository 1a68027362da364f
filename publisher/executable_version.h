// The version resource of an executable.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace ve::publish {

/// The first number of the file's version, which of a Launcher is its version; none if the file
/// has no version resource.
[[nodiscard]] std::optional<std::uint32_t> ExecutableVersion(const std::wstring& path);

}  // namespace ve::publish
