// The self-update: the Launcher's own executable and its settings archive.
#pragma once

#include <string_view>

namespace ve::sdk {

/// Brings the Launcher up to date from the "updater/" folder below `updatesUrl`, which ends with a
/// slash. `settings` is the settings archive as it was read at the start.
///
/// Returns when there was nothing to do, or after a failure, which it has logged. When it has
/// replaced the executable or the settings archive it starts the Launcher anew and ends this
/// process with exit code 0. On disk it leaves the current build; the new build with the previous
/// one beside it as
/// "_old.exe", which the next start deletes; or, where installing the new build failed, the
/// previous one put back.
void RunSelfUpdate(std::wstring_view updatesUrl, std::string_view settings);

}  // namespace ve::sdk
