// The process's current directory.
#pragma once

#include <string>
#include <string_view>

namespace ve {

/// Makes `directory` the current directory. On failure returns false, after telling the message
/// sink at level 0 unless `quiet`.
bool SetWorkingDirectory(std::wstring_view directory, bool quiet);

/// The current directory as an absolute path; empty if it cannot be told.
[[nodiscard]] std::wstring WorkingDirectory();

}  // namespace ve
