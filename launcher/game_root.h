// Which directory is the game's root.
#pragma once

#include <optional>
#include <span>
#include <string>

namespace ve {

/// The root that the process's command line names; none means the directory it was started in.
[[nodiscard]] std::optional<std::wstring> ResolveGameRoot();

/// The root that `arguments`, of which the first is the program, name. Without exactly one argument
/// there is none. "FROM_SOLUTION" takes the last build recorded in the registry, found or not. Any
/// other argument is a directory in which the newest ".vegame" file is searched; its folder is the
/// root. Throws filesystem errors of that search; nobody catches them, which is meant for
/// developers only.
[[nodiscard]] std::optional<std::wstring> ResolveGameRoot(
    std::span<const wchar_t* const> arguments);

}  // namespace ve
