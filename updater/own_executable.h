// The running Launcher's own file.
#pragma once

#include <string_view>

namespace ve::sdk {

/// The name of the running executable's file, without its folder, as it was typed when it was
/// started. Looked up once per process. Used as a path it is relative to the current directory. If
/// the full path has more than 259 characters, its end is cut off.
[[nodiscard]] std::wstring_view OwnExecutableName();

}  // namespace ve::sdk
