// Which directory is the game's root.
#pragma once

#include <optional>
#include <string>

namespace ve {

/// The root that the process's command line names; none means the directory it was started in.
///
/// None unless there is exactly one argument. "FROM_SOLUTION" means the last build recorded in the
/// registry, empty if there is none. Any other argument is a directory: the root is the folder of
/// the newest ".vegame" file below it, none if there is no such file. Throws that search's
/// filesystem errors, which end the program; only developers pass an argument.
[[nodiscard]] std::optional<std::wstring> ResolveGameRoot();

}  // namespace ve
