#include "updater/build_config.h"

namespace ve::sdk {

// Both values are the build's own: see updater/CMakeLists.txt.
const BuildConfig kBuildConfig = {
    .version = LAUNCHER_VERSION,
    .keepsNonEmptyDirectories = LAUNCHER_KEEPS_NONEMPTY_DIRECTORIES,
};

}  // namespace ve::sdk
