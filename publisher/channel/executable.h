// What an executable's version resource says.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ve::publish {

/// Whether the content is that of a Windows executable.
[[nodiscard]] bool IsExecutable(std::string_view content);

/// The first number of the fixed file version; none if there is no version resource.
[[nodiscard]] std::optional<std::uint32_t> ExecutableVersion(const std::wstring& path);

}  // namespace ve::publish
