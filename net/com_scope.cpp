#include "net/com_scope.h"

#include "core/windows.h"

#include <objbase.h>

namespace ve {
namespace {

unsigned comScopes = 0;

}  // namespace

ComScope::ComScope() {
  // The result is ignored: a download works without COM, too.
  if (comScopes++ == 0) static_cast<void>(CoInitialize(nullptr));
}

ComScope::~ComScope() {
  if (--comScopes == 0) CoUninitialize();
}

}  // namespace ve
