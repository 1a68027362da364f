#include "launcher/runtime_errors.h"

#include <cstdlib>

namespace ve {

void SilenceRuntimeErrorBox() noexcept {
  _set_error_mode(_OUT_TO_STDERR);
#ifdef _MSC_VER
  _set_abort_behavior(0, _WRITE_ABORT_MSG);
#endif
}

}  // namespace ve
