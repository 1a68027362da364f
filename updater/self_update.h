// The self-update: the Launcher's own executable and its settings archive.
#pragma once

#include <string_view>

namespace ve::sdk {

/// Brings the Launcher up to date from the "updater/" folder below `updatesUrl`, which ends with a
/// slash. `settings` is the settings archive as it was read at the start.
///
/// Returns when the Launcher and its settings are current, or after a failure, which it logs. After
/// replacing the executable or the settings archive, starts the new Launcher and ends this process
/// with exit code 0.
///
/// Leaves on disk one of: the current build; the new build, with the previous one beside it as
/// "_old.exe" until the next start; the previous build again, after a failed replacement. If the
/// rollback fails, too, or the process is killed, "_old.exe" may be the only complete build.
void RunSelfUpdate(std::wstring_view updatesUrl, std::string_view settings);

/// The name of the previous executable after an update. Also used by publish.exe.
inline constexpr std::wstring_view kParkedExecutable = L"_old.exe";

}  // namespace ve::sdk
