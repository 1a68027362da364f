// The process's current directory.
#pragma once

#include <string>
#include <string_view>

namespace ve {

/// Makes `directory` the current directory. Returns whether that worked; unless `quiet`, sends a
/// failure to the message sink at level 0.
bool SetWorkingDirectory(std::wstring_view directory, bool quiet);

/// The current directory as an absolute path; empty on failure.
[[nodiscard]] std::wstring WorkingDirectory();

}  // namespace ve
