// Which names an update can carry: what the Launcher, URLs and a player's disk make of them.
#pragma once

#include <string>
#include <string_view>

#include "publisher/report/diagnostics.h"

namespace ve::publish {

enum class NameKind { kFile, kDirectory };

/// Checks one name of a build or of a manifest, with "/" between its parts; the part after the last
/// "/" in detail, because those before it are directories with their own check. `launcher` is the
/// name of the Launcher's file. Returns false if nothing below the name needs to be checked: it is
/// not a path below the game's folder, or it is a folder of the Launcher.
bool CheckName(std::wstring_view name, NameKind kind, std::wstring_view launcher,
               const std::string& subject, Diagnostics& diagnostics);

/// Checks for characters that a URL or a name on Windows cannot contain.
void CheckCharacters(std::wstring_view name, const std::string& subject, Diagnostics& diagnostics);

/// The same key for names or paths that Windows does not distinguish: in upper case and with "/".
/// (Names without an error are ASCII.)
[[nodiscard]] std::wstring FoldCase(std::wstring_view name);

}  // namespace ve::publish
