// Which names an update can carry: what the Launcher, the addresses that it asks for, and a
// player's disk make of them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "publisher/report/diagnostics.h"

namespace ve::publish {

enum class NameKind { kFile, kDirectory };

/// Refuses or warns of one entry of a build, by its name with "/" between the parts. What is wrong
/// with a folder above it is told for that folder alone. `launcher` is the name of the Launcher's
/// own file.
void CheckName(std::wstring_view name, NameKind kind, std::wstring_view launcher,
               Diagnostics& diagnostics);

/// Refuses or warns of what cannot stand in an address of the server, or in a name on Windows.
/// `subject` is what the diagnostics are about.
void CheckCharacters(std::wstring_view name, const std::string& subject, Diagnostics& diagnostics);

/// A folder that no build may have: nothing below it needs to be looked at.
[[nodiscard]] bool IsForbiddenFolder(std::wstring_view name);

/// Two names or paths that Windows takes for one have the same key, in upper case and with "/".
/// (Names that are not refused are ASCII.)
[[nodiscard]] std::wstring FoldCase(std::wstring_view name);

/// Windows opens no path of more than 259 characters, the game folder's own included. With a name
/// staged, so many are left for the game folder; 0 if none are.
[[nodiscard]] std::size_t MaxGameFolderLength(std::wstring_view name);

/// JoinPath this room, players with an ordinary game folder get into trouble: it is what
/// "C:\Program Files (x86)\..." takes, with some to spare.
inline constexpr std::size_t kTypicalGameFolderLength = 100;

}  // namespace ve::publish
