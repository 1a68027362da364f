#include "launcher/runtime_errors.h"

#include <csignal>
#include <cstdlib>

namespace ve {
namespace {

// The exit code that abort() ends a process with.
constexpr int kAbortExitCode = 3;

extern "C" void ExitAtAbort(int) { _exit(kAbortExitCode); }

}  // namespace

void SuppressCrtErrorDialog() noexcept {
  // msvcrt.dll shows its dialog before it raises the signal; later runtimes raise the signal first.
  _set_error_mode(_OUT_TO_STDERR);
  std::signal(SIGABRT, ExitAtAbort);
}

}  // namespace ve
