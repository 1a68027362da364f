#include "launcher/runtime_errors.h"

#include <cstdlib>

namespace ve {

void SuppressCrtErrorDialog() noexcept {
  _set_error_mode(_OUT_TO_STDERR);
#ifdef _MSC_VER
  // Without the second flag abort() would hand over to Windows' error reporting.
  _set_abort_behavior(0, _WRITE_ABORT_MSG | _CALL_REPORTFAULT);
#endif
}

}  // namespace ve
